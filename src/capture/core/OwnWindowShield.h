#pragma once

#include "platform/capture/api/ScreenCaptureBackend.h"

#include <QObject>
#include <QPointer>
#include <QRect>
#include <deque>
#include <functional>
#include <memory>

class QWindow;

namespace qm {

namespace platform {
class SurfaceBackend;
}

// Keeps the program's own floating windows (cards, toasts, the countdown, the flash) out of
// captures: the ones over the captured area are taken off the screen just before the grab
// and put back as soon as its pixels are read. Windows the window manager looks after (the
// editor, settings) are left alone. One grab at a time: a second waits for the first, so a
// window put back by one never shows up in the other.
class OwnWindowShield final : public QObject {
    Q_OBJECT
public:
    // Reads the pixels, then calls `finished`, which puts our windows back.
    using Grab = std::function<void(std::function<void()> finished)>;

    explicit OwnWindowShield(platform::SurfaceBackend& surfaces, QObject* parent = nullptr);

    // Runs `grab` once our windows over `pixelArea` (device pixels of the desktop) are off the
    // screen and the desktop beneath them is drawn again.
    void around(const QRect& pixelArea, Grab grab);

    // Whether any of our floating windows is on screen at all.
    static bool anyShown();
    // Every pixel of the desktop.
    static QRect everywhere() { return {-32768, -32768, 65536, 65536}; }

private:
    struct Pending {
        QRect area;
        Grab grab;
    };
    void next();

    platform::SurfaceBackend& m_surfaces;
    std::deque<Pending> m_queue;
    bool m_busy = false;
};

// A capture backend's grabs, with our own windows kept out once that is asked for.
class ShieldedGrabber {
public:
    explicit ShieldedGrabber(platform::ScreenCaptureBackend& backend)
        : m_backend(backend) {}

    void keepOwnWindowsOut(platform::SurfaceBackend& surfaces);

    void grabDisplay(const QRect& pixelRect, platform::BackendCompletion<QImage> done);
    void grabWindow(std::uint32_t id, platform::BackendCompletion<platform::WindowImage> done);

private:
    platform::ScreenCaptureBackend& m_backend;
    std::unique_ptr<OwnWindowShield> m_shield;
};

} // namespace qm
