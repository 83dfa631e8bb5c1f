#pragma once

#include "base/Result.h"
#include "platform/xcb/XcbHandles.h"

#include <QByteArray>
#include <QRect>
#include <memory>
#include <vector>

namespace qm::platform::x11 {

// A screen stream's own connection to the X display: the screen, and which of the extensions
// a stream uses (shared memory, the pointer's picture, monitors) the server offers.
struct X11VideoDisplay {
    // Connects to the named display (DISPLAY when empty), or says why it cannot record it.
    static Result<std::unique_ptr<X11VideoDisplay>> open(const QByteArray& displayName);

    Connection connection;
    xcb_connection_t* c = nullptr;
    xcb_screen_t* screen = nullptr;
    bool hasShm = false;
    bool hasXFixes = false;
    bool hasMonitors = false;
    std::uint8_t randrEvents = 0;  // the first event number of RandR, when present
    std::uint8_t xfixesEvents = 0; // the same for XFixes

    bool lost() const { return xcb_connection_has_error(c) != 0; }
    // The desktop as the server sees it now; asks the server, since it can be resized.
    QRect rootRect() const;
    // The monitors that show the desktop; the whole desktop when RandR does not list any.
    std::vector<QRect> monitors() const;
    // Asks to hear of monitor changes and, with XFixes, of pointer shape changes.
    void watchChanges(bool pointerShape);
};

} // namespace qm::platform::x11
