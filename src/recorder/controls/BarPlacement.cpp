#include "recorder/controls/BarPlacement.h"

#include <algorithm>

namespace qm {

namespace {
long long overlap(const QRect& a, const QRect& b) {
    const QRect common = a.intersected(b);
    return common.isEmpty() ? 0 : static_cast<long long>(common.width()) * common.height();
}

// The bar at height `top`, centred on the area and moved sideways to stay on the frame.
QRect centredAt(const QRect& area, const QRect& frame, QSize bar, int top) {
    int left = area.x() + (area.width() - bar.width()) / 2;
    left = std::clamp(left, frame.left(), std::max(frame.left(), frame.right() + 1 - bar.width()));
    return {QPoint(left, top), bar};
}
} // namespace

std::optional<QRect> BarPlacement::place(const QRect& area, const std::vector<QRect>& screens,
                                         QSize bar) {
    if (area.isEmpty() || bar.isEmpty())
        return std::nullopt;
    // What must stay clear: the area and the outline around it.
    const QRect keepOut = area.adjusted(-outline, -outline, outline, outline);
    auto clear = [&](const QRect& frame, const QRect& candidate) {
        return frame.contains(candidate) && !candidate.intersects(keepOut);
    };

    const auto home =
        std::max_element(screens.begin(), screens.end(), [&](const QRect& a, const QRect& b) {
            return overlap(a, area) < overlap(b, area);
        });
    if (home != screens.end() && overlap(*home, area) > 0) {
        const QRect below = centredAt(area, *home, bar, area.bottom() + 1 + gap);
        if (clear(*home, below))
            return below;
        const QRect above = centredAt(area, *home, bar, area.top() - gap - bar.height());
        if (clear(*home, above))
            return above;
    }
    for (const QRect& frame : screens) {
        const QRect bottom =
            centredAt(frame, frame, bar, frame.bottom() + 1 - bottomMargin - bar.height());
        if (clear(frame, bottom))
            return bottom;
    }
    return std::nullopt;
}

} // namespace qm
