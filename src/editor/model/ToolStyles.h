#pragma once

#include "editor/model/Annotation.h"

#include <QHash>
#include <QObject>
#include <optional>

namespace qm {

class SettingsStore;

// What each styled tool draws with, and the defaults for new text. All of it persists under
// "markup." keys on every change, so it carries over to the next editor window; only the text
// size starts afresh with each capture (from a size suited to its height).
class ToolStyles : public QObject {
    Q_OBJECT

public:
    // `settings` must outlive the styles. Writes "markup.fontSize" with `initialFontSize`.
    ToolStyles(SettingsStore& settings, double initialFontSize, QObject* parent = nullptr);

    // The remembered style of a colour-styled tool; nothing for other tools.
    std::optional<ToolStyle> stored(AnnotationTool tool) const;
    const QHash<AnnotationTool, ToolStyle>& all() const { return m_styles; }
    // Remembers a new colour and/or width for a colour-styled tool (the width only for
    // width-styled ones); other tools are ignored.
    void remember(AnnotationTool tool, std::optional<QColor> color, std::optional<double> width);

    double textFontSize() const { return m_textFontSize; }
    void setTextFontSize(double size); // default for new text; persisted on every assignment
    bool textHasBackground() const { return m_textHasBackground; }
    void setTextHasBackground(bool on); // persisted on every assignment

Q_SIGNALS:
    void textFontSizeChanged();
    void textHasBackgroundChanged();

private:
    SettingsStore& m_settings;
    QHash<AnnotationTool, ToolStyle> m_styles;
    double m_textFontSize = 28;
    bool m_textHasBackground = false;
};

} // namespace qm
