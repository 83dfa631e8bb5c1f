#pragma once

#include "capture/core/CaptureTypes.h"

#include <QImage>
#include <QPoint>
#include <QRect>
#include <QRectF>
#include <QSize>
#include <optional>
#include <vector>

// Cutting a selection out of every frozen screen at once. Monitors share one grid of desktop
// pixels, so the result is laid out in it: each part comes from the screen that showed it,
// at that screen's own resolution, and whatever no monitor covers stays transparent.

namespace qm {

struct DesktopCropPlan {
    struct Piece {
        int display = 0; // index into FrozenDesktop::displays
        QRect source;    // pixels of that screen's image
        QPoint target;   // where they land in the result
    };
    QSize size;         // the result in pixels
    double scale = 1.0; // its pixels per point: the scale of the screen holding most of it
    std::vector<Piece> pieces;

    // Whether the pieces fill the whole result, leaving nothing transparent.
    bool complete() const;
};

// Which pixels a rectangle in global points takes from each screen; nothing when it touches
// no screen's pixels.
std::optional<DesktopCropPlan> planDesktopCrop(const FrozenDesktop& desktop, const QRectF& rect);

// The pixels themselves: opaque where the plan is complete, else with transparent gaps.
std::optional<QImage> cropDesktop(const FrozenDesktop& desktop, const QRectF& rect);

// The global point a desktop pixel shows, through the screen that holds it; nothing off every
// screen.
std::optional<QPointF> globalPointOfPixel(const FrozenDesktop& desktop, QPointF desktopPixel);

// Screens frozen one by one, joined: each window keeps the position the screen holding its
// centre gave it, since on mixed scales only that screen maps its pixels right.
FrozenDesktop joinFrozenScreens(std::vector<DisplayCapture> screens, int pointerScreen);

} // namespace qm
