#pragma once

#include "platform/capture/api/CaptureFailure.h"

#include <QImage>
#include <QRect>
#include <QString>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace qm::platform {

// All rectangles here are in device pixels of the display server's desktop (the X root
// window), top-left origin; mapping to Qt's logical points is the capture core's job.

// One monitor the display server can capture.
struct ShareableDisplay {
    QString name;        // equals QScreen::name() of the matching screen
    QRect pixelGeometry; // where the monitor's pixels lie on the desktop
    friend bool operator==(const ShareableDisplay&, const ShareableDisplay&) = default;
};

// What can be captured at all. Asking for it may be slow on some systems, which is why the
// capture core caches it.
struct ShareableContent {
    std::vector<ShareableDisplay> displays;
    std::vector<std::uint32_t> windows; // windows that can be captured on their own
};

// One entry of the window server's stacking list, as it reports it; filtering is left to the
// caller so that the rules live in one place.
struct ServerWindow {
    std::uint32_t id = 0;        // the top-level window to capture (the frame, with decorations)
    std::uint32_t clientId = 0;  // the application's own window inside that frame
    std::optional<int> layer;    // 0 for normal and dialog windows, other values above or below
    std::optional<double> alpha; // 0…1 when the window asks for translucency
    std::optional<std::int64_t> pid;  // owning process, when it says
    std::optional<QRect> bounds;      // the frame, including decorations
    std::optional<QString> ownerName; // the application's name
    std::optional<QString> title;     // what the window's title bar says
};

// The pixels of one window and where its frame lies on the desktop.
struct WindowImage {
    QImage image;
    QRect pixelBounds;
};

template <class T> using BackendCompletion = std::function<void(CaptureResult<T>)>;

// A display server's capture service. Completions run exactly once, on the main thread and
// never inside the call that started them, so a backend that must ask a portal and wait can
// implement the same interface. A destroyed backend drops the completions it still holds.
class ScreenCaptureBackend {
public:
    virtual ~ScreenCaptureBackend() = default;

    // Short name for logs and tests ("x11", "null").
    virtual QString name() const = 0;
    // Why nothing can be captured here, in one sentence for the user; empty when capture works.
    virtual QString unavailableReason() const { return {}; }

    virtual void fetchContent(BackendCompletion<ShareableContent> done) = 0;
    // The current windows, front-most first, on screen only. Fast: asked on every freeze.
    virtual std::vector<ServerWindow> windowList() = 0;
    // The pixels of a desktop rectangle (normally one display's pixelGeometry).
    virtual void grabDisplay(const QRect& pixelRect, BackendCompletion<QImage> done) = 0;
    // One window (a ServerWindow::id), live where the server keeps its pixels.
    virtual void grabWindow(std::uint32_t id, BackendCompletion<WindowImage> done) = 0;
    // The window that has the keyboard focus (a ServerWindow::clientId), if any.
    virtual std::optional<std::uint32_t> activeWindow() = 0;
};

} // namespace qm::platform
