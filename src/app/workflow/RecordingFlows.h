#pragma once

#include "app/workflow/CaptureOutcome.h"
#include "base/Result.h"

#include <QObject>
#include <QPointer>
#include <QRect>
#include <QRectF>
#include <QScreen>
#include <QString>
#include <QThreadPool>
#include <functional>
#include <memory>
#include <vector>

namespace qm {

class CountdownController;
class Preferences;
class RecordingState;
class RecordingWindows;
class ScreenCaptureManager;
class SelectionOverlayController;
class SoundPlayer;
class ToastCenter;
namespace platform {
class AudioCaptureBackend;
class CameraBackend;
class ClickSourceBackend;
class ScreenVideoBackend;
} // namespace platform
namespace recorder {
class ScreenRecorder;
}

// The road of a recording: an area chosen on the frozen screen (or the screen under the
// pointer), a short countdown, the recorder running with its control bar, dimming, webcam
// bubble and click ripples, and at stop the movie finished and moved to the save folder.
// One recording at a time.
class RecordingFlows final : public QObject {
    Q_OBJECT
public:
    struct Services {
        Preferences& preferences;
        ScreenCaptureManager& capture;
        SelectionOverlayController& overlay;
        CountdownController& countdown;
        SoundPlayer& sounds;
        ToastCenter& toasts;
        platform::ScreenVideoBackend& video;
        platform::AudioCaptureBackend& audio;
        platform::CameraBackend& camera;
        platform::ClickSourceBackend& clicks;
    };
    struct Report {
        std::function<void(const QString& status)> status;
        // A finished movie in the save folder (or where it had to stay).
        std::function<void(const QString& path)> saved;
        // Review and trim it, when the settings ask for that after a recording.
        std::function<void(const QString& path)> trim;
    };
    enum class Phase { Idle, Selecting, Countdown, Starting, Recording, Finishing };

    RecordingFlows(Services services, Report report, QObject* parent = nullptr);
    ~RecordingFlows() override;

    // `started` hears once: Recording when the recorder runs, else Cancelled or Failed.
    void recordArea(OutcomeCallback started = {});
    void recordScreen(OutcomeCallback started = {});
    // `saved` hears once how the movie ended: Saved, NotSaved (it stayed in the recordings
    // folder) or Failed.
    void stopRecording(OutcomeCallback saved = {});
    void setPaused(bool paused);

    Phase phase() const { return m_phase; }
    bool isRecording() const { return m_phase == Phase::Recording; }
    bool isPaused() const;
    // Whether the control bar is on screen; without it the tray offers pause and stop.
    bool controlBarShown() const;
    // The running clock, while recording.
    RecordingState* state() const;

    // Finishes recordings a crash left behind and tells the user. Runs in the background.
    void recoverLeftovers();

Q_SIGNALS:
    void phaseChanged(Phase phase);
    void pausedChanged(bool paused);
    void elapsedChanged(const QString& display);

private:
    void setPhase(Phase phase);
    void afterCountdown(QScreen* screen, const QRect& pixels, const QRectF& area);
    void start(QScreen* screen, const QRect& pixels, const QRectF& area);
    void deliver(const QString& inProgress, bool recovered, OutcomeCallback saved);
    void endStart(const CaptureOutcome& outcome);
    void stoppedByItself(const QString& reason);

    Services m_services;
    Report m_report;
    std::unique_ptr<recorder::ScreenRecorder> m_recorder;
    std::unique_ptr<RecordingWindows> m_windows;
    Phase m_phase = Phase::Idle;
    OutcomeCallback m_started;
    std::vector<OutcomeCallback> m_saved;
    QString m_inProgress;
    QString m_stoppedReason;
    // Movies are finished and moved one at a time, not behind other background work.
    QThreadPool m_delivering;
};

} // namespace qm
