#include "capture/core/CaptureGeometry.h"

#include <algorithm>
#include <cmath>
#include <unordered_set>

namespace qm {

namespace {
constexpr double kMinimumWindowPoints = 40.0;
constexpr double kInvisibleAlpha = 0.05;
// Points × a fractional scale come out a hair off whole pixels; this keeps such a value from
// growing the crop by a pixel.
constexpr double kPixelTolerance = 1e-6;
} // namespace

QRectF PixelMapping::toLogical(const QRect& pixels) const {
    return QRectF(logicalOrigin.x() + (pixels.x() - pixelOrigin.x()) / scale,
                  logicalOrigin.y() + (pixels.y() - pixelOrigin.y()) / scale,
                  pixels.width() / scale, pixels.height() / scale);
}

std::optional<platform::ShareableDisplay> displayFor(const QString& displayId,
                                                     const platform::ShareableContent& content) {
    const auto& displays = content.displays;
    const auto match = std::find_if(displays.begin(), displays.end(),
                                    [&](const auto& d) { return d.name == displayId; });
    if (match != displays.end())
        return *match;
    if (!displays.empty())
        return displays.front();
    return std::nullopt;
}

std::vector<CapturedWindow> onScreenWindows(const std::vector<platform::ServerWindow>& windows,
                                            std::int64_t excludedPid,
                                            const platform::ShareableContent& content,
                                            const PixelMapping& mapping) {
    const std::unordered_set<std::uint32_t> capturable(content.windows.begin(),
                                                       content.windows.end());
    std::vector<CapturedWindow> result;
    for (const platform::ServerWindow& window : windows) {
        if (window.layer != 0)
            continue;
        if (window.alpha && *window.alpha <= kInvisibleAlpha)
            continue;
        if (window.pid == excludedPid)
            continue;
        if (!window.bounds || !window.bounds->isValid())
            continue;
        const QRectF frame = mapping.toLogical(*window.bounds);
        if (frame.width() <= kMinimumWindowPoints || frame.height() <= kMinimumWindowPoints)
            continue;
        CapturedWindow captured;
        captured.frame = frame;
        captured.appName = window.ownerName;
        captured.title = window.title;
        if (capturable.count(window.id))
            captured.windowId = window.id;
        result.push_back(std::move(captured));
    }
    return result;
}

std::optional<QRect> cropPixels(const QRectF& imageGeometry, double scale, const QSize& imageSize,
                                const QRectF& rect) {
    if (!(rect.width() > 0) || !(rect.height() > 0) || !(scale > 0))
        return std::nullopt;
    const double left = (rect.left() - imageGeometry.left()) * scale;
    const double top = (rect.top() - imageGeometry.top()) * scale;
    const double right = left + rect.width() * scale;
    const double bottom = top + rect.height() * scale;
    if (!std::isfinite(left) || !std::isfinite(top) || !std::isfinite(right) ||
        !std::isfinite(bottom))
        return std::nullopt;
    // Rounded outwards so the selection is never shaved, then clipped to the picture.
    const double x0 = std::max(std::floor(left + kPixelTolerance), 0.0);
    const double y0 = std::max(std::floor(top + kPixelTolerance), 0.0);
    const double x1 = std::min(std::ceil(right - kPixelTolerance), double(imageSize.width()));
    const double y1 = std::min(std::ceil(bottom - kPixelTolerance), double(imageSize.height()));
    if (x1 - x0 < 1 || y1 - y0 < 1)
        return std::nullopt;
    return QRect(int(x0), int(y0), int(x1 - x0), int(y1 - y0));
}

} // namespace qm
