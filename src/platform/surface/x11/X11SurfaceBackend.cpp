#include "platform/surface/x11/X11SurfaceBackend.h"

#include "platform/surface/x11/RepaintWatch.h"

#include <QGuiApplication>
#include <QTimer>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <xcb/xcb.h>
#include <xcb/xinput.h>

namespace qm::platform {

namespace {

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};
// Replies of xcb are malloc'ed; this frees them.
template <class T> using XReply = std::unique_ptr<T, FreeDeleter>;

// The X screen number of DISPLAY (":0.1" → 1).
int defaultScreenNumber() {
    const QByteArray display = qgetenv("DISPLAY");
    const int colon = display.lastIndexOf(':');
    const int dot = display.indexOf('.', colon < 0 ? 0 : colon);
    return dot < 0 ? 0 : display.mid(dot + 1).toInt();
}

// XInput positions are 16.16 fixed point; the pixel is the one the point lies in.
int wholePixel(xcb_input_fp1616_t value) {
    return int(std::floor(value / 65536.0));
}

} // namespace

// One withdrawal waiting for the programs beneath our windows to redraw.
struct X11SurfaceBackend::Repaint {
    explicit Repaint(RepaintWatch w)
        : watch(std::move(w)) {}

    RepaintWatch watch;
    std::uint32_t damage = 0; // 0 without the extension: then only the clock ends the wait
    std::uint16_t sync = 0;   // drawing reported at or after this request came from redraws
    std::vector<WId> windows;
    std::function<void(std::vector<WId>)> done;
    QTimer limit;
    QTimer settle;
};

std::unique_ptr<X11SurfaceBackend> X11SurfaceBackend::create() {
    const auto* x11 =
        qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    if (!x11 || !x11->connection())
        return nullptr;
    xcb_connection_t* c = x11->connection();
    const QByteArray name = "_NET_WM_CM_S" + QByteArray::number(defaultScreenNumber());
    const XReply<xcb_intern_atom_reply_t> atom(xcb_intern_atom_reply(
        c, xcb_intern_atom(c, 0, uint16_t(name.size()), name.constData()), nullptr));
    if (!atom)
        return nullptr;
    // Qt has asked for the extension already, so this is answered from xcb's cache.
    const xcb_query_extension_reply_t* xinput = xcb_get_extension_data(c, &xcb_input_id);
    const uint8_t opcode = xinput && xinput->present ? xinput->major_opcode : 0;
    return std::unique_ptr<X11SurfaceBackend>(new X11SurfaceBackend(c, atom->atom, opcode));
}

X11SurfaceBackend::X11SurfaceBackend(xcb_connection_t* connection,
                                     std::uint32_t compositorSelection, std::uint8_t xinputOpcode)
    : m_connection(connection)
    , m_compositorSelection(compositorSelection)
    , m_xinputOpcode(xinputOpcode) {
    QCoreApplication::instance()->installNativeEventFilter(this);
}

X11SurfaceBackend::~X11SurfaceBackend() {
    if (QCoreApplication* app = QCoreApplication::instance())
        app->removeNativeEventFilter(this);
    // Windows still off the screen come back; nobody is told.
    for (const auto& waiting : m_repaints) {
        if (waiting->damage)
            m_damage->destroy(waiting->damage);
        restore(waiting->windows);
    }
}

bool X11SurfaceBackend::compositingAvailable() {
    const XReply<xcb_get_selection_owner_reply_t> owner(xcb_get_selection_owner_reply(
        m_connection, xcb_get_selection_owner(m_connection, m_compositorSelection), nullptr));
    return owner && owner->owner != XCB_WINDOW_NONE;
}

void X11SurfaceBackend::sync() {
    // Any request with a reply will do: the server answers in order, and waiting for the
    // reply sends what Qt still buffers.
    const XReply<xcb_get_input_focus_reply_t> reply(
        xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
}

std::optional<QPoint> X11SurfaceBackend::lastPointerPosition(WId window) const {
    if (m_pointerWindow == 0 || m_pointerWindow != xcb_window_t(window))
        return std::nullopt;
    return m_pointer;
}

void X11SurfaceBackend::pointerSeen(std::uint32_t window, QPoint position) {
    m_pointerWindow = window;
    m_pointer = position;
}

void X11SurfaceBackend::withdraw(const std::vector<WId>& windows, const QRect& pixelArea,
                                 std::function<void(std::vector<WId>)> repainted) {
    xcb_connection_t* c = m_connection;
    std::vector<xcb_get_geometry_cookie_t> cookies;
    cookies.reserve(windows.size());
    for (const WId window : windows)
        cookies.push_back(xcb_get_geometry(c, xcb_window_t(window)));
    std::vector<WId> taken;
    std::vector<std::uint32_t> ids;
    QRegion uncovered;
    xcb_window_t root = XCB_WINDOW_NONE;
    for (std::size_t i = 0; i < windows.size(); ++i) {
        const XReply<xcb_get_geometry_reply_t> geometry(
            xcb_get_geometry_reply(c, cookies[i], nullptr));
        if (!geometry)
            continue;
        root = geometry->root;
        // Floating windows are children of the root: this is their place on the desktop.
        const int border = 2 * geometry->border_width;
        const QRect frame(geometry->x, geometry->y, geometry->width + border,
                          geometry->height + border);
        const QRect overlap = frame & pixelArea;
        if (overlap.isEmpty())
            continue;
        taken.push_back(windows[i]);
        ids.push_back(std::uint32_t(windows[i]));
        uncovered += overlap;
    }
    // A window of ours that Qt took away a moment ago (the selection overlay, a card that
    // closed) may still leave its hole: where it was is not known any more, so all of the area
    // is watched.
    const bool recentlyHidden =
        m_ownUnmapped.isValid() && !m_ownUnmapped.hasExpired(repaintLimit.count());
    if (taken.empty() && !recentlyHidden)
        return repainted({});
    if (recentlyHidden)
        uncovered += pixelArea;
    for (const std::uint32_t id : ids)
        m_withdrawn.insert(id);

    if (!m_damageAsked) {
        m_damageAsked = true;
        m_damage = X11Damage::negotiate(c);
    }
    // What lies beneath is known before our windows go; what others redraw is seen after.
    RepaintWatch watch(othersShown(ids), uncovered);
    const std::uint32_t damage = m_damage && !watch.done() ? m_damage->create(root) : 0;
    for (const std::uint32_t id : ids)
        xcb_unmap_window(c, id);
    // Once this is answered the server has painted the root's background where it shows
    // through; anything drawn later comes from programs that were told to redraw.
    const xcb_get_input_focus_cookie_t sync = xcb_get_input_focus(c);
    const XReply<xcb_get_input_focus_reply_t> synced(xcb_get_input_focus_reply(c, sync, nullptr));
    if (watch.done())
        return repainted(std::move(taken));

    auto waiting = std::make_unique<Repaint>(std::move(watch));
    Repaint* raw = waiting.get();
    raw->damage = damage;
    raw->sync = std::uint16_t(sync.sequence);
    raw->windows = std::move(taken);
    raw->done = std::move(repainted);
    raw->limit.setSingleShot(true);
    raw->settle.setSingleShot(true);
    QObject::connect(&raw->limit, &QTimer::timeout, &m_timers, [this, raw] { finishRepaint(raw); });
    QObject::connect(&raw->settle, &QTimer::timeout, &m_timers,
                     [this, raw] { finishRepaint(raw); });
    // Without the extension nothing tells when the others are done: a quiet spell must do;
    // the same for a program that never draws at all.
    if (damage)
        raw->limit.start(repaintLimit);
    raw->settle.start(repaintSettle);
    m_repaints.push_back(std::move(waiting));
}

std::vector<QRegion> X11SurfaceBackend::othersShown(const std::vector<std::uint32_t>& ours) {
    xcb_connection_t* c = m_connection;
    const QRect everything(-32768, -32768, 65536, 65536);
    // A compositing manager redraws all of it, as one program.
    if (compositingAvailable())
        return {QRegion(everything)};
    auto screens = xcb_setup_roots_iterator(xcb_get_setup(c));
    for (int n = defaultScreenNumber(); n > 0 && screens.rem; --n)
        xcb_screen_next(&screens);
    if (!screens.rem)
        return {QRegion(everything)};
    const XReply<xcb_query_tree_reply_t> tree(
        xcb_query_tree_reply(c, xcb_query_tree(c, screens.data->root), nullptr));
    if (!tree)
        return {QRegion(everything)};
    const xcb_window_t* children = xcb_query_tree_children(tree.get());
    const int count = xcb_query_tree_children_length(tree.get());
    std::vector<std::pair<xcb_get_window_attributes_cookie_t, xcb_get_geometry_cookie_t>> asked;
    for (int i = count - 1; i >= 0; --i) { // top-most first
        if (std::find(ours.begin(), ours.end(), children[i]) != ours.end())
            continue;
        asked.emplace_back(xcb_get_window_attributes(c, children[i]),
                           xcb_get_geometry(c, children[i]));
    }
    // The root's own background is painted by the server at once; nobody redraws it.
    std::vector<QRegion> shown;
    QRegion above;
    for (const auto& [attributesCookie, geometryCookie] : asked) {
        const XReply<xcb_get_window_attributes_reply_t> attributes(
            xcb_get_window_attributes_reply(c, attributesCookie, nullptr));
        const XReply<xcb_get_geometry_reply_t> geometry(
            xcb_get_geometry_reply(c, geometryCookie, nullptr));
        if (!attributes || !geometry || attributes->map_state != XCB_MAP_STATE_VIEWABLE ||
            attributes->_class != XCB_WINDOW_CLASS_INPUT_OUTPUT)
            continue;
        const int border = 2 * geometry->border_width;
        const QRect frame(geometry->x, geometry->y, geometry->width + border,
                          geometry->height + border);
        if (QRegion visible = QRegion(frame) - above; !visible.isEmpty())
            shown.push_back(visible);
        above += frame;
    }
    return shown;
}

bool X11SurfaceBackend::repaintSeen(const X11Damage::Notify& notify) {
    const auto found = std::find_if(m_repaints.begin(), m_repaints.end(),
                                    [&](const auto& r) { return r->damage == notify.damage; });
    if (found == m_repaints.end())
        return true; // a report that crossed the object's destruction
    Repaint* waiting = found->get();
    // Drawing reported before the sync was the server's own, while it took our windows off.
    if (std::int16_t(notify.sequence - waiting->sync) < 0) {
        waiting->watch.serverPainted(notify.area);
        return true;
    }
    waiting->watch.drawn(notify.area);
    if (waiting->watch.done())
        finishRepaint(waiting);
    else
        waiting->settle.start(repaintSettle);
    return true;
}

void X11SurfaceBackend::finishRepaint(Repaint* waiting) {
    const auto found = std::find_if(m_repaints.begin(), m_repaints.end(),
                                    [&](const auto& r) { return r.get() == waiting; });
    if (found == m_repaints.end())
        return;
    std::unique_ptr<Repaint> done = std::move(*found);
    m_repaints.erase(found);
    if (done->damage) {
        m_damage->destroy(done->damage);
        xcb_flush(m_connection);
    }
    done->done(std::move(done->windows));
}

void X11SurfaceBackend::restore(const std::vector<WId>& windows) {
    for (const WId window : windows) {
        // A window destroyed meanwhile is no error worth a word.
        xcb_discard_reply(m_connection,
                          xcb_map_window_checked(m_connection, xcb_window_t(window)).sequence);
    }
    xcb_flush(m_connection);
}

bool X11SurfaceBackend::nativeEventFilter(const QByteArray& eventType, void* message, qintptr*) {
    if (eventType != "xcb_generic_event_t")
        return false;
    const auto* event = static_cast<const xcb_generic_event_t*>(message);
    if (m_damage)
        if (const auto notify = m_damage->parse(event))
            return repaintSeen(*notify); // nobody else here asks for these
    switch (event->response_type & 0x7f) {
    case XCB_UNMAP_NOTIFY: {
        // Qt asks to hear of its own windows' unmapping; ours are not Qt's doing.
        const auto* unmap = reinterpret_cast<const xcb_unmap_notify_event_t*>(event);
        if (unmap->event == unmap->window && !m_withdrawn.remove(unmap->window))
            m_ownUnmapped.start();
        break;
    }
    case XCB_MOTION_NOTIFY: {
        const auto* motion = reinterpret_cast<const xcb_motion_notify_event_t*>(event);
        pointerSeen(motion->event, QPoint(motion->event_x, motion->event_y));
        break;
    }
    case XCB_BUTTON_PRESS:
    case XCB_BUTTON_RELEASE: {
        const auto* button = reinterpret_cast<const xcb_button_press_event_t*>(event);
        pointerSeen(button->event, QPoint(button->event_x, button->event_y));
        break;
    }
    case XCB_ENTER_NOTIFY:
    case XCB_LEAVE_NOTIFY: {
        const auto* crossing = reinterpret_cast<const xcb_enter_notify_event_t*>(event);
        pointerSeen(crossing->event, QPoint(crossing->event_x, crossing->event_y));
        break;
    }
    case XCB_GE_GENERIC: {
        const auto* generic = reinterpret_cast<const xcb_ge_generic_event_t*>(event);
        if (m_xinputOpcode == 0 || generic->extension != m_xinputOpcode)
            break;
        switch (generic->event_type) {
        case XCB_INPUT_MOTION:
        case XCB_INPUT_BUTTON_PRESS:
        case XCB_INPUT_BUTTON_RELEASE: {
            const auto* device = reinterpret_cast<const xcb_input_motion_event_t*>(event);
            pointerSeen(device->event,
                        QPoint(wholePixel(device->event_x), wholePixel(device->event_y)));
            break;
        }
        case XCB_INPUT_ENTER:
        case XCB_INPUT_LEAVE: {
            const auto* crossing = reinterpret_cast<const xcb_input_enter_event_t*>(event);
            pointerSeen(crossing->event,
                        QPoint(wholePixel(crossing->event_x), wholePixel(crossing->event_y)));
            break;
        }
        default:
            break;
        }
        break;
    }
    default:
        break;
    }
    return false; // only watching: Qt handles every event as before
}

} // namespace qm::platform
