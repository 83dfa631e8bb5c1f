#include "platform/shortcuts/x11/X11GlobalShortcuts.h"

#include <QSocketNotifier>
#include <QTimer>
#include <algorithm>
#include <cstdlib>
#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>

namespace qm {

namespace {
constexpr std::uint16_t kLockVariants[] = {0, XCB_MOD_MASK_LOCK, XCB_MOD_MASK_2,
                                           XCB_MOD_MASK_LOCK | XCB_MOD_MASK_2};
constexpr std::uint16_t kIgnoredModifiers = XCB_MOD_MASK_LOCK | XCB_MOD_MASK_2;

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};
template <typename T> using XcbPtr = std::unique_ptr<T, FreeDeleter>;

// The X keysym of a Qt key, or 0 when it has none here. Latin-1 keys are their own keysym
// (letters in lower case, the unshifted symbol); the others are the few named keys a
// shortcut may use.
std::uint32_t keysymFor(Qt::Key key) {
    if (key >= Qt::Key_A && key <= Qt::Key_Z)
        return std::uint32_t(key - Qt::Key_A + 'a');
    if (key >= Qt::Key_Space && key <= Qt::Key_ydiaeresis)
        return std::uint32_t(key);
    if (key >= Qt::Key_F1 && key <= Qt::Key_F35)
        return 0xffbe + std::uint32_t(key - Qt::Key_F1); // XK_F1 …
    switch (key) {
    case Qt::Key_Escape:
        return 0xff1b;
    case Qt::Key_Tab:
        return 0xff09;
    case Qt::Key_Backspace:
        return 0xff08;
    case Qt::Key_Return:
        return 0xff0d;
    case Qt::Key_Enter:
        return 0xff8d; // KP_Enter
    case Qt::Key_Insert:
        return 0xff63;
    case Qt::Key_Delete:
        return 0xffff;
    case Qt::Key_Pause:
        return 0xff13;
    case Qt::Key_Print:
        return 0xff61;
    case Qt::Key_Home:
        return 0xff50;
    case Qt::Key_Left:
        return 0xff51;
    case Qt::Key_Up:
        return 0xff52;
    case Qt::Key_Right:
        return 0xff53;
    case Qt::Key_Down:
        return 0xff54;
    case Qt::Key_PageUp:
        return 0xff55;
    case Qt::Key_PageDown:
        return 0xff56;
    case Qt::Key_End:
        return 0xff57;
    case Qt::Key_Menu:
        return 0xff67;
    default:
        return 0;
    }
}

std::uint16_t xModifiers(Qt::KeyboardModifiers m) {
    std::uint16_t x = 0;
    if (m & Qt::ShiftModifier)
        x |= XCB_MOD_MASK_SHIFT;
    if (m & Qt::ControlModifier)
        x |= XCB_MOD_MASK_CONTROL;
    if (m & Qt::AltModifier)
        x |= XCB_MOD_MASK_1;
    if (m & Qt::MetaModifier)
        x |= XCB_MOD_MASK_4;
    return x;
}
} // namespace

struct X11GlobalShortcuts::Connection {
    xcb_connection_t* xcb = nullptr;
    xcb_window_t root = 0;
    xcb_key_symbols_t* symbols = nullptr;
    ~Connection() {
        if (symbols)
            xcb_key_symbols_free(symbols);
        if (xcb)
            xcb_disconnect(xcb);
    }
};

std::unique_ptr<X11GlobalShortcuts> X11GlobalShortcuts::connect(QObject* parent) {
    auto c = std::make_unique<Connection>();
    int screenNumber = 0;
    c->xcb = xcb_connect(nullptr, &screenNumber);
    if (!c->xcb || xcb_connection_has_error(c->xcb))
        return nullptr;
    xcb_screen_iterator_t it = xcb_setup_roots_iterator(xcb_get_setup(c->xcb));
    for (int i = 0; i < screenNumber && it.rem; ++i)
        xcb_screen_next(&it);
    if (!it.rem)
        return nullptr;
    c->root = it.data->root;
    c->symbols = xcb_key_symbols_alloc(c->xcb);
    if (!c->symbols)
        return nullptr;
    return std::unique_ptr<X11GlobalShortcuts>(new X11GlobalShortcuts(std::move(c), parent));
}

X11GlobalShortcuts::X11GlobalShortcuts(std::unique_ptr<Connection> connection, QObject* parent)
    : GlobalShortcutBackend(parent)
    , m_connection(std::move(connection)) {
    auto* notifier = new QSocketNotifier(xcb_get_file_descriptor(m_connection->xcb),
                                         QSocketNotifier::Read, this);
    QObject::connect(notifier, &QSocketNotifier::activated, this, [this] { readEvents(); });
}

X11GlobalShortcuts::~X11GlobalShortcuts() {
    for (const auto& [id, g] : m_grabs)
        ungrab(g);
    xcb_flush(m_connection->xcb);
}

int X11GlobalShortcuts::grab(std::uint32_t id, QKeyCombination keys) {
    release(id);
    const std::uint32_t keysym = keysymFor(keys.key());
    if (!keysym)
        return XCB_VALUE; // not a key a shortcut can name
    xcb_connection_t* xcb = m_connection->xcb;
    XcbPtr<xcb_keycode_t> codes(xcb_key_symbols_get_keycode(m_connection->symbols, keysym));
    Grab g{{}, xModifiers(keys.keyboardModifiers())};
    for (xcb_keycode_t* k = codes.get(); k && *k != XCB_NO_SYMBOL; ++k)
        g.keycodes.push_back(*k);
    if (g.keycodes.empty())
        return XCB_VALUE; // no key on this keyboard makes that symbol
    // X lets a client grab the same key twice; refuse it as X refuses another client's, so a
    // second action given the same shortcut is reported instead of firing along.
    for (const auto& [other, held] : m_grabs)
        if (held.modifiers == g.modifiers)
            for (std::uint8_t code : g.keycodes)
                if (std::find(held.keycodes.begin(), held.keycodes.end(), code) !=
                    held.keycodes.end())
                    return XCB_ACCESS;

    std::vector<xcb_void_cookie_t> cookies;
    for (std::uint8_t code : g.keycodes)
        for (std::uint16_t lock : kLockVariants)
            cookies.push_back(xcb_grab_key_checked(xcb, 1, m_connection->root,
                                                   std::uint16_t(g.modifiers | lock), code,
                                                   XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
    int status = 0;
    for (const auto& cookie : cookies)
        if (XcbPtr<xcb_generic_error_t> error{xcb_request_check(xcb, cookie)}; error && !status)
            status = error->error_code;
    if (status) {
        // Another client holds it: drop the variants we did get, so the key stays theirs.
        ungrab(g);
        xcb_flush(xcb);
        return status;
    }
    m_grabs[id] = std::move(g);
    return 0;
}

void X11GlobalShortcuts::release(std::uint32_t id) {
    const auto it = m_grabs.find(id);
    if (it == m_grabs.end())
        return;
    ungrab(it->second);
    m_grabs.erase(it);
    xcb_flush(m_connection->xcb);
}

void X11GlobalShortcuts::ungrab(const Grab& g) {
    for (std::uint8_t code : g.keycodes)
        for (std::uint16_t lock : kLockVariants)
            xcb_ungrab_key(m_connection->xcb, code, m_connection->root,
                           std::uint16_t(g.modifiers | lock));
}

void X11GlobalShortcuts::readEvents() {
    while (XcbPtr<xcb_generic_event_t> event{xcb_poll_for_event(m_connection->xcb)}) {
        if ((event->response_type & 0x7f) != XCB_KEY_PRESS)
            continue;
        const auto* press = reinterpret_cast<const xcb_key_press_event_t*>(event.get());
        const std::uint16_t state = press->state & ~kIgnoredModifiers & 0xff;
        for (const auto& [id, g] : m_grabs) {
            if (g.modifiers != state)
                continue;
            for (std::uint8_t code : g.keycodes) {
                if (code != press->detail)
                    continue;
                // Handlers run after this read, so they may grab and release freely.
                const std::uint32_t pressed = id;
                QTimer::singleShot(0, this, [this, pressed] { Q_EMIT activated(pressed); });
            }
        }
    }
}

} // namespace qm
