#include "platform/surface/x11/X11SurfaceBackend.h"

#include <QGuiApplication>
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

bool X11SurfaceBackend::nativeEventFilter(const QByteArray& eventType, void* message, qintptr*) {
    if (eventType != "xcb_generic_event_t")
        return false;
    const auto* event = static_cast<const xcb_generic_event_t*>(message);
    switch (event->response_type & 0x7f) {
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
