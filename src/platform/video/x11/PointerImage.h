#pragma once

#include <QPoint>
#include <cstdint>
#include <vector>

namespace qm::platform {

// The pointer's picture as the X server hands it out: premultiplied ARGB pixels, and the
// hot spot, the pixel that sits exactly at the pointer's position.
struct PointerImage {
    int width = 0;
    int height = 0;
    QPoint hotSpot;
    std::vector<std::uint32_t> argb; // width × height, rows top to bottom
};

// Draws the pointer onto a 32-bit BGRX frame with its hot spot at `position` (frame
// coordinates), clipped to the frame. Only the colour bytes change.
void drawPointer(std::uint8_t* frame, int width, int height, int bytesPerLine,
                 const PointerImage& pointer, QPoint position);

} // namespace qm::platform
