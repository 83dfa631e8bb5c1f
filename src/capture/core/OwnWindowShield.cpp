#include "capture/core/OwnWindowShield.h"

#include "platform/surface/api/SurfaceBackend.h"

#include <QGuiApplication>
#include <QWindow>
#include <utility>
#include <vector>

namespace qm {

namespace {

struct Shown {
    WId id;
    QPointer<QWindow> window;
};

// Our windows on screen that the window manager does not look after: the floating ones and
// tool-tips (a card's, when the shortcut is pressed with the pointer on a button).
std::vector<Shown> floatingWindows() {
    std::vector<Shown> shown;
    const auto windows = QGuiApplication::topLevelWindows();
    for (QWindow* window : windows)
        if (window->isVisible() && window->handle() &&
            (window->flags().testFlag(Qt::X11BypassWindowManagerHint) ||
             window->type() == Qt::ToolTip))
            shown.push_back({window->winId(), window});
    return shown;
}

} // namespace

bool OwnWindowShield::anyShown() {
    return !floatingWindows().empty();
}

OwnWindowShield::OwnWindowShield(platform::SurfaceBackend& surfaces, QObject* parent)
    : QObject(parent)
    , m_surfaces(surfaces) {}

void OwnWindowShield::around(const QRect& pixelArea, Grab grab) {
    m_queue.push_back({pixelArea, std::move(grab)});
    if (!m_busy)
        next();
}

void OwnWindowShield::next() {
    if (m_queue.empty())
        return;
    m_busy = true;
    Pending pending = std::move(m_queue.front());
    m_queue.pop_front();

    const std::vector<Shown> shown = floatingWindows();
    std::vector<WId> ids;
    ids.reserve(shown.size());
    for (const Shown& s : shown)
        ids.push_back(s.id);
    QPointer<OwnWindowShield> self(this);
    m_surfaces.withdraw(ids, pending.area,
                        [self, shown, grab = std::move(pending.grab)](std::vector<WId> withdrawn) {
                            if (!self)
                                return;
                            grab([self, shown, withdrawn = std::move(withdrawn)] {
                                if (!self)
                                    return;
                                // Only what Qt still shows comes back: a card closed meanwhile
                                // stays away.
                                std::vector<WId> back;
                                for (const WId id : withdrawn)
                                    for (const Shown& s : shown)
                                        if (s.id == id && s.window && s.window->isVisible() &&
                                            s.window->winId() == id)
                                            back.push_back(id);
                                self->m_surfaces.restore(back);
                                self->m_busy = false;
                                self->next();
                            });
                        });
}

void ShieldedGrabber::keepOwnWindowsOut(platform::SurfaceBackend& surfaces) {
    m_shield = std::make_unique<OwnWindowShield>(surfaces);
}

void ShieldedGrabber::grabDisplay(const QRect& pixelRect,
                                  platform::BackendCompletion<QImage> done) {
    if (!m_shield)
        return m_backend.grabDisplay(pixelRect, std::move(done));
    platform::ScreenCaptureBackend* backend = &m_backend;
    m_shield->around(pixelRect, [backend, pixelRect, done](std::function<void()> finished) {
        backend->grabDisplay(pixelRect, [done, finished](const CaptureResult<QImage>& grabbed) {
            finished();
            done(grabbed);
        });
    });
}

void ShieldedGrabber::grabWindow(std::uint32_t id,
                                 platform::BackendCompletion<platform::WindowImage> done) {
    if (!m_shield)
        return m_backend.grabWindow(id, std::move(done));
    // Only our windows over this one need to go.
    QRect frame = OwnWindowShield::everywhere();
    if (OwnWindowShield::anyShown())
        for (const auto& window : m_backend.windowList())
            if ((window.id == id || window.clientId == id) && window.bounds)
                frame = *window.bounds;
    platform::ScreenCaptureBackend* backend = &m_backend;
    m_shield->around(frame, [backend, id, done](std::function<void()> finished) {
        backend->grabWindow(id,
                            [done, finished](const CaptureResult<platform::WindowImage>& grabbed) {
                                finished();
                                done(grabbed);
                            });
    });
}

} // namespace qm
