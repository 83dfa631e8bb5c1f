#pragma once

#include "editor/model/Annotation.h"

#include <QObject>
#include <optional>

namespace qm {

class SettingsStore;

// The export backdrop of one editor window. It starts off in every new editor; the last
// backdrop used is kept under "markup.background." so turning it on again brings it back.
class Backdrop : public QObject {
    Q_OBJECT

public:
    // `settings` must outlive the backdrop.
    explicit Backdrop(SettingsStore& settings, QObject* parent = nullptr);

    std::optional<BackgroundStyle> background() const { return m_background; }
    // A backdrop is remembered for the next editor; turning it off forgets nothing.
    void setBackground(const std::optional<BackgroundStyle>& style);
    // The last backdrop used, or the defaults.
    BackgroundStyle savedBackgroundStyle() const;

Q_SIGNALS:
    void backgroundChanged();

private:
    SettingsStore& m_settings;
    std::optional<BackgroundStyle> m_background;
};

} // namespace qm
