#include "app/workflow/CaptureFlows.h"

#include "base/Log.h"
#include "capture/core/ScreenCaptureManager.h"
#include "capture/ui/CaptureFlash.h"

namespace qm {

namespace {
QString describe(const CaptureFailure& failure) {
    if (!failure.reason.isEmpty())
        return failure.reason;
    switch (failure.error) {
    case CaptureError::NoDisplay:
        return QStringLiteral("No display was found.");
    case CaptureError::NoWindow:
        return QStringLiteral("No window was found.");
    case CaptureError::CaptureFailed:
        return QStringLiteral("The screen could not be captured.");
    }
    return {};
}
} // namespace

QString captureLabel(CaptureKind kind) {
    switch (kind) {
    case CaptureKind::Region:
        return QStringLiteral("Region");
    case CaptureKind::Window:
        return QStringLiteral("Window");
    case CaptureKind::Fullscreen:
        return QStringLiteral("Full screen");
    }
    return {};
}

namespace {
// The frozen screen under the middle of an area, where its flash shows.
QScreen* screenOf(const FrozenDesktop& frozen, const QRectF& area) {
    const int display = frozen.displayAt(area.center());
    return display < 0 ? nullptr : frozen.displays[std::size_t(display)].screen.data();
}
} // namespace

CaptureFlows::CaptureFlows(ScreenCaptureManager& capture, platform::SurfaceBackend& surfaces,
                           SoundPlayer& sounds, Report report, QObject* parent)
    : QObject(parent)
    , m_capture(capture)
    , m_report(std::move(report))
    , m_overlay(surfaces)
    , m_countdown(sounds) {
    // Cards, toasts and the countdown never end up in what the flows capture.
    m_capture.keepOwnWindowsOut(surfaces);
}

CaptureFlows::~CaptureFlows() = default;

void CaptureFlows::setCapturing(bool capturing) {
    if (m_isCapturing == capturing)
        return;
    m_isCapturing = capturing;
    m_report.capturingChanged(capturing);
}

void CaptureFlows::perform(CaptureKind kind) {
    // One capture at a time: a second press while the first is selecting is ignored.
    if (m_isCapturing)
        return;
    setCapturing(true);
    switch (kind) {
    case CaptureKind::Region:
        captureRegion();
        break;
    case CaptureKind::Window:
        captureFrontWindow();
        break;
    case CaptureKind::Fullscreen:
        captureFullScreen();
        break;
    }
}

void CaptureFlows::captureRegion() {
    // Every monitor is frozen, so an area may run from one onto another.
    m_capture.captureDesktop(this, [this](CaptureResult<FrozenDesktop> result) {
        if (!result.ok())
            return fail(result.error());
        const FrozenDesktop frozen = std::move(result).value();
        m_overlay.begin(frozen, QStringLiteral("Capture"),
                        [this, frozen](std::optional<SelectionResult> selection) {
                            if (!selection) {
                                setCapturing(false);
                                return cancelled();
                            }
                            if (const auto* window = std::get_if<CapturedWindow>(&*selection))
                                return captureChosenWindow(frozen, *window);
                            setCapturing(false);
                            const QRectF area = std::get<QRectF>(*selection);
                            const auto image = ScreenCaptureManager::crop(frozen, area);
                            if (!image)
                                return failed(QStringLiteral("Region crop failed"));
                            CaptureFlash::flash(area, screenOf(frozen, area));
                            m_report.captured(*image, captureLabel(CaptureKind::Region));
                        });
    });
}

void CaptureFlows::captureChosenWindow(const FrozenDesktop& frozen, const CapturedWindow& window) {
    m_capture.captureWindow(window, this, [this, frozen, window](CaptureResult<QImage> result) {
        setCapturing(false);
        std::optional<QImage> image;
        if (result.ok()) {
            image = std::move(result).value();
        } else {
            qCWarning(lcCapture).noquote()
                << QStringLiteral("Quillmark window capture failed, cropping: ") +
                       describe(result.error());
            image = ScreenCaptureManager::crop(frozen, window.frame);
        }
        if (!image)
            return failed(QStringLiteral("Window capture failed"));
        CaptureFlash::flash(window.frame, screenOf(frozen, window.frame));
        m_report.captured(*image, captureLabel(CaptureKind::Window));
    });
}

void CaptureFlows::captureFrontWindow() {
    m_capture.captureFrontWindow(this, finishWholeScreenCapture(CaptureKind::Window));
}

void CaptureFlows::captureFullScreen() {
    m_capture.captureFullScreen(this, finishWholeScreenCapture(CaptureKind::Fullscreen));
}

std::function<void(CaptureResult<QImage>)>
CaptureFlows::finishWholeScreenCapture(CaptureKind kind) {
    // Nothing was selected on screen, so the flash marks the whole screen under the pointer.
    return [this, kind](CaptureResult<QImage> result) {
        if (!result.ok())
            return fail(result.error());
        setCapturing(false);
        CaptureFlash::flashScreenUnderMouse();
        m_report.captured(result.value(), captureLabel(kind));
    };
}

void CaptureFlows::performDelayed(CaptureKind kind, int seconds) {
    if (m_isCapturing || m_countdown.isRunning())
        return;
    if (kind != CaptureKind::Region) {
        // Only areas are chosen before the countdown; everything else waits, then takes the
        // whole screen as it is when the countdown ends.
        m_report.status(QStringLiteral("Capturing in %1s…").arg(seconds));
        m_countdown.begin(
            seconds,
            [this] {
                if (m_isCapturing)
                    return;
                setCapturing(true);
                captureFullScreen();
            },
            [this] { cancelled(); });
        return;
    }
    setCapturing(true);
    m_capture.captureDesktop(this, [this, seconds](CaptureResult<FrozenDesktop> result) {
        if (!result.ok())
            return fail(result.error());
        const FrozenDesktop frozen = std::move(result).value();
        m_overlay.begin(frozen, QStringLiteral("Capture"),
                        [this, frozen, seconds](std::optional<SelectionResult> selection) {
                            setCapturing(false);
                            if (!selection)
                                return cancelled();
                            delayedLiveCapture(frozen, *selection, seconds);
                        });
    });
}

void CaptureFlows::delayedLiveCapture(const FrozenDesktop& frozen, const SelectionResult& selection,
                                      int seconds) {
    m_report.status(QStringLiteral("Capturing in %1s…").arg(seconds));
    // What changes on screen during the countdown is what gets captured.
    auto fire = [this, frozen, selection] {
        if (m_isCapturing)
            return;
        setCapturing(true);
        if (const auto* window = std::get_if<CapturedWindow>(&selection)) {
            const CapturedWindow chosen = *window;
            m_capture.captureWindow(
                chosen, this, [this, chosen, frozen](CaptureResult<QImage> result) {
                    if (!result.ok())
                        return fail(result.error());
                    setCapturing(false);
                    CaptureFlash::flash(chosen.frame, screenOf(frozen, chosen.frame));
                    m_report.captured(result.value(), captureLabel(CaptureKind::Window));
                });
            return;
        }
        const QRectF area = std::get<QRectF>(selection);
        m_capture.captureDesktop(this, [this, area](CaptureResult<FrozenDesktop> result) {
            if (!result.ok())
                return fail(result.error());
            setCapturing(false);
            const FrozenDesktop live = std::move(result).value();
            const auto image = ScreenCaptureManager::crop(live, area);
            if (!image)
                return failed(QStringLiteral("Region crop failed"));
            CaptureFlash::flash(area, screenOf(live, area));
            m_report.captured(*image, captureLabel(CaptureKind::Region));
        });
    };
    m_countdown.begin(seconds, fire, [this] { cancelled(); });
}

void CaptureFlows::fail(const CaptureFailure& failure) {
    setCapturing(false);
    const QString description = describe(failure);
    m_report.status(QStringLiteral("Capture failed: ") + description);
    qCWarning(lcCapture).noquote() << QStringLiteral("Quillmark capture error: ") + description;
    if (m_report.ended)
        m_report.ended(outcome::Failed{description});
}

void CaptureFlows::failed(const QString& status) {
    m_report.status(status);
    if (m_report.ended)
        m_report.ended(outcome::Failed{status});
}

void CaptureFlows::cancelled() {
    m_report.status(QStringLiteral("Cancelled"));
    if (m_report.ended)
        m_report.ended(outcome::Cancelled{});
}

} // namespace qm
