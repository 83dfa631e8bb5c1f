#include "platform/video/x11/X11VideoDisplay.h"

#include <xcb/randr.h>
#include <xcb/shm.h>
#include <xcb/xfixes.h>

namespace qm::platform::x11 {

namespace {

// Only the common true-colour layout with 32 bits a pixel is read; anything else would come
// out garbled.
bool standardPixels(const xcb_setup_t* setup, const xcb_screen_t* screen) {
    if (setup->image_byte_order != XCB_IMAGE_ORDER_LSB_FIRST)
        return false;
    if (screen->root_depth != 24 && screen->root_depth != 32)
        return false;
    bool wide = false;
    for (auto it = xcb_setup_pixmap_formats_iterator(setup); it.rem; xcb_format_next(&it))
        if (it.data->depth == screen->root_depth)
            wide = it.data->bits_per_pixel == 32;
    bool masks = false;
    for (auto depth = xcb_screen_allowed_depths_iterator(screen); depth.rem; xcb_depth_next(&depth))
        for (auto visual = xcb_depth_visuals_iterator(depth.data); visual.rem;
             xcb_visualtype_next(&visual))
            if (visual.data->visual_id == screen->root_visual)
                masks = visual.data->red_mask == 0xff0000 && visual.data->green_mask == 0xff00 &&
                        visual.data->blue_mask == 0xff;
    return wide && masks;
}

} // namespace

Result<std::unique_ptr<X11VideoDisplay>> X11VideoDisplay::open(const QByteArray& displayName) {
    auto d = std::make_unique<X11VideoDisplay>();
    int screenNumber = 0;
    d->connection.reset(
        xcb_connect(displayName.isEmpty() ? nullptr : displayName.constData(), &screenNumber));
    d->c = d->connection.get();
    if (!d->c || xcb_connection_has_error(d->c))
        return failure(QStringLiteral("The X display cannot be reached."));
    const xcb_setup_t* setup = xcb_get_setup(d->c);
    auto it = xcb_setup_roots_iterator(setup);
    for (int i = 0; i < screenNumber && it.rem; ++i)
        xcb_screen_next(&it);
    if (!it.rem)
        return failure(QStringLiteral("The X display has no such screen."));
    d->screen = it.data;
    if (!standardPixels(setup, d->screen))
        return failure(QStringLiteral("The display's pixel format cannot be recorded."));

    xcb_prefetch_extension_data(d->c, &xcb_shm_id);
    xcb_prefetch_extension_data(d->c, &xcb_xfixes_id);
    xcb_prefetch_extension_data(d->c, &xcb_randr_id);
    if (const auto* ext = xcb_get_extension_data(d->c, &xcb_shm_id); ext && ext->present)
        d->hasShm = bool(wait(d->c, xcb_shm_query_version_reply, xcb_shm_query_version(d->c)));
    if (const auto* ext = xcb_get_extension_data(d->c, &xcb_xfixes_id); ext && ext->present) {
        // XFixes answers nothing until the client has said which version it speaks.
        auto version =
            wait(d->c, xcb_xfixes_query_version_reply, xcb_xfixes_query_version(d->c, 4, 0));
        d->hasXFixes = version && version->major_version >= 2;
        d->xfixesEvents = ext->first_event;
    }
    if (const auto* ext = xcb_get_extension_data(d->c, &xcb_randr_id); ext && ext->present) {
        auto version =
            wait(d->c, xcb_randr_query_version_reply, xcb_randr_query_version(d->c, 1, 5));
        d->hasMonitors = version && (version->major_version > 1 || version->minor_version >= 5);
        d->randrEvents = ext->first_event;
    }
    if (d->lost())
        return failure(QStringLiteral("The connection to the X display was lost."));
    return d;
}

QRect X11VideoDisplay::rootRect() const {
    auto geometry = wait(c, xcb_get_geometry_reply, xcb_get_geometry(c, screen->root));
    if (!geometry)
        return QRect(0, 0, screen->width_in_pixels, screen->height_in_pixels);
    return QRect(0, 0, geometry->width, geometry->height);
}

std::vector<QRect> X11VideoDisplay::monitors() const {
    std::vector<QRect> result;
    if (hasMonitors) {
        auto reply =
            wait(c, xcb_randr_get_monitors_reply, xcb_randr_get_monitors(c, screen->root, 1));
        if (reply)
            for (auto it = xcb_randr_get_monitors_monitors_iterator(reply.get()); it.rem;
                 xcb_randr_monitor_info_next(&it))
                result.emplace_back(it.data->x, it.data->y, it.data->width, it.data->height);
    }
    if (result.empty())
        result.push_back(rootRect());
    return result;
}

void X11VideoDisplay::watchChanges(bool pointerShape) {
    // Monitors declared or dropped by hand (xrandr --setmonitor/--delmonitor) send no RandR
    // event, only a ConfigureNotify of the root; outputs unplugged send RandR's own.
    const uint32_t mask = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_change_window_attributes(c, screen->root, XCB_CW_EVENT_MASK, &mask);
    if (hasMonitors)
        xcb_randr_select_input(c, screen->root,
                               XCB_RANDR_NOTIFY_MASK_SCREEN_CHANGE |
                                   XCB_RANDR_NOTIFY_MASK_CRTC_CHANGE |
                                   XCB_RANDR_NOTIFY_MASK_OUTPUT_CHANGE);
    if (hasXFixes && pointerShape)
        xcb_xfixes_select_cursor_input(c, screen->root,
                                       XCB_XFIXES_CURSOR_NOTIFY_MASK_DISPLAY_CURSOR);
    xcb_flush(c);
}

} // namespace qm::platform::x11
