#pragma once

#include "editor/model/Annotation.h"

#include <QList>
#include <QPointF>
#include <QRectF>
#include <optional>
#include <utility>

// The geometry of the canvas's handles and gestures, in image pixels.
namespace qm::canvas {

// Image pixels to canvas widget points and back: the image drawn at `scale` (screen points per
// image pixel), its point `origin` `margin` points in from the widget's top-left corner. The
// origin is the image's corner, or the corner of the backdrop around it.
struct CanvasTransform {
    double scale = 1;
    double margin = 0;
    QPointF origin;

    QPointF toImage(QPointF widgetPoint) const {
        return (widgetPoint - QPointF(margin, margin)) / scale + origin;
    }
    QPointF toWidget(QPointF imagePoint) const {
        return (imagePoint - origin) * scale + QPointF(margin, margin);
    }
    QRectF toWidget(const QRectF& imageRect) const {
        return QRectF(toWidget(imageRect.topLeft()), imageRect.size() * scale);
    }
};

// The eight resize handles, clockwise from the top-left corner.
enum class ResizeHandle { TopLeft, Top, TopRight, Right, BottomRight, Bottom, BottomLeft, Left };
enum class EndpointHandle { Start, End };

// Handles are caught within this many screen points at any zoom.
inline constexpr double handleTolerancePoints = 9;
// A resized side never gets smaller than this (pixels).
inline constexpr double minimumResizeSide = 20;
// Dragged end points stay this far from the fixed one (pixels).
inline constexpr double minimumEndDistance = 12;
// A draft smaller than this in both directions is a click, not a shape (pixels).
inline constexpr double minimumDraftSize = 6;

QList<std::pair<ResizeHandle, QPointF>> handlePositions(const QRectF& rect);
// The first handle within nine screen points of `point` at `scale` (screen points per pixel).
std::optional<ResizeHandle> hitTestHandle(QPointF point, const QRectF& rect, double scale);
// `rect` with the handle's edges moved to `to`, normalised, each side at least 20 pixels; so
// dragging past the opposite edge flips the rect.
QRectF resizedRect(const QRectF& rect, ResizeHandle handle, QPointF to);
// The end points a user may drag: arrows, lines and straight two-point strokes.
std::optional<std::pair<QPointF, QPointF>> editableEnds(const Annotation& annotation);
void setEnds(Annotation& annotation, QPointF start, QPointF end);
// The rect of rect-like marks (rectangle, ellipse, pixelate, text frame).
std::optional<QRectF> editableRect(const Annotation& annotation);
// A text given a rect wraps at its width from then on.
void setRect(Annotation& annotation, const QRectF& rect);
// Keeps `p` at least 12 pixels from `anchor`, in the direction it came from.
QPointF separated(QPointF anchor, QPointF p, QPointF previous);
// `p` moved onto the nearest 45° direction from `origin`, keeping its distance.
QPointF snapped45(QPointF origin, QPointF p);

} // namespace qm::canvas
