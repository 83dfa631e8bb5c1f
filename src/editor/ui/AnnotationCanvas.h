#pragma once

#include "editor/model/Annotation.h"
#include "editor/ui/CanvasGesture.h"

#include <QWidget>
#include <optional>

class QPlainTextEdit;

namespace qm {

class CanvasPainter;
class CanvasTextEditor;
class EditorModel;
class RegionTextCopier;

// Shows the capture with its marks at the current zoom and turns pointer drags into edits of
// the document: drawing with the active tool, selecting, moving, resizing, dragging end
// points, placing text and step badges, editing the crop frame and picking a region to copy
// text from. One gesture runs at a time (canvas::Gesture); drawing, typing and reading text
// are done by the helpers it owns. The widget is the whole scrollable document: the image (on
// its backdrop, when there is one) at `scale`, with `margin` around it and `bottomExtra` below.
class AnnotationCanvas : public QWidget {
    Q_OBJECT

public:
    explicit AnnotationCanvas(EditorModel& model, QWidget* parent = nullptr);
    ~AnnotationCanvas() override;

    EditorModel& model() const { return m_model; }

    // Screen points per image pixel.
    double scale() const { return m_transform.scale; }
    void setScale(double scale);
    void setMargins(double margin, double bottomExtra);
    double margin() const { return m_transform.margin; }
    // The widget size that holds the image at `scale` with the margins.
    QSize documentSize(double scale) const;
    QPointF toImage(QPointF widgetPoint) const { return m_transform.toImage(widgetPoint); }
    QPointF toWidget(QPointF imagePoint) const { return m_transform.toWidget(imagePoint); }
    QRectF toWidget(const QRectF& imageRect) const { return m_transform.toWidget(imageRect); }

    // The drag running now (Idle when none).
    const canvas::Gesture& gesture() const { return m_gesture; }

    // Reads the text inside `rect` of the unannotated capture and puts it on the clipboard,
    // flashing "Copied" or "No text in selection".
    void copyTextInRegion(const QRectF& rect);
    // Shows `text` in the capsule for 1.4 seconds.
    void flashOCRMessage(const QString& text);
    // The capsule's text now, if any.
    std::optional<QString> capsuleText() const;

    // The inline editor of the text being typed, if any.
    QPlainTextEdit* textEditor() const;
    // Opens the text mark `id` for typing and focuses its field.
    void beginTextEditing(const QUuid& id);
    // Ends typing (an empty text is removed) and keeps the text selected.
    void endTextEditing();

Q_SIGNALS:
    // What the canvas shows changed size: a backdrop came or went, or the crop changed.
    void extentChanged();
    // A copy-text-from-region run finished; `found` is false when nothing was read.
    void textCopied(bool found);
    // capsuleText() changed.
    void capsuleChanged();

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;

private:
    void beginGesture(QPointF at, Qt::KeyboardModifiers modifiers);
    canvas::Gesture selectGestureAt(QPointF at);
    canvas::Gesture cropGestureAt(QPointF at) const;
    void changeGesture(QPointF at, Qt::KeyboardModifiers modifiers);
    void endGesture(QPointF at);
    void updateDraft(canvas::DrawShape& drawing, QPointF at, Qt::KeyboardModifiers modifiers);
    void commitDraft(const Annotation& draft);
    void updateCursor(QPointF widgetPoint);
    void scheduleRepaint(const QRectF& imageRect);
    void updateExtent();

    EditorModel& m_model;
    canvas::CanvasTransform m_transform;
    double m_bottomExtra = 0;
    canvas::Gesture m_gesture;
    CanvasPainter* m_painter = nullptr;       // child
    CanvasTextEditor* m_textEditor = nullptr; // child
    RegionTextCopier* m_copier = nullptr;     // child
};

} // namespace qm
