#pragma once

// Owners for what xcb hands out, and the few helpers every X11 backend (capture, recording)
// uses to ask the server.

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <vector>
#include <xcb/xcb.h>

namespace qm::platform::x11 {

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

// Whether a checked request without a reply succeeded.
inline bool check(xcb_connection_t* c, xcb_void_cookie_t cookie) {
    XReply<xcb_generic_error_t> error(xcb_request_check(c, cookie));
    return !error;
}

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

// The values of a property reply, when it holds values of T's size.
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

} // namespace qm::platform::x11
