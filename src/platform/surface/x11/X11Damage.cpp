#include "platform/surface/x11/X11Damage.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <sys/uio.h>
#include <xcb/xcb.h>
#include <xcb/xcbext.h>

namespace qm::platform {

namespace {

// The extension's wire format (damageproto 1.1).
xcb_extension_t damageExtension = {"DAMAGE", 0};
constexpr std::uint8_t kQueryVersion = 0;
constexpr std::uint8_t kCreate = 1;
constexpr std::uint8_t kDestroy = 2;
constexpr std::uint8_t kNotify = 0;        // the only event, at the event base
constexpr std::uint8_t kRawRectangles = 0; // one event per rectangle drawn

struct Header {
    std::uint8_t major = 0; // filled in by xcb, as is the length
    std::uint8_t minor = 0;
    std::uint16_t length = 0;
};
struct QueryVersionRequest {
    Header header;
    std::uint32_t major;
    std::uint32_t minor;
};
struct QueryVersionReply {
    std::uint8_t responseType;
    std::uint8_t pad0;
    std::uint16_t sequence;
    std::uint32_t length;
    std::uint32_t major;
    std::uint32_t minor;
    std::uint8_t pad1[16];
};
struct CreateRequest {
    Header header;
    std::uint32_t damage;
    std::uint32_t drawable;
    std::uint8_t level;
    std::uint8_t pad[3];
};
struct DestroyRequest {
    Header header;
    std::uint32_t damage;
};
struct NotifyEvent {
    std::uint8_t responseType;
    std::uint8_t level;
    std::uint16_t sequence;
    std::uint32_t drawable;
    std::uint32_t damage;
    std::uint32_t timestamp;
    std::int16_t x, y;
    std::uint16_t width, height;
    std::int16_t geometryX, geometryY;
    std::uint16_t geometryWidth, geometryHeight;
};
static_assert(sizeof(NotifyEvent) == 32);

template <class Request>
unsigned send(xcb_connection_t* c, std::uint8_t opcode, bool isVoid, Request& request) {
    const xcb_protocol_request_t protocol{2, &damageExtension, opcode, std::uint8_t(isVoid)};
    iovec parts[4] = {};
    parts[2].iov_base = &request;
    parts[2].iov_len = sizeof(Request);
    parts[3].iov_base = nullptr;
    parts[3].iov_len = -sizeof(Request) & 3;
    return xcb_send_request(c, isVoid ? 0 : XCB_REQUEST_CHECKED, parts + 2, &protocol);
}

} // namespace

std::optional<X11Damage> X11Damage::negotiate(xcb_connection_t* c) {
    const xcb_query_extension_reply_t* extension = xcb_get_extension_data(c, &damageExtension);
    if (!extension || !extension->present)
        return std::nullopt;
    // The server refuses the other requests until the client has said which version it speaks.
    QueryVersionRequest request{{}, 1, 1};
    const unsigned sequence = send(c, kQueryVersion, false, request);
    xcb_generic_error_t* error = nullptr;
    std::unique_ptr<void, decltype(&std::free)> reply(xcb_wait_for_reply(c, sequence, &error),
                                                      &std::free);
    std::free(error);
    if (!reply)
        return std::nullopt;
    return X11Damage(c, extension->first_event);
}

std::uint32_t X11Damage::create(std::uint32_t drawable) const {
    CreateRequest request{{}, xcb_generate_id(m_connection), drawable, kRawRectangles, {}};
    send(m_connection, kCreate, true, request);
    return request.damage;
}

void X11Damage::destroy(std::uint32_t damage) const {
    DestroyRequest request{{}, damage};
    send(m_connection, kDestroy, true, request);
}

std::optional<X11Damage::Notify> X11Damage::parse(const void* message) const {
    const auto* event = static_cast<const xcb_generic_event_t*>(message);
    if ((event->response_type & 0x7f) != m_eventBase + kNotify)
        return std::nullopt;
    NotifyEvent notify;
    std::memcpy(&notify, event, sizeof notify);
    return Notify{notify.damage, notify.sequence,
                  QRect(notify.x, notify.y, notify.width, notify.height)};
}

} // namespace qm::platform
