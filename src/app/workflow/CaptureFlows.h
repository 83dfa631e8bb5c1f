#pragma once

#include "app/CommandLine.h"
#include "app/workflow/CaptureOutcome.h"
#include "capture/core/CaptureTypes.h"
#include "capture/ui/CountdownController.h"
#include "capture/ui/SelectionOverlayController.h"

#include <QImage>
#include <QObject>
#include <QString>
#include <functional>

namespace qm {

class ScreenCaptureManager;
class SoundPlayer;
namespace platform {
class SurfaceBackend;
}

// "Region", "Window", "Full screen": how the status line names a kind of capture.
QString captureLabel(CaptureKind kind);

// The capture flows: an area or a window chosen on a frozen screen, the front window, the
// whole screen, and the same after a countdown. Each ends in one report: an image with its
// label, or a status saying why there is none. One capture at a time.
class CaptureFlows final : public QObject {
    Q_OBJECT
public:
    struct Report {
        std::function<void(const QImage& image, const QString& label)> captured;
        std::function<void(const QString& status)> status;
        std::function<void(bool capturing)> capturingChanged;
        // A capture that ends without an image: cancelled or failed.
        OutcomeCallback ended;
    };

    CaptureFlows(ScreenCaptureManager& capture, platform::SurfaceBackend& surfaces,
                 SoundPlayer& sounds, Report report, QObject* parent = nullptr);
    ~CaptureFlows() override;

    void perform(CaptureKind kind);
    void performDelayed(CaptureKind kind, int seconds);
    bool isCapturing() const { return m_isCapturing; }

    SelectionOverlayController& overlay() { return m_overlay; }
    CountdownController& countdown() { return m_countdown; }

private:
    void setCapturing(bool capturing);
    void captureRegion();
    void captureFrontWindow();
    void captureFullScreen();
    std::function<void(CaptureResult<QImage>)> finishWholeScreenCapture(CaptureKind kind);
    void captureChosenWindow(const FrozenDesktop& frozen, const CapturedWindow& window);
    void delayedLiveCapture(const FrozenDesktop& frozen, const SelectionResult& selection,
                            int seconds);
    void fail(const CaptureFailure& failure);
    void failed(const QString& status);
    void cancelled();

    ScreenCaptureManager& m_capture;
    Report m_report;
    SelectionOverlayController m_overlay;
    CountdownController m_countdown;
    bool m_isCapturing = false;
};

} // namespace qm
