#pragma once

#include "editor/model/Annotation.h"
#include "editor/ui/CanvasGeometry.h"

#include <QPixmap>
#include <QPointer>
#include <QTimer>
#include <QWidget>
#include <optional>
#include <variant>

class QPlainTextEdit;

namespace qm {

class EditorModel;
class InlineTextEdit;

// Shows the capture with its marks at the current zoom and turns pointer drags into edits of
// the document: drawing with the active tool, selecting, moving, resizing, dragging end
// points, typing text, placing step badges, editing the crop frame and copying text from a
// dragged region. Marks are drawn by the same renderer as the export. The widget is the whole
// scrollable document: the image at `scale`, with `margin` around it and `bottomExtra` below.
class AnnotationCanvas : public QWidget {
    Q_OBJECT

public:
    struct Resize {
        canvas::ResizeHandle handle;
    };
    struct Move {};
    struct Draw {};
    using CropGesture = std::variant<Resize, Move, Draw>;

    explicit AnnotationCanvas(EditorModel& model, QWidget* parent = nullptr);
    ~AnnotationCanvas() override;

    EditorModel& model() const { return m_model; }

    // Screen points per image pixel.
    double scale() const { return m_scale; }
    void setScale(double scale);
    void setMargins(double margin, double bottomExtra);
    double margin() const { return m_margin; }
    // The widget size that holds the image at `scale` with the margins.
    QSize documentSize(double scale) const;
    QPointF toImage(QPointF widgetPoint) const;
    QPointF toWidget(QPointF imagePoint) const;
    QRectF toWidget(const QRectF& imageRect) const;

    // Reads the text inside `rect` of the unannotated capture (marks never hide text) and puts
    // it on the clipboard, flashing "Copied" or "No text in selection".
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
    void changeGesture(QPointF at, Qt::KeyboardModifiers modifiers);
    void endGesture(QPointF at);
    void resetGesture();
    void commitDraft();
    void updateDraft(QPointF at, Qt::KeyboardModifiers modifiers);
    void textClick(QPointF at);
    void updateCursor(QPointF widgetPoint);
    void syncTextEditor();
    void scheduleRepaint(const QRectF& imageRect);
    void makeScaledBase();

    void paintOverlays(QPainter& painter);
    void drawSelection(QPainter& painter);
    void drawHandles(QPainter& painter, const QRectF& imageRect);
    void drawEndHandles(QPainter& painter, QPointF a, QPointF b);
    void drawSizeBadge(QPainter& painter, const QRectF& imageRect);
    void drawCropFrame(QPainter& painter, const QRectF& imageRect);

    EditorModel& m_model;
    double m_scale = 1;
    double m_margin = 0;
    double m_bottomExtra = 0;

    // Gesture state; one of these is set while a drag runs.
    bool m_pressed = false;
    QPointF m_start;
    QPointF m_last;
    std::optional<Annotation> m_draft;
    std::optional<QPointF> m_moveLast;
    bool m_didBeginMove = false;
    std::optional<canvas::ResizeHandle> m_resizeHandle;
    std::optional<QRectF> m_resizeStart;
    std::optional<canvas::EndpointHandle> m_endpointHandle;
    QPointF m_endpointPrevious;
    std::optional<QRectF> m_selectionMarquee;
    std::optional<CropGesture> m_cropGesture;
    std::optional<QRectF> m_cropStart;
    std::optional<QRectF> m_ocrDraft;
    std::optional<QUuid> m_gestureTarget;

    std::optional<QString> m_ocrMessage;
    QTimer m_ocrMessageTimer;
    bool m_ocrRunning = false;

    InlineTextEdit* m_textEdit = nullptr;
    std::optional<QUuid> m_textEditID;
    bool m_syncingText = false;

    QPixmap m_scaledBase;
    double m_scaledBaseScale = 0;
    QTimer m_scaledBaseTimer;
};

} // namespace qm
