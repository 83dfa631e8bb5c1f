#include "editor/ui/CanvasGeometry.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace qm::canvas {

QList<std::pair<ResizeHandle, QPointF>> handlePositions(const QRectF& r) {
    const double midX = r.center().x(), midY = r.center().y();
    return {{ResizeHandle::TopLeft, {r.left(), r.top()}},
            {ResizeHandle::Top, {midX, r.top()}},
            {ResizeHandle::TopRight, {r.right(), r.top()}},
            {ResizeHandle::Right, {r.right(), midY}},
            {ResizeHandle::BottomRight, {r.right(), r.bottom()}},
            {ResizeHandle::Bottom, {midX, r.bottom()}},
            {ResizeHandle::BottomLeft, {r.left(), r.bottom()}},
            {ResizeHandle::Left, {r.left(), midY}}};
}

std::optional<ResizeHandle> hitTestHandle(QPointF point, const QRectF& rect, double scale) {
    const double tolerance = handleTolerancePoints / std::max(scale, 0.01);
    for (const auto& [handle, at] : handlePositions(rect))
        if (std::hypot(point.x() - at.x(), point.y() - at.y()) <= tolerance)
            return handle;
    return std::nullopt;
}

QRectF resizedRect(const QRectF& rect, ResizeHandle handle, QPointF to) {
    double minX = rect.left(), minY = rect.top(), maxX = rect.right(), maxY = rect.bottom();
    switch (handle) {
    case ResizeHandle::TopLeft:
        minX = to.x();
        minY = to.y();
        break;
    case ResizeHandle::Top:
        minY = to.y();
        break;
    case ResizeHandle::TopRight:
        maxX = to.x();
        minY = to.y();
        break;
    case ResizeHandle::Right:
        maxX = to.x();
        break;
    case ResizeHandle::BottomRight:
        maxX = to.x();
        maxY = to.y();
        break;
    case ResizeHandle::Bottom:
        maxY = to.y();
        break;
    case ResizeHandle::BottomLeft:
        minX = to.x();
        maxY = to.y();
        break;
    case ResizeHandle::Left:
        minX = to.x();
        break;
    }
    return QRectF(std::min(minX, maxX), std::min(minY, maxY),
                  std::max(std::abs(maxX - minX), minimumResizeSide),
                  std::max(std::abs(maxY - minY), minimumResizeSide));
}

std::optional<std::pair<QPointF, QPointF>> editableEnds(const Annotation& a) {
    if (const auto* arrow = a.as<Annotation::Arrow>())
        return std::pair{arrow->start, arrow->end};
    if (const auto* line = a.as<Annotation::Line>())
        return std::pair{line->start, line->end};
    if (const auto* pen = a.as<Annotation::Pen>(); pen && pen->points.size() == 2)
        return std::pair{pen->points[0], pen->points[1]};
    if (const auto* hl = a.as<Annotation::Highlight>(); hl && hl->points.size() == 2)
        return std::pair{hl->points[0], hl->points[1]};
    return std::nullopt;
}

void setEnds(Annotation& a, QPointF start, QPointF end) {
    if (auto* arrow = a.as<Annotation::Arrow>()) {
        arrow->start = start;
        arrow->end = end;
    } else if (auto* line = a.as<Annotation::Line>()) {
        line->start = start;
        line->end = end;
    } else if (auto* pen = a.as<Annotation::Pen>(); pen && pen->points.size() == 2) {
        pen->points = {start, end};
    } else if (auto* hl = a.as<Annotation::Highlight>(); hl && hl->points.size() == 2) {
        hl->points = {start, end};
    }
}

std::optional<QRectF> editableRect(const Annotation& a) {
    if (const auto* r = a.as<Annotation::Rectangle>())
        return r->rect;
    if (const auto* e = a.as<Annotation::Ellipse>())
        return e->rect;
    if (const auto* p = a.as<Annotation::Pixelate>())
        return p->rect;
    if (const auto* t = a.as<Annotation::Text>())
        return t->frame;
    return std::nullopt;
}

void setRect(Annotation& a, const QRectF& rect) {
    if (auto* r = a.as<Annotation::Rectangle>())
        r->rect = rect;
    else if (auto* e = a.as<Annotation::Ellipse>())
        e->rect = rect;
    else if (auto* p = a.as<Annotation::Pixelate>())
        p->rect = rect;
    else if (auto* t = a.as<Annotation::Text>()) {
        // A width the user drags is the width the text wraps at from now on.
        t->frame = rect;
        t->wrapsAtWidth = true;
    }
}

QPointF separated(QPointF anchor, QPointF p, QPointF previous) {
    const auto length = [](QPointF v) { return std::hypot(v.x(), v.y()); };
    if (length(p - anchor) >= minimumEndDistance)
        return p;
    QPointF direction = p - anchor;
    if (length(direction) < 0.001)
        direction = previous - anchor;
    const double l = length(direction);
    if (l > 0.001)
        return anchor + direction / l * minimumEndDistance;
    return anchor + QPointF(minimumEndDistance, 0);
}

QPointF snapped45(QPointF origin, QPointF p) {
    const QPointF d = p - origin;
    const double length = std::hypot(d.x(), d.y());
    if (length <= 0.5)
        return p;
    const double step = std::numbers::pi / 4;
    const double angle = std::round(std::atan2(d.y(), d.x()) / step) * step;
    return origin + QPointF(std::cos(angle), std::sin(angle)) * length;
}

} // namespace qm::canvas
