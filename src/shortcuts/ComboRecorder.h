#pragma once

#include "base/Hotkeys.h"

#include <QObject>
#include <optional>

namespace qm {

class HotkeyManager;
class Preferences;

// Records a new shortcut for one action from the next key press in this program. While it
// records, no global shortcut is registered, so pressing the current one reaches it.
class ComboRecorder : public QObject {
    Q_OBJECT
public:
    ComboRecorder(Preferences& preferences, HotkeyManager& hotkeys, QObject* parent = nullptr);
    ~ComboRecorder() override;

    std::optional<HotkeyAction> recordingAction() const { return m_recordingAction; }
    void begin(HotkeyAction action);
    // Stops recording (also after a cancel) and has the shortcuts registered again.
    void end();

Q_SIGNALS:
    void recordingActionChanged();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    Preferences& m_preferences;
    HotkeyManager& m_hotkeys;
    std::optional<HotkeyAction> m_recordingAction;
    bool m_monitoring = false;
};

} // namespace qm
