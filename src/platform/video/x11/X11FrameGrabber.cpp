#include "platform/video/x11/X11FrameGrabber.h"

#include "platform/xcb/ShmSegment.h"

#include <cstring>
#include <optional>
#include <xcb/shm.h>
#include <xcb/xfixes.h>

namespace qm::platform::x11 {

X11FrameGrabber::X11FrameGrabber(X11VideoDisplay& display, QRect area, bool showPointer)
    : m_display(display)
    , m_area(area)
    , m_showPointer(showPointer && display.hasXFixes) {
    const std::size_t bytes = std::size_t(area.width()) * std::size_t(area.height()) * 4;
    if (m_display.hasShm)
        m_segment = ShmSegment::create(m_display.c, bytes);
    if (!m_segment)
        m_plain.resize(bytes);
}

X11FrameGrabber::~X11FrameGrabber() = default;

Result<VideoFrame> X11FrameGrabber::grab() {
    xcb_connection_t* c = m_display.c;
    const xcb_window_t root = m_display.screen->root;
    const auto x = int16_t(m_area.x());
    const auto y = int16_t(m_area.y());
    const auto w = uint16_t(m_area.width());
    const auto h = uint16_t(m_area.height());

    // Every question goes out before the first answer is awaited: one round trip a frame.
    xcb_shm_get_image_cookie_t shared{};
    xcb_get_image_cookie_t plain{};
    if (m_segment)
        shared = xcb_shm_get_image(c, root, x, y, w, h, ~0u, XCB_IMAGE_FORMAT_Z_PIXMAP,
                                   m_segment->id(), 0);
    else
        plain = xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, root, x, y, w, h, ~0u);
    std::optional<xcb_query_pointer_cookie_t> where;
    std::optional<xcb_xfixes_get_cursor_image_cookie_t> shape;
    if (m_showPointer) {
        where = xcb_query_pointer(c, root);
        if (m_pointerStale)
            shape = xcb_xfixes_get_cursor_image(c);
    }

    std::uint8_t* pixels = nullptr;
    if (m_segment) {
        if (wait(c, xcb_shm_get_image_reply, shared))
            pixels = m_segment->data();
    } else if (auto reply = wait(c, xcb_get_image_reply, plain)) {
        if (std::size_t(xcb_get_image_data_length(reply.get())) >= m_plain.size()) {
            std::memcpy(m_plain.data(), xcb_get_image_data(reply.get()), m_plain.size());
            pixels = m_plain.data();
        }
    }
    const MediaTime pts = mediaClockNow();

    std::optional<QPoint> pointerAt;
    if (where)
        if (auto reply = wait(c, xcb_query_pointer_reply, *where); reply && reply->same_screen)
            pointerAt = QPoint(reply->root_x, reply->root_y) - m_area.topLeft();
    if (shape) {
        if (auto reply = wait(c, xcb_xfixes_get_cursor_image_reply, *shape)) {
            const std::uint32_t* argb = xcb_xfixes_get_cursor_image_cursor_image(reply.get());
            m_pointer.width = reply->width;
            m_pointer.height = reply->height;
            m_pointer.hotSpot = QPoint(reply->xhot, reply->yhot);
            m_pointer.argb.assign(argb, argb + std::size_t(reply->width) * reply->height);
            m_pointerStale = false;
            ++m_pointerFetches;
        }
    }

    if (!pixels)
        return failure(m_display.lost()
                           ? QStringLiteral("The connection to the X display was lost.")
                           : QStringLiteral("The display server did not hand out the screen's "
                                            "pixels."));
    const int bytesPerLine = m_area.width() * 4;
    if (pointerAt)
        drawPointer(pixels, m_area.width(), m_area.height(), bytesPerLine, m_pointer, *pointerAt);
    return VideoFrame{pixels, m_area.width(), m_area.height(), bytesPerLine, pts};
}

} // namespace qm::platform::x11
