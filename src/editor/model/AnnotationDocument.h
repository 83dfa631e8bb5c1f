#pragma once

#include "editor/model/Annotation.h"

#include <QImage>
#include <QList>
#include <QObject>
#include <QRectF>
#include <QSet>
#include <QSize>
#include <QUuid>
#include <functional>
#include <optional>

namespace qm {

// One capture and what was done to it: its annotations (later entries on top), the
// selection, the text being typed, the crop, and an undo history of whole-list snapshots.
// Every published field emits its *Changed signal when its value changes. UI thread only.
class AnnotationDocument : public QObject {
    Q_OBJECT

public:
    // Snapshots the undo history keeps at most.
    static constexpr int undoLimit = 100;

    explicit AnnotationDocument(const QImage& image, QObject* parent = nullptr);
    ~AnnotationDocument() override;

    // --- The image ---
    const QImage& baseImage() const { return m_baseImage; }
    QSize pixelSize() const { return m_pixelSize; }
    // The base image in the painter's fastest format, made once.
    const QImage& cgBase() const;
    // The whole image in averaged blocks, made once; pixelate marks show it clipped to their
    // rects, so all of them share one block grid.
    const QImage& pixelatedImage() const;
    // Side of one pixelation block: max(max(width, height) / 55, 8).
    double pixelationBlockSize() const;

    // --- Annotations (published) ---
    // Where a text's string falls, in image pixels: given by whoever can measure type. From
    // then on every text's frame is kept equal to it, so selecting, hit testing and handles
    // cover the whole text. Without one, frames stay as they are set.
    using TextLayout = std::function<QRectF(const Annotation::Text&)>;
    void setTextLayout(TextLayout layout);
    const QList<Annotation>& annotations() const { return m_annotations; }
    // Direct edits; none takes an undo snapshot (call beginChange() first).
    void setAnnotations(const QList<Annotation>& annotations);
    void appendAnnotation(const Annotation& annotation);
    // Runs `edit` on the annotation with that id; false when there is none.
    bool updateAnnotation(const QUuid& id, const std::function<void(Annotation&)>& edit);
    const Annotation* annotation(const QUuid& id) const;
    std::optional<int> indexOf(const std::optional<QUuid>& id) const;
    qint64 nextStepNumber() const;

    // --- Editing and history ---
    // Takes an undo snapshot of the annotations and clears redo.
    void beginChange();
    // Both drop the selection: the marks it named may be gone or elsewhere.
    void undo();
    void redo();
    bool canUndo() const { return !m_undoStack.isEmpty(); }
    bool canRedo() const { return !m_redoStack.isEmpty(); }
    int undoCount() const { return int(m_undoStack.size()); }
    void removeSelected();
    // Moves the selection without a snapshot (the caller takes one when a move starts).
    void translateSelection(QPointF delta);
    // Recolours one mark; a run of recolours of the same mark, with no selection change in
    // between, costs a single undo step.
    void recolor(const QUuid& id, const QColor& color);

    // --- Selection ---
    // The selected mark when exactly one is selected.
    std::optional<QUuid> selectedID() const;
    const Annotation* selectedAnnotation() const;
    void setSelectedID(const std::optional<QUuid>& id);
    const QSet<QUuid>& selectedIDs() const { return m_selection; }
    void setSelection(const QSet<QUuid>& ids); // ids that no longer exist are dropped
    void selectOnly(const std::optional<QUuid>& id);
    // The top-most annotation whose bounds, grown by 6, contain `point`.
    std::optional<QUuid> hitTest(QPointF point) const;
    // Annotations whose bounds meet `rect`; empty for a rect of 1 pixel or less either way.
    QSet<QUuid> annotationIDs(const QRectF& rect) const;

    // --- Text being typed ---
    std::optional<QUuid> editingTextID() const { return m_editingTextID; }
    void setEditingTextID(const std::optional<QUuid>& id);
    // Ends text editing; a text left empty is removed.
    void commitPendingText();

    // --- Crop ---
    std::optional<QRectF> cropRect() const { return m_cropRect; }
    std::optional<QRectF> cropEdit() const { return m_cropEdit; }
    void setCropEdit(const std::optional<QRectF>& rect);
    // Keeps the edited crop (a crop under 4 pixels or of the whole image removes it) and ends
    // the edit.
    void commitCropEdit();

Q_SIGNALS:
    void annotationsChanged();
    void selectedIDChanged();
    void selectedIDsChanged();
    void editingTextIDChanged();
    void cropRectChanged();
    void cropEditChanged();
    void historyChanged(); // undo or redo availability may have changed

private:
    void replaceSelection(QSet<QUuid> ids);
    // Fits every text's frame to its layout; true when one changed.
    bool fitTexts();
    void annotationsEdited();
    void restore(QList<Annotation> annotations);
    void renumberSteps();
    void setCropRect(const std::optional<QRectF>& rect);

    QImage m_baseImage;
    QSize m_pixelSize;
    QList<Annotation> m_annotations;
    TextLayout m_textLayout;
    QSet<QUuid> m_selection;
    std::optional<QUuid> m_recolorSnapshotID;
    std::optional<QUuid> m_editingTextID;
    std::optional<QRectF> m_cropRect;
    std::optional<QRectF> m_cropEdit;
    QList<QList<Annotation>> m_undoStack;
    QList<QList<Annotation>> m_redoStack;
    mutable std::optional<QImage> m_cgBase;
    mutable std::optional<QImage> m_pixelatedImage;
};

} // namespace qm
