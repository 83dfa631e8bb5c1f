#include "editor/model/AnnotationDocument.h"

#include "editor/model/Pixelation.h"

#include <algorithm>
#include <utility>

namespace qm {

AnnotationDocument::AnnotationDocument(const QImage& image, QObject* parent)
    : QObject(parent)
    , m_baseImage(image)
    , m_pixelSize(image.size()) {}

AnnotationDocument::~AnnotationDocument() = default;

// --- Image ---

const QImage& AnnotationDocument::cgBase() const {
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

double AnnotationDocument::pixelationBlockSize() const {
    return std::max(std::max(m_pixelSize.width(), m_pixelSize.height()) / 55.0, 8.0);
}

const QImage& AnnotationDocument::pixelatedImage() const {
    if (!m_pixelatedImage) {
        const QImage& base = cgBase();
        m_pixelatedImage = base.isNull() ? m_baseImage : pixelated(base, pixelationBlockSize());
    }
    return *m_pixelatedImage;
}

// --- Annotations ---

void AnnotationDocument::setTextLayout(TextLayout layout) {
    m_textLayout = std::move(layout);
    if (fitTexts())
        Q_EMIT annotationsChanged();
}

bool AnnotationDocument::fitTexts() {
    if (!m_textLayout)
        return false;
    bool changed = false;
    for (qsizetype i = 0; i < m_annotations.size(); ++i) {
        const auto* text = std::as_const(m_annotations)[i].as<Annotation::Text>();
        if (!text)
            continue;
        const QRectF fitted = m_textLayout(*text);
        if (fitted != text->frame) {
            m_annotations[i].as<Annotation::Text>()->frame = fitted;
            changed = true;
        }
    }
    return changed;
}

void AnnotationDocument::annotationsEdited() {
    fitTexts();
    Q_EMIT annotationsChanged();
}

void AnnotationDocument::setAnnotations(const QList<Annotation>& annotations) {
    m_annotations = annotations;
    annotationsEdited();
}

void AnnotationDocument::appendAnnotation(const Annotation& annotation) {
    m_annotations.append(annotation);
    annotationsEdited();
}

bool AnnotationDocument::updateAnnotation(const QUuid& id,
                                          const std::function<void(Annotation&)>& edit) {
    const auto index = indexOf(id);
    if (!index)
        return false;
    edit(m_annotations[*index]);
    annotationsEdited();
    return true;
}

const Annotation* AnnotationDocument::annotation(const QUuid& id) const {
    const auto index = indexOf(id);
    return index ? &m_annotations[*index] : nullptr;
}

std::optional<int> AnnotationDocument::indexOf(const std::optional<QUuid>& id) const {
    if (!id)
        return std::nullopt;
    for (qsizetype i = 0; i < m_annotations.size(); ++i)
        if (m_annotations[i].id() == *id)
            return int(i);
    return std::nullopt;
}

qint64 AnnotationDocument::nextStepNumber() const {
    return 1 + std::count_if(m_annotations.cbegin(), m_annotations.cend(),
                             [](const Annotation& a) { return a.is<Annotation::Step>(); });
}

// --- History ---

void AnnotationDocument::beginChange() {
    if (m_undoStack.size() >= undoLimit)
        m_undoStack.removeFirst();
    m_undoStack.append(m_annotations);
    m_redoStack.clear();
    Q_EMIT historyChanged();
}

void AnnotationDocument::restore(QList<Annotation> annotations) {
    setAnnotations(annotations);
    setSelectedID(std::nullopt);
    renumberSteps();
    Q_EMIT historyChanged();
}

void AnnotationDocument::undo() {
    if (m_undoStack.isEmpty())
        return;
    m_redoStack.append(m_annotations);
    restore(m_undoStack.takeLast());
}

void AnnotationDocument::redo() {
    if (m_redoStack.isEmpty())
        return;
    m_undoStack.append(m_annotations);
    restore(m_redoStack.takeLast());
}

void AnnotationDocument::removeSelected() {
    if (m_selection.isEmpty())
        return;
    beginChange();
    m_annotations.removeIf([this](const Annotation& a) { return m_selection.contains(a.id()); });
    Q_EMIT annotationsChanged();
    setSelection({});
    renumberSteps();
}

void AnnotationDocument::translateSelection(QPointF delta) {
    if (m_selection.isEmpty())
        return;
    for (Annotation& a : m_annotations)
        if (m_selection.contains(a.id()))
            a.translate(delta);
    Q_EMIT annotationsChanged();
}

void AnnotationDocument::recolor(const QUuid& id, const QColor& color) {
    // One snapshot per run of recolours of the same mark, so dragging through a colour
    // picker is a single undo step.
    if (m_recolorSnapshotID != id) {
        beginChange();
        m_recolorSnapshotID = id;
    }
    updateAnnotation(id, [&](Annotation& a) { a.color = color; });
}

void AnnotationDocument::renumberSteps() {
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

std::optional<QUuid> AnnotationDocument::selectedID() const {
    return m_selection.size() == 1 ? std::optional<QUuid>(*m_selection.cbegin()) : std::nullopt;
}

const Annotation* AnnotationDocument::selectedAnnotation() const {
    const auto id = selectedID();
    return id ? annotation(*id) : nullptr;
}

void AnnotationDocument::replaceSelection(QSet<QUuid> ids) {
    // Any selection change ends a run of recolours, even to the same selection.
    m_recolorSnapshotID.reset();
    if (m_selection == ids)
        return;
    const std::optional<QUuid> oldSingle = selectedID();
    m_selection = std::move(ids);
    Q_EMIT selectedIDsChanged();
    if (selectedID() != oldSingle)
        Q_EMIT selectedIDChanged();
}

void AnnotationDocument::setSelectedID(const std::optional<QUuid>& id) {
    replaceSelection(id ? QSet<QUuid>{*id} : QSet<QUuid>{});
}

void AnnotationDocument::setSelection(const QSet<QUuid>& ids) {
    QSet<QUuid> existing;
    for (const Annotation& a : m_annotations)
        if (ids.contains(a.id()))
            existing.insert(a.id());
    replaceSelection(std::move(existing));
}

void AnnotationDocument::selectOnly(const std::optional<QUuid>& id) {
    setSelection(id ? QSet<QUuid>{*id} : QSet<QUuid>{});
}

std::optional<QUuid> AnnotationDocument::hitTest(QPointF point) const {
    for (auto it = m_annotations.crbegin(); it != m_annotations.crend(); ++it)
        if (it->bounds().adjusted(-6, -6, 6, 6).contains(point))
            return it->id();
    return std::nullopt;
}

QSet<QUuid> AnnotationDocument::annotationIDs(const QRectF& rect) const {
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

// --- Text ---

void AnnotationDocument::setEditingTextID(const std::optional<QUuid>& id) {
    if (m_editingTextID == id)
        return;
    m_editingTextID = id;
    Q_EMIT editingTextIDChanged();
}

void AnnotationDocument::commitPendingText() {
    if (const auto index = indexOf(m_editingTextID)) {
        const auto* text = m_annotations[*index].as<Annotation::Text>();
        if (text && text->string.isEmpty()) {
            m_annotations.removeAt(*index);
            Q_EMIT annotationsChanged();
        }
    }
    setEditingTextID(std::nullopt);
}

// --- Crop ---

void AnnotationDocument::setCropRect(const std::optional<QRectF>& rect) {
    if (m_cropRect == rect)
        return;
    m_cropRect = rect;
    Q_EMIT cropRectChanged();
}

void AnnotationDocument::setCropEdit(const std::optional<QRectF>& rect) {
    if (m_cropEdit == rect)
        return;
    m_cropEdit = rect;
    Q_EMIT cropEditChanged();
}

void AnnotationDocument::commitCropEdit() {
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
}

} // namespace qm
