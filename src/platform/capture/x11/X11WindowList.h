#pragma once

#include "platform/capture/api/ScreenCaptureBackend.h"
#include "platform/capture/x11/X11Display.h"

#include <QRect>
#include <cstdint>
#include <optional>
#include <vector>

namespace qm::platform::x11 {

// The windows of the EWMH stacking list (the root's children without a window manager that
// keeps one), front-most first, viewable and not hidden.
std::vector<ServerWindow> listWindows(X11Display& display);

// The client window that has the keyboard focus, as the window manager says.
std::optional<std::uint32_t> activeWindow(X11Display& display);

// The shadow extents (left, right, top, bottom) a frame's client declares: on the frame
// itself when the window manager did not reparent it, else on one of its children.
std::vector<uint32_t> shadowExtents(X11Display& display, xcb_window_t frame);

// Windows that draw their own decorations (GTK's client-side ones) pad themselves with an
// invisible shadow and say how wide it is; the window the user sees lies inside.
QRect withoutShadow(const QRect& frame, const std::vector<uint32_t>& extents);

} // namespace qm::platform::x11
