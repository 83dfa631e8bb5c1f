#pragma once

#include "platform/capture/api/ScreenCaptureBackend.h"

#include <QByteArray>
#include <QObject>
#include <memory>

namespace qm::platform {

// Capture on an X11 desktop through its own xcb connection: MIT-SHM images of the root window,
// the EWMH stacking list for windows, and XComposite for live windows when a compositing
// manager keeps their pixels. All server calls are quick and made on the calling (main)
// thread; completions are posted back to it.
class X11CaptureBackend final : public ScreenCaptureBackend {
public:
    // Connects to the named display (DISPLAY when empty); nothing when it cannot be reached
    // or its pixel format is one we cannot read.
    static std::unique_ptr<X11CaptureBackend> connect(const QByteArray& displayName = {});
    ~X11CaptureBackend() override;

    QString name() const override { return QStringLiteral("x11"); }

    void fetchContent(BackendCompletion<ShareableContent> done) override;
    std::vector<ServerWindow> windowList() override;
    void grabDisplay(const QRect& pixelRect, BackendCompletion<QImage> done) override;
    void grabWindow(std::uint32_t id, BackendCompletion<WindowImage> done) override;
    std::optional<std::uint32_t> activeWindow() override;

    // The same requests answered at once, for callers that are not on an event loop.
    CaptureResult<ShareableContent> fetchContentNow();
    CaptureResult<QImage> grabDisplayNow(const QRect& pixelRect);
    CaptureResult<WindowImage> grabWindowNow(std::uint32_t id);

    // Whether a compositing manager owns the screen's _NET_WM_CM_Sn selection, in which case
    // windows are captured from their own pixmaps, covered parts included.
    bool compositorRunning();

private:
    struct Private;
    explicit X11CaptureBackend(std::unique_ptr<Private> d);

    std::unique_ptr<Private> d;
    QObject m_context; // completions are posted to it, so they die with the backend
};

} // namespace qm::platform
