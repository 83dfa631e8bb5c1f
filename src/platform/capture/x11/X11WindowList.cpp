#include "platform/capture/x11/X11WindowList.h"

#include <QList>
#include <algorithm>

namespace qm::platform::x11 {

namespace {

// WM_CLASS holds "instance\0Class\0"; the class names the application.
std::optional<QString> applicationName(const xcb_get_property_reply_t* reply) {
    if (!reply || reply->format != 8)
        return std::nullopt;
    const auto* text = static_cast<const char*>(xcb_get_property_value(reply));
    const int length = xcb_get_property_value_length(reply);
    const QList<QByteArray> parts = QByteArray(text, length).split('\0');
    if (parts.size() > 1 && !parts.at(1).isEmpty())
        return QString::fromLocal8Bit(parts.at(1));
    if (!parts.isEmpty() && !parts.at(0).isEmpty())
        return QString::fromLocal8Bit(parts.at(0));
    return std::nullopt;
}

// The title the window asks for: _NET_WM_NAME in UTF-8, else the older WM_NAME.
std::optional<QString> windowTitle(const xcb_get_property_reply_t* netName,
                                   const xcb_get_property_reply_t* name) {
    for (const xcb_get_property_reply_t* reply : {netName, name}) {
        if (!reply || reply->format != 8)
            continue;
        const QByteArray text(static_cast<const char*>(xcb_get_property_value(reply)),
                              xcb_get_property_value_length(reply));
        const QString title = reply == netName ? QString::fromUtf8(text).trimmed()
                                               : QString::fromLocal8Bit(text).trimmed();
        if (!title.isEmpty())
            return title;
    }
    return std::nullopt;
}

// The top-level ancestor (child of the root) of each window: the window manager's frame.
std::vector<xcb_window_t> frames(X11Display& d, const std::vector<xcb_window_t>& windows) {
    xcb_connection_t* c = d.c;
    std::vector<xcb_window_t> current = windows;
    std::vector<bool> done(windows.size(), false);
    for (int level = 0; level < 8; ++level) {
        std::vector<xcb_query_tree_cookie_t> cookies(current.size());
        bool any = false;
        for (std::size_t i = 0; i < current.size(); ++i)
            if (!done[i]) {
                cookies[i] = xcb_query_tree(c, current[i]);
                any = true;
            }
        if (!any)
            break;
        for (std::size_t i = 0; i < current.size(); ++i) {
            if (done[i])
                continue;
            auto tree = wait(c, xcb_query_tree_reply, cookies[i]);
            if (!tree || tree->parent == d.screen->root || tree->parent == XCB_WINDOW_NONE)
                done[i] = true;
            else
                current[i] = tree->parent;
        }
    }
    return current;
}

// Normal and dialog windows are the ordinary level; a window without a type is normal. Docks
// sit above it, the desktop below, everything else floats.
int layerOf(const X11Display& d, const std::vector<xcb_atom_t>& types) {
    int layer = 0;
    for (xcb_atom_t t : types) {
        if (t == d.atoms[TypeNormal] || t == d.atoms[TypeDialog])
            return 0;
        if (t == d.atoms[TypeDesktop])
            return -1;
        if (t == d.atoms[TypeDock])
            return 20;
        layer = 3; // an unknown type may come first; keep looking for a known one
    }
    return layer;
}

} // namespace

QRect withoutShadow(const QRect& frame, const std::vector<uint32_t>& extents) {
    if (extents.size() != 4) // left, right, top, bottom
        return frame;
    const QRect inner =
        frame.adjusted(int(extents[0]), int(extents[2]), -int(extents[1]), -int(extents[3]));
    return inner.isValid() ? inner : frame;
}

std::vector<uint32_t> shadowExtents(X11Display& d, xcb_window_t frame) {
    xcb_connection_t* c = d.c;
    std::vector<xcb_window_t> candidates{frame};
    if (auto tree = wait(c, xcb_query_tree_reply, xcb_query_tree(c, frame))) {
        const xcb_window_t* children = xcb_query_tree_children(tree.get());
        candidates.insert(candidates.end(), children,
                          children + xcb_query_tree_children_length(tree.get()));
    }
    std::vector<xcb_get_property_cookie_t> cookies;
    for (xcb_window_t w : candidates)
        cookies.push_back(d.property(w, d.atoms[GtkFrameExtents], XCB_ATOM_CARDINAL, 4));
    std::vector<uint32_t> found;
    for (auto cookie : cookies) {
        auto values = propertyValues<uint32_t>(wait(c, xcb_get_property_reply, cookie).get());
        if (found.empty() && values.size() == 4)
            found = std::move(values);
    }
    return found;
}

std::vector<ServerWindow> listWindows(X11Display& d) {
    xcb_connection_t* c = d.c;
    const xcb_window_t root = d.screen->root;
    std::vector<xcb_window_t> clients;
    {
        auto stacking = wait(c, xcb_get_property_reply,
                             d.property(root, d.atoms[ClientListStacking], XCB_ATOM_WINDOW, 4096));
        clients = propertyValues<xcb_window_t>(stacking.get());
    }
    if (clients.empty()) {
        // No EWMH window manager: the root's children, in stacking order, are the windows.
        if (auto tree = wait(c, xcb_query_tree_reply, xcb_query_tree(c, root))) {
            const xcb_window_t* children = xcb_query_tree_children(tree.get());
            clients.assign(children, children + xcb_query_tree_children_length(tree.get()));
        }
    }
    std::reverse(clients.begin(), clients.end()); // bottom-to-top becomes front-most first
    const std::vector<xcb_window_t> frameOf = frames(d, clients);

    // Every request first, then every reply: one round trip for the whole list.
    struct Cookies {
        xcb_get_window_attributes_cookie_t attributes;
        xcb_get_geometry_cookie_t geometry;
        xcb_get_property_cookie_t type, state, pid, opacity, frameOpacity, wmClass, shadow, netName,
            name;
    };
    std::vector<Cookies> cookies;
    cookies.reserve(clients.size());
    for (std::size_t i = 0; i < clients.size(); ++i) {
        const xcb_window_t client = clients[i];
        const xcb_window_t frame = frameOf[i];
        cookies.push_back({xcb_get_window_attributes(c, frame), xcb_get_geometry(c, frame),
                           d.property(client, d.atoms[WmWindowType], XCB_ATOM_ATOM, 32),
                           d.property(client, d.atoms[WmState], XCB_ATOM_ATOM, 32),
                           d.property(client, d.atoms[WmPid], XCB_ATOM_CARDINAL, 1),
                           d.property(client, d.atoms[WmWindowOpacity], XCB_ATOM_CARDINAL, 1),
                           d.property(frame, d.atoms[WmWindowOpacity], XCB_ATOM_CARDINAL, 1),
                           d.property(client, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 256),
                           d.property(client, d.atoms[GtkFrameExtents], XCB_ATOM_CARDINAL, 4),
                           d.property(client, d.atoms[WmName], d.atoms[Utf8String], 1024),
                           d.property(client, XCB_ATOM_WM_NAME, XCB_GET_PROPERTY_TYPE_ANY, 1024)});
    }

    std::vector<ServerWindow> windows;
    for (std::size_t i = 0; i < clients.size(); ++i) {
        const Cookies& k = cookies[i];
        auto attributes = wait(c, xcb_get_window_attributes_reply, k.attributes);
        auto geometry = wait(c, xcb_get_geometry_reply, k.geometry);
        auto type = wait(c, xcb_get_property_reply, k.type);
        auto state = wait(c, xcb_get_property_reply, k.state);
        auto pid = wait(c, xcb_get_property_reply, k.pid);
        auto opacity = wait(c, xcb_get_property_reply, k.opacity);
        auto frameOpacity = wait(c, xcb_get_property_reply, k.frameOpacity);
        auto wmClass = wait(c, xcb_get_property_reply, k.wmClass);
        auto shadow = wait(c, xcb_get_property_reply, k.shadow);
        auto netName = wait(c, xcb_get_property_reply, k.netName);
        auto name = wait(c, xcb_get_property_reply, k.name);

        if (!attributes || attributes->map_state != XCB_MAP_STATE_VIEWABLE ||
            attributes->_class != XCB_WINDOW_CLASS_INPUT_OUTPUT)
            continue;
        const auto states = propertyValues<xcb_atom_t>(state.get());
        if (std::find(states.begin(), states.end(), d.atoms[StateHidden]) != states.end())
            continue;

        ServerWindow window;
        window.id = frameOf[i];
        window.clientId = clients[i];
        window.layer = layerOf(d, propertyValues<xcb_atom_t>(type.get()));
        auto opaqueness = propertyValue<uint32_t>(opacity.get());
        if (!opaqueness)
            opaqueness = propertyValue<uint32_t>(frameOpacity.get());
        if (opaqueness)
            window.alpha = double(*opaqueness) / double(0xffffffffu);
        if (auto p = propertyValue<uint32_t>(pid.get()))
            window.pid = std::int64_t(*p);
        if (geometry)
            window.bounds = withoutShadow(QRect(geometry->x, geometry->y,
                                                geometry->width + 2 * geometry->border_width,
                                                geometry->height + 2 * geometry->border_width),
                                          propertyValues<uint32_t>(shadow.get()));
        window.ownerName = applicationName(wmClass.get());
        window.title = windowTitle(netName.get(), name.get());
        windows.push_back(std::move(window));
    }
    d.drainEvents();
    return windows;
}

std::optional<std::uint32_t> activeWindow(X11Display& d) {
    auto reply = wait(d.c, xcb_get_property_reply,
                      d.property(d.screen->root, d.atoms[ActiveWindow], XCB_ATOM_WINDOW, 1));
    auto window = propertyValue<xcb_window_t>(reply.get());
    if (!window || *window == XCB_WINDOW_NONE)
        return std::nullopt;
    return *window;
}

} // namespace qm::platform::x11
