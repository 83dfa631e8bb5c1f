#include "platform/capture/x11/X11WindowPixels.h"

#include "platform/capture/x11/X11WindowList.h"

#include <xcb/composite.h>

namespace qm::platform::x11 {

CaptureResult<WindowImage> readWindow(X11Display& d, X11ImageReader& reader, std::uint32_t id) {
    xcb_connection_t* c = d.c;
    if (d.lost())
        return CaptureFailure{CaptureError::CaptureFailed,
                              QStringLiteral("The connection to the X display was lost.")};
    auto attributesCookie = xcb_get_window_attributes(c, id);
    auto geometryCookie = xcb_get_geometry(c, id);
    auto positionCookie = xcb_translate_coordinates(c, id, d.screen->root, 0, 0);
    auto attributes = wait(c, xcb_get_window_attributes_reply, attributesCookie);
    auto geometry = wait(c, xcb_get_geometry_reply, geometryCookie);
    auto position = wait(c, xcb_translate_coordinates_reply, positionCookie);
    if (!attributes || !geometry || !position || attributes->map_state != XCB_MAP_STATE_VIEWABLE)
        return CaptureFailure{CaptureError::NoWindow, {}};
    const int border = geometry->border_width;
    const QRect outer(position->dst_x - border, position->dst_y - border,
                      geometry->width + 2 * border, geometry->height + 2 * border);
    const QRect frame = withoutShadow(outer, shadowExtents(d, id));

    if (d.hasComposite && d.compositorRunning()) {
        // A compositing manager redirects every window, so its pixmap holds the whole
        // window even where others cover it.
        const xcb_pixmap_t pixmap = xcb_generate_id(c);
        if (check(c, xcb_composite_name_window_pixmap_checked(c, id, pixmap))) {
            const ServerPixmap owned(c, pixmap);
            auto image =
                reader.read(owned.id(), frame.translated(-outer.topLeft()), geometry->depth);
            if (image.ok())
                return WindowImage{std::move(image).value(), frame};
        }
    }
    // Without a compositor the window's pixels exist only on screen.
    const QRect visible = frame & d.rootRect();
    auto image = reader.readDesktop(visible);
    if (image.ok())
        return WindowImage{std::move(image).value(), visible};
    return image.error();
}

} // namespace qm::platform::x11
