#pragma once

#include "base/LargeImage.h"
#include "platform/capture/api/CaptureFailure.h"
#include "platform/capture/x11/X11Display.h"

#include <QImage>
#include <QRect>
#include <memory>

namespace qm::platform::x11 {

class ShmSegment;

// Reads rectangles of server drawables into images: through one shared-memory segment, kept
// while it is large enough, when the server offers it; else through the plain request. Whole
// displays are read into an image kept ready for them (ImageReserve).
class X11ImageReader {
public:
    explicit X11ImageReader(X11Display& display);
    ~X11ImageReader(); // detaches the segment; the connection must still be open
    X11ImageReader(const X11ImageReader&) = delete;
    X11ImageReader& operator=(const X11ImageReader&) = delete;

    CaptureResult<QImage> read(xcb_drawable_t drawable, QRect rect, uint8_t depth,
                               bool reserved = false);
    // A rectangle of the desktop (the root window), clipped to it; NoDisplay when nothing of
    // it is on the desktop.
    CaptureResult<QImage> readDesktop(const QRect& pixelRect);
    // The same for a whole display, the shot taken again and again at the same size.
    CaptureResult<QImage> readDisplay(const QRect& pixelRect);

private:
    const uint8_t* shmBuffer(std::size_t size);
    int bitsPerPixel(uint8_t depth) const;

    CaptureResult<QImage> readRoot(const QRect& pixelRect, bool reserved);
    QImage::Format formatOf(uint8_t depth) const;

    X11Display& m_display;
    std::unique_ptr<ShmSegment> m_segment;
    ImageReserve m_reserve;
};

} // namespace qm::platform::x11
