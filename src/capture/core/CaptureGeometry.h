#pragma once

#include "capture/core/CaptureTypes.h"
#include "platform/capture/api/ScreenCaptureBackend.h"

#include <QPointF>
#include <QRectF>
#include <cstdint>
#include <optional>
#include <vector>

// The arithmetic of capture, apart from any display server: which display belongs to a
// screen, how desktop pixels map to Qt's logical points, which windows are offered, and which
// pixels a crop takes.

namespace qm {

// How one screen's pixels map to logical points. Qt may place a screen's logical origin
// anywhere (on X11 it keeps the device-pixel position), so both origins are kept.
struct PixelMapping {
    QPointF logicalOrigin; // the screen's top-left in global logical points
    QPoint pixelOrigin;    // the same corner in desktop pixels
    double scale = 1.0;    // pixels per point

    QRectF toLogical(const QRect& pixels) const;
};

// The display whose name is displayId; else the first display; nothing without displays.
std::optional<platform::ShareableDisplay> displayFor(const QString& displayId,
                                                     const platform::ShareableContent& content);

// The windows offered for picking, front-most first: ordinary-level, visible (alpha above
// 0.05), not ours, larger than 40 × 40 points. Capturable ones carry their window id.
std::vector<CapturedWindow> onScreenWindows(const std::vector<platform::ServerWindow>& windows,
                                            std::int64_t excludedPid,
                                            const platform::ShareableContent& content,
                                            const PixelMapping& mapping);

// The pixel rectangle of `image` a crop of `rect` (global points) takes: rounded outwards to
// whole pixels and clipped; nothing when less than one pixel remains.
std::optional<QRect> cropPixels(const QRectF& imageGeometry, double scale, const QSize& imageSize,
                                const QRectF& rect);

} // namespace qm
