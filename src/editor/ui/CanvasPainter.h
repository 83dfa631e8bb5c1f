#pragma once

#include "editor/model/Annotation.h"
#include "editor/ui/CanvasGesture.h"

#include <QImage>
#include <QObject>
#include <QPixmap>
#include <QRect>
#include <QTimer>
#include <QUuid>
#include <optional>

class QPainter;
class QWidget;

namespace qm {

class EditorModel;

namespace canvas {
// The backdrop the canvas shows: the export's, except while the crop frame is edited, when
// the whole capture shows without it.
std::optional<BackgroundStyle> shownBackdrop(const EditorModel& model);
// What the canvas shows, in image pixels: the capture, or the exported part on its backdrop.
QRectF shownExtent(const EditorModel& model);
} // namespace canvas

// Draws the canvas: the backdrop as the export draws it, the capture (from a smoothly reduced
// copy once a zoom-out settles), every mark through the export's renderer, and the overlays: crop
// frame or veil, selection and handles, the running gesture's draft, marquee or region, and size
// badges.
class CanvasPainter : public QObject {
    Q_OBJECT

public:
    // `canvas` is the widget painted on; `transform` is the canvas's, read at every paint.
    CanvasPainter(const EditorModel& model, QWidget& canvas,
                  const canvas::CanvasTransform& transform);

    // The zoom changed: the reduced copy is made again once the zoom settles.
    void scaleChanged();
    void paint(QPainter& painter, const QRect& dirty, const canvas::Gesture& gesture,
               const std::optional<QUuid>& editingText);

private:
    void makeScaledBase();
    // The backdrop around `area` exactly as the export paints it, with black where the
    // capture goes; made again only when the style or the area changes.
    const QImage& backdropLayer(const BackgroundStyle& style, const QRect& area);
    void paintOverlays(QPainter& painter, const canvas::Gesture& gesture,
                       const std::optional<QUuid>& editingText);
    void drawSelection(QPainter& painter, const std::optional<QUuid>& editingText);
    void drawHandles(QPainter& painter, const QRectF& imageRect);
    void drawEndHandles(QPainter& painter, QPointF a, QPointF b);
    void drawSizeBadge(QPainter& painter, const QRectF& imageRect);
    void drawCropFrame(QPainter& painter, const QRectF& imageRect, bool editing);

    const EditorModel& m_model;
    QWidget& m_canvas;
    const canvas::CanvasTransform& m_transform;
    QPixmap m_scaledBase;
    double m_scaledBaseScale = 0;
    QTimer m_scaledBaseTimer;
    QImage m_backdrop;
    std::optional<std::pair<BackgroundStyle, QRect>> m_backdropKey;
};

} // namespace qm
