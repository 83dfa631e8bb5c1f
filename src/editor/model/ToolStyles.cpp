#include "editor/model/ToolStyles.h"

#include "base/SettingsStore.h"

namespace qm {

namespace {

// The platform's red and yellow, the colours a first-time user starts with.
const QColor systemRed(255, 59, 48);
const QColor systemYellow(255, 204, 0);

QString toolKey(AnnotationTool tool, const char* field) {
    return QStringLiteral("markup.tool.") + toolId(tool) + QLatin1Char('.') + QLatin1String(field);
}

const QString keyColorHex = QStringLiteral("markup.colorHex");
const QString keyHighlightColorHex = QStringLiteral("markup.highlightColorHex");
const QString keyLineWidth = QStringLiteral("markup.lineWidth");
const QString keyFontSize = QStringLiteral("markup.fontSize");
const QString keyTextBackground = QStringLiteral("markup.textBackground");

std::optional<QColor> storedColor(const SettingsStore& settings, const QString& key) {
    const auto text = settings.stringValue(key);
    return text ? colorFromHexRGB(*text) : std::nullopt;
}

} // namespace

ToolStyles::ToolStyles(SettingsStore& settings, double initialFontSize, QObject* parent)
    : QObject(parent)
    , m_settings(settings) {
    // Written through the persisting setter on purpose: a size chosen in an earlier editor
    // never carries into a new one, each capture starts with a size that suits its height.
    setTextFontSize(initialFontSize);

    // The older shared keys are read as fallbacks, never written.
    const QColor defaultColor = storedColor(settings, keyColorHex).value_or(systemRed);
    const QColor highlightColor =
        storedColor(settings, keyHighlightColorHex)
            .value_or(colorFromHexRGB(QStringLiteral("#FFD60A")).value_or(systemYellow));
    double defaultWidth = settings.doubleValue(keyLineWidth);
    if (!(defaultWidth > 0))
        defaultWidth = 4;

    for (AnnotationTool tool : styledTools()) {
        const QColor fallback = tool == AnnotationTool::Highlighter ? highlightColor : defaultColor;
        const double width = settings.doubleValue(toolKey(tool, "lineWidth"));
        m_styles.insert(
            tool, ToolStyle{storedColor(settings, toolKey(tool, "colorHex")).value_or(fallback),
                            width > 0 ? width : defaultWidth});
    }
    const double storedFontSize = settings.doubleValue(keyFontSize);
    if (storedFontSize > 0)
        setTextFontSize(storedFontSize);
    setTextHasBackground(settings.boolValue(keyTextBackground));
}

std::optional<ToolStyle> ToolStyles::stored(AnnotationTool tool) const {
    const auto it = m_styles.constFind(tool);
    return it != m_styles.cend() ? std::optional<ToolStyle>(*it) : std::nullopt;
}

void ToolStyles::remember(AnnotationTool tool, std::optional<QColor> color,
                          std::optional<double> width) {
    if (!isColorStyled(tool))
        return;
    const ToolStyle old = m_styles.value(tool);
    const ToolStyle updated{color.value_or(old.color), width.value_or(old.lineWidth)};
    m_styles.insert(tool, updated);
    m_settings.setValue(toolKey(tool, "colorHex"), hexRGB(updated.color));
    if (isWidthStyled(tool))
        m_settings.setValue(toolKey(tool, "lineWidth"), updated.lineWidth);
}

void ToolStyles::setTextFontSize(double size) {
    if (m_textFontSize != size) {
        m_textFontSize = size;
        Q_EMIT textFontSizeChanged();
    }
    m_settings.setValue(keyFontSize, size);
}

void ToolStyles::setTextHasBackground(bool on) {
    if (m_textHasBackground != on) {
        m_textHasBackground = on;
        Q_EMIT textHasBackgroundChanged();
    }
    m_settings.setValue(keyTextBackground, on);
}

} // namespace qm
