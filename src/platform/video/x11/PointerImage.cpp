#include "platform/video/x11/PointerImage.h"

#include <algorithm>

namespace qm::platform {

namespace {

// source + destination × (255 − alpha) / 255 for one channel, rounded; the source is
// premultiplied, so the sum stays within a byte for well-formed pointers (clamped anyway).
inline std::uint32_t over(std::uint32_t source, std::uint32_t destination, std::uint32_t alpha) {
    std::uint32_t t = destination * (255 - alpha) + 128;
    t = (t + (t >> 8)) >> 8;
    return std::min<std::uint32_t>(255, source + t);
}

} // namespace

void drawPointer(std::uint8_t* frame, int width, int height, int bytesPerLine,
                 const PointerImage& pointer, QPoint position) {
    const int left = position.x() - pointer.hotSpot.x();
    const int top = position.y() - pointer.hotSpot.y();
    const int x0 = std::max(0, -left);
    const int y0 = std::max(0, -top);
    const int x1 = std::min(pointer.width, width - left);
    const int y1 = std::min(pointer.height, height - top);
    if (x0 >= x1 || y0 >= y1 ||
        pointer.argb.size() < std::size_t(pointer.width) * std::size_t(pointer.height))
        return;
    for (int y = y0; y < y1; ++y) {
        const std::uint32_t* source = pointer.argb.data() + std::size_t(y) * pointer.width;
        auto* row = reinterpret_cast<std::uint32_t*>(frame + std::size_t(top + y) * bytesPerLine);
        for (int x = x0; x < x1; ++x) {
            const std::uint32_t s = source[x];
            const std::uint32_t alpha = s >> 24;
            if (alpha == 0)
                continue;
            std::uint32_t& d = row[left + x];
            if (alpha == 255) {
                d = (d & 0xff000000u) | (s & 0x00ffffffu);
                continue;
            }
            const std::uint32_t r = over((s >> 16) & 0xff, (d >> 16) & 0xff, alpha);
            const std::uint32_t g = over((s >> 8) & 0xff, (d >> 8) & 0xff, alpha);
            const std::uint32_t b = over(s & 0xff, d & 0xff, alpha);
            d = (d & 0xff000000u) | (r << 16) | (g << 8) | b;
        }
    }
}

} // namespace qm::platform
