#include "platform/capture/x11/X11Display.h"

#include <cstring>
#include <xcb/composite.h>
#include <xcb/randr.h>
#include <xcb/shm.h>

namespace qm::platform::x11 {

std::unique_ptr<X11Display> X11Display::open(const QByteArray& displayName) {
    auto d = std::make_unique<X11Display>();
    d->connection.reset(
        xcb_connect(displayName.isEmpty() ? nullptr : displayName.constData(), &d->screenNumber));
    d->c = d->connection.get();
    if (!d->c || xcb_connection_has_error(d->c))
        return nullptr;
    const xcb_setup_t* setup = xcb_get_setup(d->c);
    auto it = xcb_setup_roots_iterator(setup);
    for (int i = 0; i < d->screenNumber && it.rem; ++i)
        xcb_screen_next(&it);
    if (!it.rem)
        return nullptr;
    d->screen = it.data;

    const char* names[AtomCount] = {"_NET_CLIENT_LIST_STACKING",
                                    "_NET_CLIENT_LIST",
                                    "_NET_ACTIVE_WINDOW",
                                    "_NET_WM_PID",
                                    "_NET_WM_WINDOW_TYPE",
                                    "_NET_WM_WINDOW_TYPE_NORMAL",
                                    "_NET_WM_WINDOW_TYPE_DIALOG",
                                    "_NET_WM_WINDOW_TYPE_DOCK",
                                    "_NET_WM_WINDOW_TYPE_DESKTOP",
                                    "_NET_WM_STATE",
                                    "_NET_WM_STATE_HIDDEN",
                                    "_NET_WM_WINDOW_OPACITY",
                                    "_GTK_FRAME_EXTENTS",
                                    "_NET_WM_NAME",
                                    "UTF8_STRING",
                                    nullptr};
    const QByteArray compositor = "_NET_WM_CM_S" + QByteArray::number(d->screenNumber);
    names[CompositorSelection] = compositor.constData();
    xcb_intern_atom_cookie_t cookies[AtomCount];
    for (int i = 0; i < AtomCount; ++i)
        cookies[i] = xcb_intern_atom(d->c, 0, uint16_t(std::strlen(names[i])), names[i]);

    xcb_prefetch_extension_data(d->c, &xcb_shm_id);
    xcb_prefetch_extension_data(d->c, &xcb_composite_id);
    xcb_prefetch_extension_data(d->c, &xcb_randr_id);
    for (int i = 0; i < AtomCount; ++i)
        if (auto reply = wait(d->c, xcb_intern_atom_reply, cookies[i]))
            d->atoms[i] = reply->atom;

    if (const auto* ext = xcb_get_extension_data(d->c, &xcb_shm_id); ext && ext->present)
        d->hasShm = bool(wait(d->c, xcb_shm_query_version_reply, xcb_shm_query_version(d->c)));
    if (const auto* ext = xcb_get_extension_data(d->c, &xcb_composite_id); ext && ext->present) {
        auto version =
            wait(d->c, xcb_composite_query_version_reply, xcb_composite_query_version(d->c, 0, 2));
        d->hasComposite = version && (version->major_version > 0 || version->minor_version >= 2);
    }
    if (const auto* ext = xcb_get_extension_data(d->c, &xcb_randr_id); ext && ext->present) {
        auto version =
            wait(d->c, xcb_randr_query_version_reply, xcb_randr_query_version(d->c, 1, 5));
        d->hasMonitors = version && (version->major_version > 1 || version->minor_version >= 5);
    }

    // Only the common true-colour layout is read; anything else would come out garbled.
    bool standardVisual = false;
    for (auto depth = xcb_screen_allowed_depths_iterator(d->screen); depth.rem;
         xcb_depth_next(&depth))
        for (auto visual = xcb_depth_visuals_iterator(depth.data); visual.rem;
             xcb_visualtype_next(&visual))
            if (visual.data->visual_id == d->screen->root_visual)
                standardVisual = visual.data->red_mask == 0xff0000 &&
                                 visual.data->green_mask == 0xff00 &&
                                 visual.data->blue_mask == 0xff;
    if (!standardVisual || setup->image_byte_order != XCB_IMAGE_ORDER_LSB_FIRST)
        return nullptr;
    return d;
}

QRect X11Display::rootRect() const {
    return QRect(0, 0, screen->width_in_pixels, screen->height_in_pixels);
}

void X11Display::drainEvents() {
    while (XReply<xcb_generic_event_t> event{xcb_poll_for_event(c)}) {
    }
}

xcb_get_property_cookie_t X11Display::property(xcb_window_t window, xcb_atom_t atom,
                                               xcb_atom_t type, uint32_t longs) const {
    return xcb_get_property(c, 0, window, atom, type, 0, longs);
}

bool X11Display::compositorRunning() {
    auto owner = wait(c, xcb_get_selection_owner_reply,
                      xcb_get_selection_owner(c, atoms[CompositorSelection]));
    return owner && owner->owner != XCB_WINDOW_NONE;
}

} // namespace qm::platform::x11
