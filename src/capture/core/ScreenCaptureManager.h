#pragma once

#include "capture/core/CaptureTypes.h"
#include "capture/core/OwnWindowShield.h"
#include "capture/core/ShareableContentCache.h"
#include "platform/capture/api/ScreenCaptureBackend.h"

#include <QObject>
#include <functional>
#include <optional>

class QScreen;

namespace qm {

// Still captures: frozen screens with their window lists, single windows, the front window,
// and crops of a frozen screen. Holds no state of its own; the content cache and the backend
// are passed in. Every operation answers once through `done`, on the main thread and later,
// unless `context` (never null) is gone by then.
class ScreenCaptureManager : public QObject {
    Q_OBJECT
public:
    template <class T> using Completion = std::function<void(CaptureResult<T>)>;

    ScreenCaptureManager(platform::ScreenCaptureBackend& backend, ShareableContentCache& cache,
                         QObject* parent = nullptr);

    // From now on our own floating windows are taken off the screen for every grab they
    // would show in. The surfaces outlive the manager.
    void keepOwnWindowsOut(platform::SurfaceBackend& surfaces);

    // Freezes one screen: its pixels at full resolution and the windows on the desktop.
    void capture(QScreen* screen, QObject* context, Completion<DisplayCapture> done);
    // Freezes every screen, for a selection that may run from one monitor onto another.
    void captureDesktop(QObject* context, Completion<FrozenDesktop> done);
    // Freezes the screen under the pointer.
    void captureActiveDisplay(QObject* context, Completion<DisplayCapture> done);
    // The screen under the pointer as an image, without the window list.
    void captureFullScreen(QObject* context, Completion<QImage> done);
    // One window, live where the display server keeps its pixels (NoWindow without an id).
    void captureWindow(const CapturedWindow& window, QObject* context, Completion<QImage> done);
    // The window with the keyboard focus, else the front-most ordinary window.
    void captureFrontWindow(QObject* context, Completion<QImage> done);
    // The display server's monitor for a screen (for recording).
    void shareableDisplay(QScreen* screen, QObject* context,
                          Completion<platform::ShareableDisplay> done);

    // A region (global points) of a frozen screen at its full resolution, rounded outwards to
    // whole pixels and clipped to the screen; nothing when it misses the screen.
    static std::optional<QImage> crop(const DisplayCapture& capture, const QRectF& rect);
    // A region (global points) of the frozen desktop, each part from its own screen at that
    // screen's resolution; what no monitor covers is transparent.
    static std::optional<QImage> crop(const FrozenDesktop& desktop, const QRectF& rect);

    // The name by which the display server knows the screen.
    static QString displayId(const QScreen* screen);

private:
    double scaleOfPixels(const platform::ShareableContent& content, const QRect& pixels) const;

    platform::ScreenCaptureBackend& m_backend;
    ShareableContentCache& m_cache;
    ShieldedGrabber m_grabber; // every grab goes through it
};

} // namespace qm
