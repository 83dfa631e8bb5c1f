#pragma once

#include <QRect>
#include <QSize>
#include <optional>
#include <vector>

namespace qm {

// Where the recording's control bar goes. The screen is recorded as it is shown, so the bar
// must stay out of the recorded area: centred below it when there is room on its screen, else
// above it, else at the bottom centre of another monitor. Nothing when none of these is free,
// as when a whole single screen is recorded; the elapsed time is then shown elsewhere.
//
// `area` and `screens` (each monitor's visible frame, the preferred one first) are in global
// logical coordinates; the answer is the bar's geometry in the same.
struct BarPlacement {
    static constexpr int gap = 12;          // between the area and the bar
    static constexpr int bottomMargin = 24; // above a monitor's bottom edge
    static constexpr int outline = 2;       // the area's outline, drawn just outside it

    static std::optional<QRect> place(const QRect& area, const std::vector<QRect>& screens,
                                      QSize bar);
};

} // namespace qm
