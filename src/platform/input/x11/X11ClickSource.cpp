#include "platform/input/x11/X11ClickSource.h"

#include <QSocketNotifier>
#include <cstdlib>
#include <memory>
#include <xcb/xcb.h>
#include <xcb/xinput.h>

namespace qm::platform {

namespace {

struct ConnectionCloser {
    void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
};
using Connection = std::unique_ptr<xcb_connection_t, ConnectionCloser>;

template <class Reply> struct ReplyFree {
    void operator()(Reply* reply) const { std::free(reply); }
};
template <class Reply> using ReplyPtr = std::unique_ptr<Reply, ReplyFree<Reply>>;

// X button numbers; the wheel (4–7) and the middle button are not clicks worth a ripple.
constexpr std::uint32_t kLeftButton = 1;
constexpr std::uint32_t kRightButton = 3;

class X11ClickWatch final : public ClickWatch {
public:
    X11ClickWatch(Connection connection, xcb_window_t root, std::uint8_t opcode,
                  ClickSourceBackend::ClickSink sink)
        : m_connection(std::move(connection))
        , m_root(root)
        , m_opcode(opcode)
        , m_sink(std::move(sink))
        , m_notifier(xcb_get_file_descriptor(m_connection.get()), QSocketNotifier::Read) {
        QObject::connect(&m_notifier, &QSocketNotifier::activated, &m_notifier,
                         [this] { drain(); });
        drain(); // events read while setting up would not wake the notifier
    }
    ~X11ClickWatch() override { *m_alive = false; }

private:
    void drain() {
        // The sink may end the watch; nothing of this object is touched after that.
        const std::shared_ptr<bool> alive = m_alive;
        xcb_connection_t* c = m_connection.get();
        while (xcb_generic_event_t* raw = xcb_poll_for_event(c)) {
            std::unique_ptr<xcb_generic_event_t, ReplyFree<xcb_generic_event_t>> event(raw);
            if ((event->response_type & 0x7f) != XCB_GE_GENERIC)
                continue;
            const auto* generic = reinterpret_cast<const xcb_ge_generic_event_t*>(raw);
            if (generic->extension != m_opcode || generic->event_type != XCB_INPUT_RAW_BUTTON_PRESS)
                continue;
            const auto* press = reinterpret_cast<const xcb_input_raw_button_press_event_t*>(raw);
            if (press->detail != kLeftButton && press->detail != kRightButton)
                continue;
            // Raw events carry no position: the pointer is where the press happened.
            ReplyPtr<xcb_query_pointer_reply_t> pointer(
                xcb_query_pointer_reply(c, xcb_query_pointer(c, m_root), nullptr));
            if (!pointer)
                continue;
            GlobalClick click;
            click.position = QPoint(pointer->root_x, pointer->root_y);
            click.button = press->detail == kLeftButton ? ClickButton::Left : ClickButton::Right;
            m_sink(click);
            if (!*alive)
                return;
        }
        if (xcb_connection_has_error(c))
            m_notifier.setEnabled(false);
    }

    Connection m_connection;
    xcb_window_t m_root;
    std::uint8_t m_opcode;
    ClickSourceBackend::ClickSink m_sink;
    QSocketNotifier m_notifier;
    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true);
};

} // namespace

X11ClickSource::X11ClickSource(QString display)
    : m_display(std::move(display)) {}

Result<std::unique_ptr<ClickWatch>> X11ClickSource::watch(ClickSink onClick) {
    const QByteArray name = m_display.toLocal8Bit();
    int screenNumber = 0;
    Connection connection(xcb_connect(name.isEmpty() ? nullptr : name.constData(), &screenNumber));
    xcb_connection_t* c = connection.get();
    if (xcb_connection_has_error(c))
        return failure(QStringLiteral("Click highlights need an X11 session"));

    const xcb_query_extension_reply_t* input = xcb_get_extension_data(c, &xcb_input_id);
    if (!input || !input->present)
        return failure(QStringLiteral("Click highlights need the X Input extension"));
    // 2.1 or later delivers raw events even while another program holds a pointer grab.
    ReplyPtr<xcb_input_xi_query_version_reply_t> version(
        xcb_input_xi_query_version_reply(c, xcb_input_xi_query_version(c, 2, 2), nullptr));
    if (!version || version->major_version < 2)
        return failure(QStringLiteral("Click highlights need X Input 2"));

    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(c));
    for (int i = 0; i < screenNumber && screens.rem; ++i)
        xcb_screen_next(&screens);
    if (!screens.rem)
        return failure(QStringLiteral("Click highlights need an X11 session"));
    const xcb_window_t root = screens.data->root;

    struct {
        xcb_input_event_mask_t head;
        std::uint32_t bits;
    } mask{};
    mask.head.deviceid = XCB_INPUT_DEVICE_ALL_MASTER;
    mask.head.mask_len = 1;
    mask.bits = XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_PRESS;
    xcb_generic_error_t* error =
        xcb_request_check(c, xcb_input_xi_select_events_checked(c, root, 1, &mask.head));
    if (error) {
        std::free(error);
        return failure(QStringLiteral("Click highlights could not watch the mouse buttons"));
    }
    return std::unique_ptr<ClickWatch>(std::make_unique<X11ClickWatch>(
        std::move(connection), root, input->major_opcode, std::move(onClick)));
}

} // namespace qm::platform
