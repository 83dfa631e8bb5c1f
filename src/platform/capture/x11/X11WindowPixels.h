#pragma once

#include "platform/capture/api/ScreenCaptureBackend.h"
#include "platform/capture/x11/X11Display.h"
#include "platform/capture/x11/X11ImageReader.h"

#include <cstdint>

namespace qm::platform::x11 {

// The pixels of one top-level window without its invisible shadow: from the window's own
// pixmap when a compositing manager keeps one (covered parts included), else the part of the
// screen it shows on.
CaptureResult<WindowImage> readWindow(X11Display& display, X11ImageReader& reader,
                                      std::uint32_t id);

} // namespace qm::platform::x11
