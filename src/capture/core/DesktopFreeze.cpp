// ScreenCaptureManager::captureDesktop: every screen frozen through capture(), so each grab
// takes the same path as a single-screen freeze.

#include "base/Screens.h"
#include "capture/core/FrozenDesktop.h"
#include "capture/core/ScreenCaptureManager.h"

#include <QGuiApplication>
#include <QPointer>
#include <QScreen>
#include <memory>

namespace qm {

void ScreenCaptureManager::captureDesktop(QObject* context, Completion<FrozenDesktop> done) {
    QPointer<QObject> caller(context);
    const QList<QScreen*> screens = QGuiApplication::screens();
    if (screens.isEmpty()) {
        QMetaObject::invokeMethod(
            this,
            [caller, done] {
                if (caller)
                    done(CaptureFailure{CaptureError::NoDisplay, {}});
            },
            Qt::QueuedConnection);
        return;
    }
    struct Join {
        std::vector<std::optional<DisplayCapture>> frozen;
        std::size_t waiting = 0;
        std::optional<CaptureFailure> failure;
        int pointerScreen = 0;
    };
    auto join = std::make_shared<Join>();
    join->frozen.resize(std::size_t(screens.size()));
    join->waiting = std::size_t(screens.size());
    join->pointerScreen = std::max(0, int(screens.indexOf(screenUnderPointer())));
    for (qsizetype i = 0; i < screens.size(); ++i) {
        capture(screens[i], this, [=](CaptureResult<DisplayCapture> result) {
            if (result.ok())
                join->frozen[std::size_t(i)] = std::move(result).value();
            else if (!join->failure)
                join->failure = result.error();
            if (--join->waiting > 0 || !caller)
                return;
            // One screen that cannot be frozen fails the whole freeze: a selection over it
            // would show nothing true.
            if (join->failure)
                return done(*join->failure);
            std::vector<DisplayCapture> all;
            for (auto& screen : join->frozen)
                all.push_back(std::move(*screen));
            done(joinFrozenScreens(std::move(all), join->pointerScreen));
        });
    }
}

std::optional<QImage> ScreenCaptureManager::crop(const FrozenDesktop& desktop, const QRectF& rect) {
    return cropDesktop(desktop, rect);
}

} // namespace qm
