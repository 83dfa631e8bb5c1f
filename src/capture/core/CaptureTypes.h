#pragma once

#include "platform/capture/api/CaptureFailure.h"

#include <QColor>
#include <QImage>
#include <QPointer>
#include <QRectF>
#include <QScreen>
#include <QString>
#include <cstdint>
#include <optional>
#include <variant>
#include <vector>

namespace qm {

// Geometry is in Qt's global logical coordinates (top-left origin, y down); pixels are
// logical points × the screen's device pixel ratio.

// One visible window offered for picking.
struct CapturedWindow {
    QRectF frame;                          // frame including decorations, global points
    std::optional<QString> appName;        // from WM_CLASS
    std::optional<std::uint32_t> windowId; // the server's window, when it can be captured live
    std::optional<QString> title;          // the window's own title, when it has one
    friend bool operator==(const CapturedWindow&, const CapturedWindow&) = default;
};

// One frozen screen.
struct DisplayCapture {
    QImage image; // full-resolution pixels, devicePixelRatio = scale
    QPointer<QScreen> screen;
    QRectF geometry;    // the screen's rectangle in global points when it was frozen
    QPoint pixelOrigin; // its top-left corner in desktop pixels
    double scale = 1.0; // pixels per point
    std::vector<CapturedWindow> windows; // front-most first

    // Size in points.
    QSizeF pointSize() const { return geometry.size(); }
    // The colour of one pixel of the frozen image, nothing outside it.
    std::optional<QColor> color(int x, int y) const {
        if (x < 0 || y < 0 || x >= image.width() || y >= image.height())
            return std::nullopt;
        return image.pixelColor(x, y);
    }
};

// Every screen frozen at once, so a selection may run from one monitor onto another.
struct FrozenDesktop {
    std::vector<DisplayCapture> displays;
    std::vector<CapturedWindow> windows; // front-most first, across all screens

    // The screen containing a global point, else the one nearest to it; -1 without screens.
    int displayAt(QPointF global) const;
    // The screen Qt knows by `screen`, -1 when it was not frozen.
    int displayOf(const QScreen* screen) const;
};

// What the selection overlay answers: an area in global points, or a window. Absent means
// the user cancelled.
using SelectionResult = std::variant<QRectF, CapturedWindow>;

} // namespace qm
