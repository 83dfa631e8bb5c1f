#include "capture/core/ScreenCaptureManager.h"

#include "base/Log.h"
#include "base/Screens.h"
#include "capture/core/CaptureGeometry.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QPointer>
#include <QScreen>

namespace qm {

namespace {

constexpr std::chrono::duration<double> kContentMaxAge{5.0};
constexpr double kMinimumWindowPoints = 40.0;

CaptureFailure noDisplay() {
    return CaptureFailure{CaptureError::NoDisplay, {}};
}
CaptureFailure noWindow() {
    return CaptureFailure{CaptureError::NoWindow, {}};
}

QScreen* screenNamed(const QString& name) {
    const auto screens = QGuiApplication::screens();
    for (QScreen* screen : screens)
        if (screen->name() == name)
            return screen;
    return nullptr;
}

// Runs `done` unless the caller went away meanwhile.
template <class T, class V>
void answer(const QPointer<QObject>& context, const std::function<void(CaptureResult<T>)>& done,
            V&& value) {
    if (context)
        done(CaptureResult<T>(std::forward<V>(value)));
}

} // namespace

ScreenCaptureManager::ScreenCaptureManager(platform::ScreenCaptureBackend& backend,
                                           ShareableContentCache& cache, QObject* parent)
    : QObject(parent)
    , m_backend(backend)
    , m_cache(cache)
    , m_grabber(backend) {}

void ScreenCaptureManager::keepOwnWindowsOut(platform::SurfaceBackend& surfaces) {
    m_grabber.keepOwnWindowsOut(surfaces);
}

QString ScreenCaptureManager::displayId(const QScreen* screen) {
    return screen ? screen->name() : QString();
}

double ScreenCaptureManager::scaleOfPixels(const platform::ShareableContent& content,
                                           const QRect& pixels) const {
    for (const auto& display : content.displays)
        if (display.pixelGeometry.contains(pixels.center()))
            if (QScreen* screen = screenNamed(display.name))
                return screen->devicePixelRatio();
    QScreen* fallback = screenUnderPointer();
    return fallback ? fallback->devicePixelRatio() : 1.0;
}

void ScreenCaptureManager::capture(QScreen* screen, QObject* context,
                                   Completion<DisplayCapture> done) {
    QPointer<QObject> caller(context);
    QPointer<QScreen> target(screen);
    auto clock = std::make_shared<QElapsedTimer>();
    clock->start();
    m_cache.current(
        kContentMaxAge, this, [=, this](const CaptureResult<platform::ShareableContent>& content) {
            if (!content.ok())
                return answer(caller, done, content.error());
            const double contentMs = double(clock->nsecsElapsed()) / 1e6;
            const auto& shareable = content.value();
            const auto display = displayFor(displayId(target), shareable);
            if (!target || !display)
                return answer(caller, done, noDisplay());
            const PixelMapping mapping{target->geometry().topLeft(),
                                       display->pixelGeometry.topLeft(),
                                       target->devicePixelRatio()};
            QPointer<ScreenCaptureManager> self(this);
            m_grabber.grabDisplay(
                display->pixelGeometry, [=](const CaptureResult<QImage>& grabbed) {
                    if (!self)
                        return;
                    if (!grabbed.ok())
                        return answer(caller, done, grabbed.error());
                    const double screenshotMs = double(clock->nsecsElapsed()) / 1e6 - contentMs;
                    qCInfo(lcCapture).noquote() << QString::asprintf(
                        "Quillmark freeze timing: content %.0f ms, screenshot %.0f ms", contentMs,
                        screenshotMs);
                    DisplayCapture frozen;
                    frozen.image = grabbed.value();
                    frozen.image.setDevicePixelRatio(mapping.scale);
                    frozen.screen = target;
                    frozen.scale = mapping.scale;
                    frozen.pixelOrigin = mapping.pixelOrigin;
                    frozen.geometry =
                        QRectF(mapping.logicalOrigin, QSizeF(frozen.image.size()) / mapping.scale);
                    frozen.windows =
                        onScreenWindows(self->m_backend.windowList(),
                                        QCoreApplication::applicationPid(), shareable, mapping);
                    answer(caller, done, std::move(frozen));
                });
        });
}

void ScreenCaptureManager::captureActiveDisplay(QObject* context, Completion<DisplayCapture> done) {
    QScreen* screen = screenUnderPointer();
    if (!screen) {
        QPointer<QObject> caller(context);
        QMetaObject::invokeMethod(
            this, [caller, done] { answer(caller, done, noDisplay()); }, Qt::QueuedConnection);
        return;
    }
    capture(screen, context, std::move(done));
}

void ScreenCaptureManager::captureFullScreen(QObject* context, Completion<QImage> done) {
    QPointer<QObject> caller(context);
    QPointer<QScreen> target(screenUnderPointer());
    shareableDisplay(
        target, this, [=, this](const CaptureResult<platform::ShareableDisplay>& display) {
            if (!display.ok())
                return answer(caller, done, display.error());
            if (!target)
                return answer(caller, done, noDisplay());
            const double scale = target->devicePixelRatio();
            m_grabber.grabDisplay(display.value().pixelGeometry,
                                  [=](const CaptureResult<QImage>& grabbed) {
                                      if (grabbed.ok()) {
                                          QImage result = grabbed.value();
                                          result.setDevicePixelRatio(scale);
                                          return answer(caller, done, std::move(result));
                                      }
                                      answer(caller, done, grabbed.error());
                                  });
        });
}

void ScreenCaptureManager::captureWindow(const CapturedWindow& window, QObject* context,
                                         Completion<QImage> done) {
    QPointer<QObject> caller(context);
    if (!window.windowId) {
        QMetaObject::invokeMethod(
            this, [caller, done] { answer(caller, done, noWindow()); }, Qt::QueuedConnection);
        return;
    }
    const std::uint32_t id = *window.windowId;
    m_cache.current(
        kContentMaxAge, this, [=, this](const CaptureResult<platform::ShareableContent>& content) {
            if (!content.ok())
                return answer(caller, done, content.error());
            const auto shareable = content.value();
            QPointer<ScreenCaptureManager> self(this);
            m_grabber.grabWindow(id, [=](const CaptureResult<platform::WindowImage>& grabbed) {
                if (!self)
                    return;
                if (!grabbed.ok())
                    return answer(caller, done, grabbed.error());
                const auto& shot = grabbed.value();
                QImage image = shot.image;
                image.setDevicePixelRatio(self->scaleOfPixels(shareable, shot.pixelBounds));
                answer(caller, done, std::move(image));
            });
        });
}

void ScreenCaptureManager::captureFrontWindow(QObject* context, Completion<QImage> done) {
    QPointer<QObject> caller(context);
    QPointer<ScreenCaptureManager> self(this);
    // Asks afresh, without the cache: the front window is whatever it is now.
    m_backend.fetchContent([=](const CaptureResult<platform::ShareableContent>& content) {
        if (!self)
            return;
        if (!content.ok())
            return answer(caller, done, content.error());
        const auto& shareable = content.value();
        const auto active = self->m_backend.activeWindow();
        const auto windows = self->m_backend.windowList();
        auto points = [&](const platform::ServerWindow& w) {
            const double scale = self->scaleOfPixels(shareable, *w.bounds);
            return QSizeF(w.bounds->size()) / scale;
        };
        const platform::ServerWindow* chosen = nullptr;
        for (const auto& w : windows) {
            if (active && (w.clientId == *active || w.id == *active) && w.bounds &&
                points(w).width() > kMinimumWindowPoints &&
                points(w).height() > kMinimumWindowPoints) {
                chosen = &w;
                break;
            }
        }
        if (!chosen)
            for (const auto& w : windows)
                if (w.layer == 0 && w.bounds && points(w).width() > kMinimumWindowPoints) {
                    chosen = &w;
                    break;
                }
        if (!chosen)
            return answer(caller, done, noWindow());
        const double scale = self->scaleOfPixels(shareable, *chosen->bounds);
        self->m_grabber.grabWindow(chosen->id,
                                   [=](const CaptureResult<platform::WindowImage>& grabbed) {
                                       if (!grabbed.ok())
                                           return answer(caller, done, grabbed.error());
                                       QImage image = grabbed.value().image;
                                       image.setDevicePixelRatio(scale);
                                       answer(caller, done, std::move(image));
                                   });
    });
}

void ScreenCaptureManager::shareableDisplay(QScreen* screen, QObject* context,
                                            Completion<platform::ShareableDisplay> done) {
    QPointer<QObject> caller(context);
    const QString id = displayId(screen);
    const bool hasScreen = screen != nullptr;
    m_cache.current(kContentMaxAge, this,
                    [=](const CaptureResult<platform::ShareableContent>& content) {
                        if (!content.ok())
                            return answer(caller, done, content.error());
                        const auto display = displayFor(id, content.value());
                        if (!hasScreen || !display)
                            return answer(caller, done, noDisplay());
                        answer(caller, done, *display);
                    });
}

std::optional<QImage> ScreenCaptureManager::crop(const DisplayCapture& capture,
                                                 const QRectF& rect) {
    const auto pixels = cropPixels(capture.geometry, capture.scale, capture.image.size(), rect);
    if (!pixels)
        return std::nullopt;
    QImage region = capture.image.copy(*pixels);
    if (region.isNull())
        return std::nullopt;
    region.setDevicePixelRatio(capture.scale);
    return region;
}

} // namespace qm
