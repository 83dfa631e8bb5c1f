#include "editor/model/EditorModel.h"

#include <algorithm>

namespace qm {

namespace {

// Whether the shape's own width is what the width control shows.
bool showsLineWidth(const Annotation& a) {
    return a.is<Annotation::Rectangle>() || a.is<Annotation::Ellipse>() ||
           a.is<Annotation::Arrow>() || a.is<Annotation::Line>() || a.is<Annotation::Pen>() ||
           a.is<Annotation::Highlight>();
}

} // namespace

EditorModel::EditorModel(const QImage& image, SettingsStore& settings, QObject* parent)
    : QObject(parent)
    , m_document(image)
    , m_styles(settings, std::max(0.025 * image.height(), 28.0))
    , m_backdrop(settings)
    , m_color(255, 59, 48) {
    // Through the storing setters on purpose: the first tool's style is written back.
    if (const auto s = m_styles.stored(m_tool)) {
        setColor(s->color);
        setLineWidth(s->lineWidth);
    }
}

EditorModel::~EditorModel() = default;

// --- Tool and style ---

void EditorModel::loadStyle(const std::function<void()>& load) {
    m_isLoadingToolStyle = true;
    load();
    m_isLoadingToolStyle = false;
}

void EditorModel::setTool(AnnotationTool tool) {
    const AnnotationTool old = m_tool;
    m_tool = tool;
    if (old != tool)
        Q_EMIT toolChanged();

    if (isColorStyled(old))
        m_styles.remember(old, m_color,
                          isWidthStyled(old) ? std::optional<double>(m_lineWidth) : std::nullopt);
    if (isColorStyled(tool)) {
        const ToolStyle s = style(tool);
        loadStyle([&] {
            setColor(s.color);
            if (isWidthStyled(tool))
                setLineWidth(s.lineWidth);
        });
    }
    if (tool == AnnotationTool::Crop) {
        if (!m_document.cropEdit())
            m_document.setCropEdit(m_document.cropRect().value_or(
                QRectF(QPointF(0, 0), QSizeF(m_document.pixelSize()))));
    } else if (old == AnnotationTool::Crop) {
        m_document.setCropEdit(std::nullopt);
    }
    if (m_ocrSelecting)
        setOcrSelecting(false);
}

void EditorModel::setOcrSelecting(bool on) {
    if (m_ocrSelecting == on)
        return;
    m_ocrSelecting = on;
    Q_EMIT ocrSelectingChanged();
}

void EditorModel::setColor(const QColor& color) {
    if (m_color != color) {
        m_color = color;
        Q_EMIT colorChanged();
    }
    if (!m_isLoadingToolStyle && isColorStyled(m_tool))
        m_styles.remember(m_tool, color, std::nullopt);
}

void EditorModel::setLineWidth(double width) {
    if (m_lineWidth != width) {
        m_lineWidth = width;
        Q_EMIT lineWidthChanged();
    }
    if (!m_isLoadingToolStyle && isWidthStyled(m_tool))
        m_styles.remember(m_tool, std::nullopt, width);
}

ToolStyle EditorModel::style(AnnotationTool tool) const {
    return m_styles.stored(tool).value_or(ToolStyle{m_color, m_lineWidth});
}

void EditorModel::setDefaultColor(const QColor& color, AnnotationTool tool) {
    m_styles.remember(tool, color, std::nullopt);
    if (tool == m_tool)
        loadStyle([&] { setColor(color); });
}

void EditorModel::setDefaultLineWidth(double width, AnnotationTool tool) {
    m_styles.remember(tool, std::nullopt, width);
    if (tool == m_tool)
        loadStyle([&] { setLineWidth(width); });
}

AnnotationTool EditorModel::configurationTool() const {
    if (m_tool == AnnotationTool::Select)
        if (const Annotation* selected = m_document.selectedAnnotation())
            return selected->tool();
    return m_tool;
}

bool EditorModel::configurationTargetsSelection() const {
    const Annotation* selected = m_document.selectedAnnotation();
    return selected && selected->tool() == configurationTool();
}

QColor EditorModel::displayColor() const {
    if (configurationTargetsSelection())
        return m_document.selectedAnnotation()->color;
    return style(configurationTool()).color;
}

double EditorModel::displayLineWidth() const {
    if (configurationTargetsSelection() && showsLineWidth(*m_document.selectedAnnotation()))
        return m_document.selectedAnnotation()->lineWidth;
    return style(configurationTool()).lineWidth;
}

void EditorModel::applyConfigurationColor(const QColor& color) {
    const AnnotationTool tool = configurationTool();
    if (!isColorStyled(tool))
        return;
    setDefaultColor(color, tool);
    if (configurationTargetsSelection())
        m_document.recolor(*m_document.selectedID(), color);
}

void EditorModel::applyLineWidth(double width) {
    const AnnotationTool tool = configurationTool();
    if (!isWidthStyled(tool))
        return;
    width = std::clamp(width, 1.0, 40.0);
    setDefaultLineWidth(width, tool);
    if (configurationTargetsSelection()) {
        m_document.beginChange();
        m_document.updateAnnotation(*m_document.selectedID(),
                                    [&](Annotation& a) { a.lineWidth = width; });
    }
}

// --- Text formatting ---

std::optional<QUuid> EditorModel::textTarget() const {
    const auto editing = m_document.editingTextID();
    const std::optional<QUuid> id = editing ? editing : m_document.selectedID();
    const Annotation* a = id ? m_document.annotation(*id) : nullptr;
    if (a && a->is<Annotation::Text>())
        return id;
    return std::nullopt;
}

bool EditorModel::hasTargetedText() const {
    return textTarget().has_value();
}

double EditorModel::displayFontSize() const {
    if (const auto id = textTarget())
        return m_document.annotation(*id)->as<Annotation::Text>()->fontSize;
    return m_styles.textFontSize();
}

bool EditorModel::displayTextHasBackground() const {
    if (const auto id = textTarget())
        return m_document.annotation(*id)->textBackground;
    return m_styles.textHasBackground();
}

QColor EditorModel::displayTextColor() const {
    if (const auto id = textTarget())
        return m_document.annotation(*id)->color;
    return style(AnnotationTool::Text).color;
}

void EditorModel::setFontSize(double size) {
    size = std::clamp(size, 10.0, 300.0);
    if (const auto id = textTarget()) {
        // The default size is left alone: resizing one label must not resize the next.
        m_document.beginChange();
        m_document.updateAnnotation(
            *id, [&](Annotation& a) { a.as<Annotation::Text>()->fontSize = size; });
        return;
    }
    m_styles.setTextFontSize(size);
}

void EditorModel::toggleTextBackground() {
    if (const auto id = textTarget()) {
        m_document.beginChange();
        bool now = false;
        m_document.updateAnnotation(*id, [&](Annotation& a) {
            a.textBackground = !a.textBackground;
            now = a.textBackground;
        });
        m_styles.setTextHasBackground(now); // unlike the size, the chip setting follows
        return;
    }
    m_styles.setTextHasBackground(!m_styles.textHasBackground());
}

void EditorModel::applyTextColor(const QColor& color) {
    setDefaultColor(color, AnnotationTool::Text);
    if (const auto id = textTarget())
        m_document.recolor(*id, color);
}

// --- Commands ---

void EditorModel::addStep(QPointF center) {
    const double radius = std::max(0.02 * m_document.pixelSize().height(), 22.0);
    Annotation step(Annotation::Step{center, m_document.nextStepNumber(), radius}, m_color,
                    m_lineWidth);
    m_document.beginChange();
    m_document.appendAnnotation(step);
}

void EditorModel::commitCrop() {
    m_document.commitCropEdit();
    setTool(AnnotationTool::Select);
}

void EditorModel::cancelCrop() {
    m_document.setCropEdit(std::nullopt);
    setTool(AnnotationTool::Select);
}

} // namespace qm
