#include "editor/model/EditorModel.h"

#include "base/SettingsStore.h"
#include "editor/model/AnnotationRenderer.h"

#include <QPainter>
#include <algorithm>

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
const QString keyBackgroundPreset = QStringLiteral("markup.background.preset");
const QString keyBackgroundPadding = QStringLiteral("markup.background.padding");
const QString keyBackgroundCornerRadius = QStringLiteral("markup.background.cornerRadius");
const QString keyBackgroundShadow = QStringLiteral("markup.background.shadow");

std::optional<QColor> storedColor(const SettingsStore& settings, const QString& key) {
    const auto text = settings.stringValue(key);
    return text ? colorFromHexRGB(*text) : std::nullopt;
}

// Whether the shape's own width is what the width control shows.
bool showsLineWidth(const Annotation& a) {
    return a.is<Annotation::Rectangle>() || a.is<Annotation::Ellipse>() ||
           a.is<Annotation::Arrow>() || a.is<Annotation::Line>() || a.is<Annotation::Pen>() ||
           a.is<Annotation::Highlight>();
}

} // namespace

const QList<double>& EditorModel::zoomSteps() {
    static const QList<double> steps{10, 25, 50, 75, 100, 150, 200, 300, 400, 600, 800};
    return steps;
}

EditorModel::EditorModel(const QImage& image, SettingsStore& settings, QObject* parent)
    : QObject(parent)
    , m_settings(settings)
    , m_color(systemRed)
    , m_baseImage(image)
    , m_pixelSize(image.size()) {
    // Written through the persisting setter on purpose: a size chosen in an earlier editor
    // never carries into a new one, each capture starts with a size that suits its height.
    setTextFontSize(std::max(0.025 * m_pixelSize.height(), 28.0));

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
        m_toolStyles.insert(
            tool, ToolStyle{storedColor(settings, toolKey(tool, "colorHex")).value_or(fallback),
                            width > 0 ? width : defaultWidth});
    }
    if (m_toolStyles.contains(m_tool)) {
        const ToolStyle s = m_toolStyles.value(m_tool);
        setColor(s.color);
        setLineWidth(s.lineWidth);
    }
    const double storedFontSize = settings.doubleValue(keyFontSize);
    if (storedFontSize > 0)
        setTextFontSize(storedFontSize);
    setTextHasBackground(settings.boolValue(keyTextBackground));
}

EditorModel::~EditorModel() = default;

// --- Image ---

const QImage& EditorModel::cgBase() const {
    if (!m_cgBase) {
        // Captures are opaque; keeping that in the format lets the backdrop skip what the
        // image hides.
        QImage raster = m_baseImage.convertToFormat(m_baseImage.hasAlphaChannel()
                                                        ? QImage::Format_ARGB32_Premultiplied
                                                        : QImage::Format_RGB32);
        raster.setDevicePixelRatio(1); // one pixel per unit, whatever screen it came from
        m_cgBase = raster;
    }
    return *m_cgBase;
}

double EditorModel::pixelationBlockSize() const {
    return std::max(std::max(m_pixelSize.width(), m_pixelSize.height()) / 55.0, 8.0);
}

const QImage& EditorModel::pixelatedImage() const {
    if (!m_pixelatedImage) {
        const QImage& base = cgBase();
        m_pixelatedImage =
            base.isNull() ? m_baseImage : AnnotationRenderer::pixelate(base, pixelationBlockSize());
    }
    return *m_pixelatedImage;
}

// --- Annotations ---

void EditorModel::setAnnotations(const QList<Annotation>& annotations) {
    m_annotations = annotations;
    Q_EMIT annotationsChanged();
}

void EditorModel::appendAnnotation(const Annotation& annotation) {
    m_annotations.append(annotation);
    Q_EMIT annotationsChanged();
}

bool EditorModel::updateAnnotation(const QUuid& id, const std::function<void(Annotation&)>& edit) {
    const auto index = indexOf(id);
    if (!index)
        return false;
    edit(m_annotations[*index]);
    Q_EMIT annotationsChanged();
    return true;
}

const Annotation* EditorModel::annotation(const QUuid& id) const {
    const auto index = indexOf(id);
    return index ? &m_annotations[*index] : nullptr;
}

std::optional<int> EditorModel::indexOf(const std::optional<QUuid>& id) const {
    if (!id)
        return std::nullopt;
    for (qsizetype i = 0; i < m_annotations.size(); ++i)
        if (m_annotations[i].id() == *id)
            return int(i);
    return std::nullopt;
}

// --- Tool and style ---

void EditorModel::setTool(AnnotationTool tool) {
    const AnnotationTool old = m_tool;
    m_tool = tool;
    if (old != tool)
        Q_EMIT toolChanged();

    if (isColorStyled(old))
        updateStoredStyle(old, m_color,
                          isWidthStyled(old) ? std::optional<double>(m_lineWidth) : std::nullopt);
    if (isColorStyled(tool)) {
        const ToolStyle s = style(tool);
        m_isLoadingToolStyle = true;
        setColor(s.color);
        if (isWidthStyled(tool))
            setLineWidth(s.lineWidth);
        m_isLoadingToolStyle = false;
    }
    if (tool == AnnotationTool::Crop) {
        if (!m_cropEdit)
            setCropEdit(m_cropRect.value_or(QRectF(QPointF(0, 0), QSizeF(m_pixelSize))));
    } else if (old == AnnotationTool::Crop) {
        setCropEdit(std::nullopt);
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
        updateStoredStyle(m_tool, color, std::nullopt);
}

void EditorModel::setLineWidth(double width) {
    if (m_lineWidth != width) {
        m_lineWidth = width;
        Q_EMIT lineWidthChanged();
    }
    if (!m_isLoadingToolStyle && isWidthStyled(m_tool))
        updateStoredStyle(m_tool, std::nullopt, width);
}

ToolStyle EditorModel::style(AnnotationTool tool) const {
    return m_toolStyles.value(tool, ToolStyle{m_color, m_lineWidth});
}

void EditorModel::updateStoredStyle(AnnotationTool tool, std::optional<QColor> color,
                                    std::optional<double> width) {
    if (!isColorStyled(tool))
        return;
    const ToolStyle stored = style(tool);
    const ToolStyle updated{color.value_or(stored.color), width.value_or(stored.lineWidth)};
    m_toolStyles.insert(tool, updated);
    m_settings.setValue(toolKey(tool, "colorHex"), hexRGB(updated.color));
    if (isWidthStyled(tool))
        m_settings.setValue(toolKey(tool, "lineWidth"), updated.lineWidth);
}

void EditorModel::setDefaultColor(const QColor& color, AnnotationTool tool) {
    updateStoredStyle(tool, color, std::nullopt);
    if (tool == m_tool) {
        m_isLoadingToolStyle = true;
        setColor(color);
        m_isLoadingToolStyle = false;
    }
}

void EditorModel::setDefaultLineWidth(double width, AnnotationTool tool) {
    updateStoredStyle(tool, std::nullopt, width);
    if (tool == m_tool) {
        m_isLoadingToolStyle = true;
        setLineWidth(width);
        m_isLoadingToolStyle = false;
    }
}

const Annotation* EditorModel::selectedAnnotation() const {
    const auto index = indexOf(m_selectedID);
    return index ? &m_annotations[*index] : nullptr;
}

AnnotationTool EditorModel::configurationTool() const {
    if (m_tool == AnnotationTool::Select)
        if (const Annotation* selected = selectedAnnotation())
            return selected->tool();
    return m_tool;
}

bool EditorModel::configurationTargetsSelection() const {
    const Annotation* selected = selectedAnnotation();
    return selected && selected->tool() == configurationTool();
}

QColor EditorModel::displayColor() const {
    if (configurationTargetsSelection())
        return selectedAnnotation()->color;
    return style(configurationTool()).color;
}

double EditorModel::displayLineWidth() const {
    if (configurationTargetsSelection() && showsLineWidth(*selectedAnnotation()))
        return selectedAnnotation()->lineWidth;
    return style(configurationTool()).lineWidth;
}

void EditorModel::recolor(const QUuid& id, const QColor& color) {
    // One snapshot per run of recolours of the same mark, so dragging through a colour
    // picker is a single undo step.
    if (m_recolorSnapshotID != id) {
        beginChange();
        m_recolorSnapshotID = id;
    }
    updateAnnotation(id, [&](Annotation& a) { a.color = color; });
}

void EditorModel::applyConfigurationColor(const QColor& color) {
    const AnnotationTool tool = configurationTool();
    if (!isColorStyled(tool))
        return;
    setDefaultColor(color, tool);
    if (configurationTargetsSelection())
        recolor(*m_selectedID, color);
}

void EditorModel::applyLineWidth(double width) {
    const AnnotationTool tool = configurationTool();
    if (!isWidthStyled(tool))
        return;
    width = std::clamp(width, 1.0, 40.0);
    setDefaultLineWidth(width, tool);
    if (configurationTargetsSelection()) {
        beginChange();
        updateAnnotation(*m_selectedID, [&](Annotation& a) { a.lineWidth = width; });
    }
}

// --- Text ---

void EditorModel::setTextFontSize(double size) {
    if (m_textFontSize != size) {
        m_textFontSize = size;
        Q_EMIT textFontSizeChanged();
    }
    m_settings.setValue(keyFontSize, size);
}

void EditorModel::setTextHasBackground(bool on) {
    if (m_textHasBackground != on) {
        m_textHasBackground = on;
        Q_EMIT textHasBackgroundChanged();
    }
    m_settings.setValue(keyTextBackground, on);
}

std::optional<QUuid> EditorModel::textTarget() const {
    const std::optional<QUuid> id = m_editingTextID ? m_editingTextID : m_selectedID;
    const auto index = indexOf(id);
    if (index && m_annotations[*index].is<Annotation::Text>())
        return id;
    return std::nullopt;
}

bool EditorModel::hasTargetedText() const {
    return textTarget().has_value();
}

double EditorModel::displayFontSize() const {
    if (const auto id = textTarget())
        return annotation(*id)->as<Annotation::Text>()->fontSize;
    return m_textFontSize;
}

bool EditorModel::displayTextHasBackground() const {
    if (const auto id = textTarget())
        return annotation(*id)->textBackground;
    return m_textHasBackground;
}

QColor EditorModel::displayTextColor() const {
    if (const auto id = textTarget())
        return annotation(*id)->color;
    return style(AnnotationTool::Text).color;
}

void EditorModel::setFontSize(double size) {
    size = std::clamp(size, 10.0, 300.0);
    if (const auto id = textTarget()) {
        // The default size is left alone: resizing one label must not resize the next.
        beginChange();
        updateAnnotation(*id, [&](Annotation& a) { a.as<Annotation::Text>()->fontSize = size; });
        return;
    }
    setTextFontSize(size);
}

void EditorModel::toggleTextBackground() {
    if (const auto id = textTarget()) {
        beginChange();
        bool now = false;
        updateAnnotation(*id, [&](Annotation& a) {
            a.textBackground = !a.textBackground;
            now = a.textBackground;
        });
        setTextHasBackground(now); // unlike the size, the chip setting follows
        return;
    }
    setTextHasBackground(!m_textHasBackground);
}

void EditorModel::applyTextColor(const QColor& color) {
    setDefaultColor(color, AnnotationTool::Text);
    if (const auto id = textTarget())
        recolor(*id, color);
}

void EditorModel::setEditingTextID(const std::optional<QUuid>& id) {
    if (m_editingTextID == id)
        return;
    m_editingTextID = id;
    Q_EMIT editingTextIDChanged();
}

void EditorModel::commitPendingText() {
    if (const auto index = indexOf(m_editingTextID)) {
        const auto* text = m_annotations[*index].as<Annotation::Text>();
        if (text && text->string.isEmpty()) {
            m_annotations.removeAt(*index);
            Q_EMIT annotationsChanged();
        }
    }
    setEditingTextID(std::nullopt);
}

// --- History ---

void EditorModel::beginChange() {
    if (m_undoStack.size() >= undoLimit)
        m_undoStack.removeFirst();
    m_undoStack.append(m_annotations);
    m_redoStack.clear();
    Q_EMIT historyChanged();
}

void EditorModel::undo() {
    if (m_undoStack.isEmpty())
        return;
    m_redoStack.append(m_annotations);
    setAnnotations(m_undoStack.takeLast());
    setSelectedID(std::nullopt);
    renumberSteps();
    Q_EMIT historyChanged();
}

void EditorModel::redo() {
    if (m_redoStack.isEmpty())
        return;
    m_undoStack.append(m_annotations);
    setAnnotations(m_redoStack.takeLast());
    setSelectedID(std::nullopt);
    renumberSteps();
    Q_EMIT historyChanged();
}

void EditorModel::removeSelected() {
    if (m_selectedIDs.isEmpty())
        return;
    beginChange();
    m_annotations.removeIf([this](const Annotation& a) { return m_selectedIDs.contains(a.id()); });
    Q_EMIT annotationsChanged();
    setSelection({});
    renumberSteps();
}

void EditorModel::translateSelection(QPointF delta) {
    if (m_selectedIDs.isEmpty())
        return;
    for (Annotation& a : m_annotations)
        if (m_selectedIDs.contains(a.id()))
            a.translate(delta);
    Q_EMIT annotationsChanged();
}

qint64 EditorModel::nextStepNumber() const {
    return 1 + std::count_if(m_annotations.cbegin(), m_annotations.cend(),
                             [](const Annotation& a) { return a.is<Annotation::Step>(); });
}

void EditorModel::addStep(QPointF center) {
    const double radius = std::max(0.02 * m_pixelSize.height(), 22.0);
    Annotation step(Annotation::Step{center, nextStepNumber(), radius}, m_color, m_lineWidth);
    beginChange();
    appendAnnotation(step);
}

void EditorModel::renumberSteps() {
    qint64 next = 1;
    bool changed = false;
    for (Annotation& a : m_annotations) {
        if (auto* step = a.as<Annotation::Step>()) {
            if (step->number != next) {
                step->number = next;
                changed = true;
            }
            ++next;
        }
    }
    if (changed)
        Q_EMIT annotationsChanged();
}

// --- Selection ---

void EditorModel::setSelectedID(const std::optional<QUuid>& id) {
    if (m_selectedID != id) {
        m_selectedID = id;
        Q_EMIT selectedIDChanged();
    }
    m_recolorSnapshotID.reset();
    if (!m_isSynchronizingSelection)
        setSelectedIDs(id ? QSet<QUuid>{*id} : QSet<QUuid>{});
}

void EditorModel::setSelectedIDs(const QSet<QUuid>& ids) {
    if (m_selectedIDs == ids)
        return;
    m_selectedIDs = ids;
    Q_EMIT selectedIDsChanged();
}

void EditorModel::setSelection(const QSet<QUuid>& ids) {
    QSet<QUuid> existing;
    for (const Annotation& a : m_annotations)
        if (ids.contains(a.id()))
            existing.insert(a.id());
    m_isSynchronizingSelection = true;
    setSelectedIDs(existing);
    setSelectedID(existing.size() == 1 ? std::optional<QUuid>(*existing.cbegin()) : std::nullopt);
    m_isSynchronizingSelection = false;
    m_recolorSnapshotID.reset();
}

void EditorModel::selectOnly(const std::optional<QUuid>& id) {
    setSelection(id ? QSet<QUuid>{*id} : QSet<QUuid>{});
}

std::optional<QUuid> EditorModel::hitTest(QPointF point) const {
    for (auto it = m_annotations.crbegin(); it != m_annotations.crend(); ++it)
        if (it->bounds().adjusted(-6, -6, 6, 6).contains(point))
            return it->id();
    return std::nullopt;
}

QSet<QUuid> EditorModel::annotationIDs(const QRectF& rect) const {
    QSet<QUuid> ids;
    if (!(rect.width() > 1 && rect.height() > 1))
        return ids;
    for (const Annotation& a : m_annotations) {
        const QRectF b = a.bounds();
        // Touching counts, as with zero-width marks such as a vertical line's box.
        if (b.left() <= rect.right() && rect.left() <= b.right() && b.top() <= rect.bottom() &&
            rect.top() <= b.bottom())
            ids.insert(a.id());
    }
    return ids;
}

// --- Crop ---

void EditorModel::setCropRect(const std::optional<QRectF>& rect) {
    if (m_cropRect == rect)
        return;
    m_cropRect = rect;
    Q_EMIT cropRectChanged();
}

void EditorModel::setCropEdit(const std::optional<QRectF>& rect) {
    if (m_cropEdit == rect)
        return;
    m_cropEdit = rect;
    Q_EMIT cropEditChanged();
}

void EditorModel::commitCrop() {
    if (m_cropEdit) {
        const QRectF whole(QPointF(0, 0), QSizeF(m_pixelSize));
        const QRectF r = m_cropEdit->normalized().intersected(whole);
        // A sliver, or the whole image, means "no crop".
        if (r.width() < 4 || r.height() < 4 || r.toAlignedRect() == whole.toAlignedRect())
            setCropRect(std::nullopt);
        else
            setCropRect(r);
    }
    setCropEdit(std::nullopt);
    setTool(AnnotationTool::Select);
}

void EditorModel::cancelCrop() {
    setCropEdit(std::nullopt);
    setTool(AnnotationTool::Select);
}

// --- Backdrop ---

void EditorModel::setBackground(const std::optional<BackgroundStyle>& style) {
    if (m_background != style) {
        m_background = style;
        Q_EMIT backgroundChanged();
    }
    if (style) {
        m_settings.setValue(keyBackgroundPreset, style->presetID);
        m_settings.setValue(keyBackgroundPadding, style->padding);
        m_settings.setValue(keyBackgroundCornerRadius, style->cornerRadius);
        m_settings.setValue(keyBackgroundShadow, style->shadow);
    }
}

BackgroundStyle EditorModel::savedBackgroundStyle() const {
    BackgroundStyle s;
    s.presetID = m_settings.stringValue(keyBackgroundPreset).value_or(QStringLiteral("indigo"));
    const double padding = m_settings.doubleValue(keyBackgroundPadding);
    s.padding = padding < 16 ? 48 : padding;
    if (m_settings.value(keyBackgroundCornerRadius))
        s.cornerRadius = std::max(0.0, m_settings.doubleValue(keyBackgroundCornerRadius));
    else
        s.cornerRadius = 18;
    s.shadow = true;
    if (const auto v = m_settings.value(keyBackgroundShadow)) {
        // The INI file gives booleans back as text.
        if (v->typeId() == QMetaType::Bool)
            s.shadow = v->toBool();
        else if (v->toString() == QLatin1String("false"))
            s.shadow = false;
    }
    return s;
}

// --- Zoom ---

void EditorModel::setZoomPercent(const std::optional<double>& percent) {
    if (m_zoomPercent == percent)
        return;
    m_zoomPercent = percent;
    Q_EMIT zoomPercentChanged();
}

void EditorModel::setFitPercent(double percent) {
    if (m_fitPercent == percent)
        return;
    m_fitPercent = percent;
    Q_EMIT fitPercentChanged();
}

void EditorModel::zoomIn() {
    const double current = currentZoomPercent();
    const auto& steps = zoomSteps();
    const auto it = std::find_if(steps.cbegin(), steps.cend(),
                                 [current](double s) { return s > current + 0.5; });
    setZoomPercent(it != steps.cend() ? *it : steps.last());
}

void EditorModel::zoomOut() {
    const double current = currentZoomPercent();
    const auto& steps = zoomSteps();
    const auto it = std::find_if(steps.crbegin(), steps.crend(),
                                 [current](double s) { return s < current - 0.5; });
    setZoomPercent(it != steps.crend() ? *it : steps.first());
}

void EditorModel::setHandToolActive(bool on) {
    if (m_handToolActive == on)
        return;
    m_handToolActive = on;
    Q_EMIT handToolActiveChanged();
}

// --- Output ---

void EditorModel::paintMarks(QPainter& painter, const QUuid& skip) const {
    const bool anyPixelate =
        std::any_of(m_annotations.cbegin(), m_annotations.cend(),
                    [](const Annotation& a) { return a.is<Annotation::Pixelate>(); });
    AnnotationRenderer::drawMarks(painter, anyPixelate ? &pixelatedImage() : nullptr, m_annotations,
                                  skip);
}

void EditorModel::paint(QPainter& painter, const QUuid& skip) const {
    painter.drawImage(QPointF(0, 0), cgBase());
    paintMarks(painter, skip);
}

QImage EditorModel::flatten() const {
    const int width = m_pixelSize.width(), height = m_pixelSize.height();
    if (width < 1 || height < 1)
        return m_baseImage;
    const QImage& base = cgBase();
    if (base.isNull())
        return m_baseImage;
    const QRect whole(0, 0, width, height);
    QRect area = whole;
    if (m_cropRect) {
        const QRect r = m_cropRect->intersected(QRectF(whole)).toAlignedRect();
        if (!r.isEmpty() && r != whole)
            area = r;
    }
    const auto paintOver = [this](QPainter& painter) {
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        paintMarks(painter, {});
    };
    if (m_background)
        return AnnotationRenderer::applyBackground(base, area, *m_background, paintOver);

    QImage out = base.copy(area);
    if (out.isNull())
        return m_baseImage;
    QPainter painter(&out);
    if (!painter.isActive())
        return m_baseImage;
    painter.translate(-area.topLeft());
    paintOver(painter);
    painter.end();
    return out;
}

QImage EditorModel::applyBackground(const QImage& image, const BackgroundStyle& style) {
    return AnnotationRenderer::applyBackground(image, style);
}

} // namespace qm
