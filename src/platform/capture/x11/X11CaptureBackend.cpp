#include "platform/capture/x11/X11CaptureBackend.h"

#include <QTimer>
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <xcb/composite.h>
#include <xcb/randr.h>
#include <xcb/shm.h>
#include <xcb/xcb.h>

namespace qm::platform {

namespace {

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};
// Replies and errors of xcb are malloc'ed; this frees them.
template <class T> using XReply = std::unique_ptr<T, FreeDeleter>;

struct ConnectionDeleter {
    void operator()(xcb_connection_t* c) const { xcb_disconnect(c); }
};
using Connection = std::unique_ptr<xcb_connection_t, ConnectionDeleter>;

// Waits for a reply; an error reply is freed here, so it never reaches the event queue.
template <class R, class C>
XReply<R> wait(xcb_connection_t* c, R* (*fn)(xcb_connection_t*, C, xcb_generic_error_t**),
               C cookie) {
    xcb_generic_error_t* error = nullptr;
    XReply<R> reply(fn(c, cookie, &error));
    std::free(error);
    return reply;
}

bool check(xcb_connection_t* c, xcb_void_cookie_t cookie) {
    XReply<xcb_generic_error_t> error(xcb_request_check(c, cookie));
    return !error;
}

CaptureFailure failed(const char* reason) {
    return CaptureFailure{CaptureError::CaptureFailed, QString::fromUtf8(reason)};
}

// A System V shared-memory segment attached both here and in the server.
class ShmSegment {
public:
    static std::unique_ptr<ShmSegment> create(xcb_connection_t* c, std::size_t size) {
        const int id = shmget(IPC_PRIVATE, size, IPC_CREAT | 0600);
        if (id < 0)
            return nullptr;
        void* address = shmat(id, nullptr, 0);
        if (address == reinterpret_cast<void*>(-1)) {
            shmctl(id, IPC_RMID, nullptr);
            return nullptr;
        }
        std::unique_ptr<ShmSegment> segment(
            new ShmSegment(c, static_cast<uint8_t*>(address), size));
        segment->m_seg = xcb_generate_id(c);
        const bool attached = check(c, xcb_shm_attach_checked(c, segment->m_seg, id, 0));
        // Marked for removal now that both sides hold it: it goes away with the last detach,
        // even if this process dies.
        shmctl(id, IPC_RMID, nullptr);
        if (!attached) {
            segment->m_seg = 0;
            return nullptr;
        }
        return segment;
    }
    ~ShmSegment() {
        if (m_seg)
            xcb_shm_detach(m_c, m_seg);
        shmdt(m_data);
    }
    ShmSegment(const ShmSegment&) = delete;
    ShmSegment& operator=(const ShmSegment&) = delete;

    xcb_shm_seg_t id() const { return m_seg; }
    const uint8_t* data() const { return m_data; }
    std::size_t size() const { return m_size; }

private:
    ShmSegment(xcb_connection_t* c, uint8_t* data, std::size_t size)
        : m_c(c)
        , m_data(data)
        , m_size(size) {}

    xcb_connection_t* m_c;
    uint8_t* m_data;
    std::size_t m_size;
    xcb_shm_seg_t m_seg = 0;
};

// A server pixmap freed when it goes out of scope.
class ServerPixmap {
public:
    ServerPixmap(xcb_connection_t* c, xcb_pixmap_t id)
        : m_c(c)
        , m_id(id) {}
    ~ServerPixmap() { xcb_free_pixmap(m_c, m_id); }
    ServerPixmap(const ServerPixmap&) = delete;
    ServerPixmap& operator=(const ServerPixmap&) = delete;
    xcb_pixmap_t id() const { return m_id; }

private:
    xcb_connection_t* m_c;
    xcb_pixmap_t m_id;
};

template <class T> std::vector<T> propertyValues(const xcb_get_property_reply_t* reply) {
    if (!reply || reply->type == XCB_ATOM_NONE || reply->format != sizeof(T) * 8)
        return {};
    const auto* values = static_cast<const T*>(xcb_get_property_value(reply));
    const int count = xcb_get_property_value_length(reply) / int(sizeof(T));
    return std::vector<T>(values, values + count);
}

template <class T> std::optional<T> propertyValue(const xcb_get_property_reply_t* reply) {
    const auto values = propertyValues<T>(reply);
    if (values.empty())
        return std::nullopt;
    return values.front();
}

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

// One row of pixels, made opaque on the way; the distinct buffers let it vectorise.
void copyRow(const uint32_t* __restrict src, uint32_t* __restrict dst, int count, uint32_t alpha) {
    for (int x = 0; x < count; ++x)
        dst[x] = src[x] | alpha;
}

// Windows that draw their own decorations (GTK's client-side ones) pad themselves with an
// invisible shadow and say how wide it is; the window the user sees lies inside.
QRect withoutShadow(const QRect& frame, const std::vector<uint32_t>& extents) {
    if (extents.size() != 4) // left, right, top, bottom
        return frame;
    const QRect inner =
        frame.adjusted(int(extents[0]), int(extents[2]), -int(extents[1]), -int(extents[3]));
    return inner.isValid() ? inner : frame;
}

enum Atom {
    ClientListStacking,
    ClientList,
    ActiveWindow,
    WmPid,
    WmWindowType,
    TypeNormal,
    TypeDialog,
    TypeDock,
    TypeDesktop,
    WmState,
    StateHidden,
    WmWindowOpacity,
    GtkFrameExtents,
    CompositorSelection,
    AtomCount
};

} // namespace

struct X11CaptureBackend::Private {
    Connection connection;
    xcb_connection_t* c = nullptr;
    xcb_screen_t* screen = nullptr;
    int screenNumber = 0;
    bool hasShm = false;
    bool hasComposite = false;
    bool hasMonitors = false;
    xcb_atom_t atoms[AtomCount] = {};
    std::unique_ptr<ShmSegment> segment; // reused while large enough

    void drainEvents() {
        // Errors of requests without replies land in the event queue; nobody else reads it.
        while (XReply<xcb_generic_event_t> event{xcb_poll_for_event(c)}) {
        }
    }

    int bitsPerPixel(uint8_t depth) const {
        const xcb_setup_t* setup = xcb_get_setup(c);
        for (auto it = xcb_setup_pixmap_formats_iterator(setup); it.rem; xcb_format_next(&it))
            if (it.data->depth == depth)
                return it.data->bits_per_pixel;
        return 0;
    }

    const uint8_t* shmBuffer(std::size_t size) {
        if (!segment || segment->size() < size) {
            segment.reset();
            segment = ShmSegment::create(c, size);
            // A server that cannot share memory with us (another host, a container) will not
            // learn to; the plain request serves from now on.
            hasShm = segment != nullptr;
        }
        return segment ? segment->data() : nullptr;
    }

    // Reads a rectangle of a drawable into an image, through shared memory when the server
    // offers it.
    CaptureResult<QImage> readImage(xcb_drawable_t drawable, QRect rect, uint8_t depth) {
        if (depth != 24 && depth != 32)
            return failed("The display's colour depth cannot be captured.");
        if (bitsPerPixel(depth) != 32)
            return failed("The display's pixel format cannot be captured.");
        const auto w = uint16_t(rect.width());
        const auto h = uint16_t(rect.height());
        const std::size_t bytes = std::size_t(w) * h * 4;
        const uint8_t* pixels = nullptr;
        XReply<xcb_get_image_reply_t> plain;
        if (hasShm && shmBuffer(bytes)) {
            auto reply =
                wait(c, xcb_shm_get_image_reply,
                     xcb_shm_get_image(c, drawable, int16_t(rect.x()), int16_t(rect.y()), w, h, ~0u,
                                       XCB_IMAGE_FORMAT_Z_PIXMAP, segment->id(), 0));
            if (reply)
                pixels = segment->data();
        }
        if (!pixels) {
            plain = wait(c, xcb_get_image_reply,
                         xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, drawable, int16_t(rect.x()),
                                       int16_t(rect.y()), w, h, ~0u));
            if (!plain || std::size_t(xcb_get_image_data_length(plain.get())) < bytes)
                return failed("The display server did not hand out the screen's pixels.");
            pixels = xcb_get_image_data(plain.get());
        }
        drainEvents();
        // Depth 24 leaves the fourth byte undefined; Qt's RGB32 wants it opaque.
        QImage image(w, h,
                     depth == 32 ? QImage::Format_ARGB32_Premultiplied : QImage::Format_RGB32);
        if (image.isNull())
            return failed("There is not enough memory for the screenshot.");
        const uint32_t alpha = depth == 32 ? 0u : 0xff000000u;
        for (int y = 0; y < h; ++y)
            copyRow(reinterpret_cast<const uint32_t*>(pixels + std::size_t(y) * w * 4),
                    reinterpret_cast<uint32_t*>(image.scanLine(y)), w, alpha);
        return image;
    }

    QRect rootRect() const {
        return QRect(0, 0, screen->width_in_pixels, screen->height_in_pixels);
    }

    // The top-level ancestor (child of the root) of each window: the window manager's frame.
    std::vector<xcb_window_t> frames(const std::vector<xcb_window_t>& windows) {
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
                if (!tree || tree->parent == screen->root || tree->parent == XCB_WINDOW_NONE)
                    done[i] = true;
                else
                    current[i] = tree->parent;
            }
        }
        return current;
    }

    // The shadow extents of a frame's client: on the frame itself when the window manager did
    // not reparent it, else on one of its children.
    std::vector<uint32_t> shadowExtents(xcb_window_t frame) {
        std::vector<xcb_window_t> candidates{frame};
        if (auto tree = wait(c, xcb_query_tree_reply, xcb_query_tree(c, frame))) {
            const xcb_window_t* children = xcb_query_tree_children(tree.get());
            candidates.insert(candidates.end(), children,
                              children + xcb_query_tree_children_length(tree.get()));
        }
        std::vector<xcb_get_property_cookie_t> cookies;
        for (xcb_window_t w : candidates)
            cookies.push_back(property(w, atoms[GtkFrameExtents], XCB_ATOM_CARDINAL, 4));
        std::vector<uint32_t> found;
        for (auto cookie : cookies) {
            auto values = propertyValues<uint32_t>(wait(c, xcb_get_property_reply, cookie).get());
            if (found.empty() && values.size() == 4)
                found = std::move(values);
        }
        return found;
    }

    xcb_get_property_cookie_t property(xcb_window_t window, xcb_atom_t atom, xcb_atom_t type,
                                       uint32_t longs) {
        return xcb_get_property(c, 0, window, atom, type, 0, longs);
    }
};

std::unique_ptr<X11CaptureBackend> X11CaptureBackend::connect(const QByteArray& displayName) {
    auto d = std::make_unique<Private>();
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

    const char* names[AtomCount] = {"_NET_CLIENT_LIST_STACKING",   "_NET_CLIENT_LIST",
                                    "_NET_ACTIVE_WINDOW",          "_NET_WM_PID",
                                    "_NET_WM_WINDOW_TYPE",         "_NET_WM_WINDOW_TYPE_NORMAL",
                                    "_NET_WM_WINDOW_TYPE_DIALOG",  "_NET_WM_WINDOW_TYPE_DOCK",
                                    "_NET_WM_WINDOW_TYPE_DESKTOP", "_NET_WM_STATE",
                                    "_NET_WM_STATE_HIDDEN",        "_NET_WM_WINDOW_OPACITY",
                                    "_GTK_FRAME_EXTENTS",          nullptr};
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
    return std::unique_ptr<X11CaptureBackend>(new X11CaptureBackend(std::move(d)));
}

X11CaptureBackend::X11CaptureBackend(std::unique_ptr<Private> priv)
    : d(std::move(priv)) {}

X11CaptureBackend::~X11CaptureBackend() {
    d->segment.reset(); // detaches while the connection is still open
}

CaptureResult<ShareableContent> X11CaptureBackend::fetchContentNow() {
    xcb_connection_t* c = d->c;
    if (xcb_connection_has_error(c))
        return failed("The connection to the X display was lost.");
    ShareableContent content;

    if (d->hasMonitors) {
        auto monitors =
            wait(c, xcb_randr_get_monitors_reply, xcb_randr_get_monitors(c, d->screen->root, 1));
        if (monitors) {
            std::vector<xcb_get_atom_name_cookie_t> names;
            std::vector<QRect> rects;
            for (auto it = xcb_randr_get_monitors_monitors_iterator(monitors.get()); it.rem;
                 xcb_randr_monitor_info_next(&it)) {
                names.push_back(xcb_get_atom_name(c, it.data->name));
                rects.emplace_back(it.data->x, it.data->y, it.data->width, it.data->height);
            }
            for (std::size_t i = 0; i < names.size(); ++i) {
                auto name = wait(c, xcb_get_atom_name_reply, names[i]);
                content.displays.push_back(
                    {name ? QString::fromLatin1(xcb_get_atom_name_name(name.get()),
                                                xcb_get_atom_name_name_length(name.get()))
                          : QString(),
                     rects[i] & d->rootRect()});
            }
        }
    }
    if (content.displays.empty())
        content.displays.push_back({QString(), d->rootRect()});

    if (auto tree = wait(c, xcb_query_tree_reply, xcb_query_tree(c, d->screen->root))) {
        const xcb_window_t* children = xcb_query_tree_children(tree.get());
        const int count = xcb_query_tree_children_length(tree.get());
        std::vector<xcb_get_window_attributes_cookie_t> cookies;
        cookies.reserve(std::size_t(count));
        for (int i = 0; i < count; ++i)
            cookies.push_back(xcb_get_window_attributes(c, children[i]));
        for (int i = 0; i < count; ++i) {
            auto attributes = wait(c, xcb_get_window_attributes_reply, cookies[std::size_t(i)]);
            if (attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE &&
                attributes->_class == XCB_WINDOW_CLASS_INPUT_OUTPUT)
                content.windows.push_back(children[i]);
        }
    }
    d->drainEvents();
    return content;
}

void X11CaptureBackend::fetchContent(BackendCompletion<ShareableContent> done) {
    QTimer::singleShot(0, &m_context, [done, result = fetchContentNow()] { done(result); });
}

std::vector<ServerWindow> X11CaptureBackend::windowList() {
    xcb_connection_t* c = d->c;
    const xcb_window_t root = d->screen->root;
    std::vector<xcb_window_t> clients;
    {
        auto stacking =
            wait(c, xcb_get_property_reply,
                 d->property(root, d->atoms[ClientListStacking], XCB_ATOM_WINDOW, 4096));
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
    const std::vector<xcb_window_t> frames = d->frames(clients);

    struct Cookies {
        xcb_get_window_attributes_cookie_t attributes;
        xcb_get_geometry_cookie_t geometry;
        xcb_get_property_cookie_t type, state, pid, opacity, frameOpacity, wmClass, shadow;
    };
    std::vector<Cookies> cookies;
    cookies.reserve(clients.size());
    for (std::size_t i = 0; i < clients.size(); ++i) {
        const xcb_window_t client = clients[i];
        cookies.push_back({xcb_get_window_attributes(c, frames[i]), xcb_get_geometry(c, frames[i]),
                           d->property(client, d->atoms[WmWindowType], XCB_ATOM_ATOM, 32),
                           d->property(client, d->atoms[WmState], XCB_ATOM_ATOM, 32),
                           d->property(client, d->atoms[WmPid], XCB_ATOM_CARDINAL, 1),
                           d->property(client, d->atoms[WmWindowOpacity], XCB_ATOM_CARDINAL, 1),
                           d->property(frames[i], d->atoms[WmWindowOpacity], XCB_ATOM_CARDINAL, 1),
                           d->property(client, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 256),
                           d->property(client, d->atoms[GtkFrameExtents], XCB_ATOM_CARDINAL, 4)});
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

        if (!attributes || attributes->map_state != XCB_MAP_STATE_VIEWABLE ||
            attributes->_class != XCB_WINDOW_CLASS_INPUT_OUTPUT)
            continue;
        const auto states = propertyValues<xcb_atom_t>(state.get());
        if (std::find(states.begin(), states.end(), d->atoms[StateHidden]) != states.end())
            continue;

        ServerWindow window;
        window.id = frames[i];
        window.clientId = clients[i];
        // Normal and dialog windows are the ordinary level; a window without a type is
        // normal. Docks sit above it, the desktop below, everything else floats.
        window.layer = 0;
        for (xcb_atom_t t : propertyValues<xcb_atom_t>(type.get())) {
            if (t == d->atoms[TypeNormal] || t == d->atoms[TypeDialog]) {
                window.layer = 0;
                break;
            }
            if (t == d->atoms[TypeDesktop]) {
                window.layer = -1;
                break;
            }
            if (t == d->atoms[TypeDock]) {
                window.layer = 20;
                break;
            }
            window.layer = 3; // an unknown type may come first; keep looking for a known one
        }
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
        windows.push_back(std::move(window));
    }
    d->drainEvents();
    return windows;
}

CaptureResult<QImage> X11CaptureBackend::grabDisplayNow(const QRect& pixelRect) {
    if (xcb_connection_has_error(d->c))
        return failed("The connection to the X display was lost.");
    const QRect rect = pixelRect & d->rootRect();
    if (rect.isEmpty())
        return CaptureFailure{CaptureError::NoDisplay, {}};
    return d->readImage(d->screen->root, rect, d->screen->root_depth);
}

void X11CaptureBackend::grabDisplay(const QRect& pixelRect, BackendCompletion<QImage> done) {
    QTimer::singleShot(0, &m_context, [done, result = grabDisplayNow(pixelRect)] { done(result); });
}

bool X11CaptureBackend::compositorRunning() {
    auto owner = wait(d->c, xcb_get_selection_owner_reply,
                      xcb_get_selection_owner(d->c, d->atoms[CompositorSelection]));
    return owner && owner->owner != XCB_WINDOW_NONE;
}

CaptureResult<WindowImage> X11CaptureBackend::grabWindowNow(std::uint32_t id) {
    xcb_connection_t* c = d->c;
    if (xcb_connection_has_error(c))
        return failed("The connection to the X display was lost.");
    auto attributesCookie = xcb_get_window_attributes(c, id);
    auto geometryCookie = xcb_get_geometry(c, id);
    auto positionCookie = xcb_translate_coordinates(c, id, d->screen->root, 0, 0);
    auto attributes = wait(c, xcb_get_window_attributes_reply, attributesCookie);
    auto geometry = wait(c, xcb_get_geometry_reply, geometryCookie);
    auto position = wait(c, xcb_translate_coordinates_reply, positionCookie);
    if (!attributes || !geometry || !position || attributes->map_state != XCB_MAP_STATE_VIEWABLE)
        return CaptureFailure{CaptureError::NoWindow, {}};
    const int border = geometry->border_width;
    const QRect outer(position->dst_x - border, position->dst_y - border,
                      geometry->width + 2 * border, geometry->height + 2 * border);
    const QRect frame = withoutShadow(outer, d->shadowExtents(id));

    if (d->hasComposite && compositorRunning()) {
        // A compositing manager redirects every window, so its pixmap holds the whole
        // window even where others cover it.
        const xcb_pixmap_t pixmap = xcb_generate_id(c);
        if (check(c, xcb_composite_name_window_pixmap_checked(c, id, pixmap))) {
            ServerPixmap owned(c, pixmap);
            auto image = d->readImage(pixmap, frame.translated(-outer.topLeft()), geometry->depth);
            if (image.ok())
                return WindowImage{std::move(image).value(), frame};
        }
    }
    // Without a compositor the window's pixels exist only on screen.
    const QRect visible = frame & d->rootRect();
    auto image = grabDisplayNow(visible);
    if (image.ok())
        return WindowImage{std::move(image).value(), visible};
    return image.error();
}

void X11CaptureBackend::grabWindow(std::uint32_t id, BackendCompletion<WindowImage> done) {
    QTimer::singleShot(0, &m_context, [done, result = grabWindowNow(id)] { done(result); });
}

std::optional<std::uint32_t> X11CaptureBackend::activeWindow() {
    auto reply = wait(d->c, xcb_get_property_reply,
                      d->property(d->screen->root, d->atoms[ActiveWindow], XCB_ATOM_WINDOW, 1));
    auto window = propertyValue<xcb_window_t>(reply.get());
    if (!window || *window == XCB_WINDOW_NONE)
        return std::nullopt;
    return *window;
}

} // namespace qm::platform
