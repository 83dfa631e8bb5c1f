#pragma once

#include "platform/xcb/XcbHandles.h"

#include <QByteArray>
#include <QRect>
#include <memory>

namespace qm::platform::x11 {

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
    WmName,
    Utf8String,
    CompositorSelection,
    AtomCount
};

// The capture backend's own connection to an X display: its screen, the atoms it asks about
// and the extensions the server offers.
struct X11Display {
    // Connects to the named display (DISPLAY when empty); nothing when it cannot be reached
    // or its pixel format is one we cannot read.
    static std::unique_ptr<X11Display> open(const QByteArray& displayName);

    Connection connection;
    xcb_connection_t* c = nullptr;
    xcb_screen_t* screen = nullptr;
    int screenNumber = 0;
    bool hasShm = false;
    bool hasComposite = false;
    bool hasMonitors = false;
    xcb_atom_t atoms[AtomCount] = {};

    bool lost() const { return xcb_connection_has_error(c) != 0; }
    QRect rootRect() const;
    // Errors of requests without replies land in the event queue; nobody else reads it.
    void drainEvents();
    xcb_get_property_cookie_t property(xcb_window_t window, xcb_atom_t atom, xcb_atom_t type,
                                       uint32_t longs) const;
    // Whether a compositing manager owns the screen's _NET_WM_CM_Sn selection.
    bool compositorRunning();
};

} // namespace qm::platform::x11
