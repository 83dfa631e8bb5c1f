#include "platform/capture/x11/X11ImageReader.h"

#include "platform/xcb/ShmSegment.h"

#include <xcb/shm.h>

namespace qm::platform::x11 {

namespace {

CaptureFailure failed(const char* reason) {
    return CaptureFailure{CaptureError::CaptureFailed, QString::fromUtf8(reason)};
}

// One row of pixels, made opaque on the way; the distinct buffers let it vectorise.
void copyRow(const uint32_t* __restrict src, uint32_t* __restrict dst, int count, uint32_t alpha) {
    for (int x = 0; x < count; ++x)
        dst[x] = src[x] | alpha;
}

} // namespace

X11ImageReader::X11ImageReader(X11Display& display)
    : m_display(display) {
    // Most often the next shot is of the whole screen.
    if (!m_display.lost())
        m_reserve.prepare(m_display.rootRect().width(), m_display.rootRect().height(),
                          formatOf(m_display.screen->root_depth));
}

QImage::Format X11ImageReader::formatOf(uint8_t depth) const {
    // Depth 24 leaves the fourth byte undefined; Qt's RGB32 wants it opaque.
    return depth == 32 ? QImage::Format_ARGB32_Premultiplied : QImage::Format_RGB32;
}

X11ImageReader::~X11ImageReader() = default;

int X11ImageReader::bitsPerPixel(uint8_t depth) const {
    const xcb_setup_t* setup = xcb_get_setup(m_display.c);
    for (auto it = xcb_setup_pixmap_formats_iterator(setup); it.rem; xcb_format_next(&it))
        if (it.data->depth == depth)
            return it.data->bits_per_pixel;
    return 0;
}

const uint8_t* X11ImageReader::shmBuffer(std::size_t size) {
    if (!m_segment || m_segment->size() < size) {
        m_segment.reset();
        m_segment = ShmSegment::create(m_display.c, size);
        // A server that cannot share memory with us (another host, a container) will not
        // learn to; the plain request serves from now on.
        m_display.hasShm = m_segment != nullptr;
    }
    return m_segment ? m_segment->data() : nullptr;
}

CaptureResult<QImage> X11ImageReader::read(xcb_drawable_t drawable, QRect rect, uint8_t depth,
                                           bool reserved) {
    xcb_connection_t* c = m_display.c;
    if (depth != 24 && depth != 32)
        return failed("The display's colour depth cannot be captured.");
    if (bitsPerPixel(depth) != 32)
        return failed("The display's pixel format cannot be captured.");
    const auto w = uint16_t(rect.width());
    const auto h = uint16_t(rect.height());
    const std::size_t bytes = std::size_t(w) * h * 4;
    const uint8_t* pixels = nullptr;
    XReply<xcb_get_image_reply_t> plain;
    if (m_display.hasShm && shmBuffer(bytes)) {
        auto reply = wait(c, xcb_shm_get_image_reply,
                          xcb_shm_get_image(c, drawable, int16_t(rect.x()), int16_t(rect.y()), w, h,
                                            ~0u, XCB_IMAGE_FORMAT_Z_PIXMAP, m_segment->id(), 0));
        if (reply)
            pixels = m_segment->data();
    }
    if (!pixels) {
        plain = wait(c, xcb_get_image_reply,
                     xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, drawable, int16_t(rect.x()),
                                   int16_t(rect.y()), w, h, ~0u));
        if (!plain || std::size_t(xcb_get_image_data_length(plain.get())) < bytes)
            return failed("The display server did not hand out the screen's pixels.");
        pixels = xcb_get_image_data(plain.get());
    }
    m_display.drainEvents();
    QImage image =
        reserved ? m_reserve.take(w, h, formatOf(depth)) : makeLargeImage(w, h, formatOf(depth));
    if (image.isNull())
        return failed("There is not enough memory for the screenshot.");
    const uint32_t alpha = depth == 32 ? 0u : 0xff000000u;
    for (int y = 0; y < h; ++y)
        copyRow(reinterpret_cast<const uint32_t*>(pixels + std::size_t(y) * w * 4),
                reinterpret_cast<uint32_t*>(image.scanLine(y)), w, alpha);
    return image;
}

CaptureResult<QImage> X11ImageReader::readDesktop(const QRect& pixelRect) {
    return readRoot(pixelRect, false);
}

CaptureResult<QImage> X11ImageReader::readDisplay(const QRect& pixelRect) {
    return readRoot(pixelRect, true);
}

CaptureResult<QImage> X11ImageReader::readRoot(const QRect& pixelRect, bool reserved) {
    if (m_display.lost())
        return failed("The connection to the X display was lost.");
    const QRect rect = pixelRect & m_display.rootRect();
    if (rect.isEmpty())
        return CaptureFailure{CaptureError::NoDisplay, {}};
    return read(m_display.screen->root, rect, m_display.screen->root_depth, reserved);
}

} // namespace qm::platform::x11
