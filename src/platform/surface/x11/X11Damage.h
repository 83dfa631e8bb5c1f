#pragma once

#include <QRect>
#include <cstdint>
#include <optional>

struct xcb_connection_t;

namespace qm::platform {

// The X DAMAGE extension, spoken directly on a connection: its handful of requests are all
// we use, which spares a library dependency. The server reports every rectangle drawn into a
// drawable, by any program, as an event on our connection.
class X11Damage {
public:
    struct Notify {
        std::uint32_t damage = 0;
        // The low 16 bits of the last request of ours the server had handled when it drew.
        std::uint16_t sequence = 0;
        QRect area; // in the drawable's coordinates
    };

    // Nothing when the server does not offer the extension. Makes one round trip.
    static std::optional<X11Damage> negotiate(xcb_connection_t* connection);

    // Starts reporting each rectangle drawn into the drawable (and the windows inside it).
    std::uint32_t create(std::uint32_t drawable) const;
    void destroy(std::uint32_t damage) const;
    // The report an event carries, when it is one of this extension's.
    // `event` is an xcb_generic_event_t.
    std::optional<Notify> parse(const void* event) const;

private:
    X11Damage(xcb_connection_t* connection, std::uint8_t eventBase)
        : m_connection(connection)
        , m_eventBase(eventBase) {}

    xcb_connection_t* m_connection;
    std::uint8_t m_eventBase;
};

} // namespace qm::platform
