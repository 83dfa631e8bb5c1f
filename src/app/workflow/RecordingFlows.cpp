#include "app/workflow/RecordingFlows.h"

#include "app/workflow/RecordingWindows.h"
#include "base/Log.h"
#include "base/Preferences.h"
#include "base/SafeWrite.h"
#include "capture/core/ScreenCaptureManager.h"
#include "capture/ui/CountdownController.h"
#include "capture/ui/SelectionOverlayController.h"
#include "platform/desktop/Reveal.h"
#include "platform/sound/api/SoundPlayer.h"
#include "recorder/controls/RecordingState.h"
#include "recorder/core/RecordingFiles.h"
#include "recorder/core/ScreenRecorder.h"
#include "ui/ToastCenter.h"

#include <QCursor>
#include <QDateTime>
#include <QFileInfo>
#include <QGuiApplication>
#include <QThreadPool>
#include <cmath>

namespace qm {

namespace {

constexpr int kCountdownSeconds = 3;

// The desktop pixels a rectangle of global points covers on one frozen screen: what the
// recorder grabs. Rounded outwards so the whole chosen area is in the movie.
QRect pixelsOf(const DisplayCapture& display, const QRectF& area) {
    const QRectF onScreen = area.intersected(display.geometry);
    if (onScreen.isEmpty())
        return {};
    const QPointF from = (onScreen.topLeft() - display.geometry.topLeft()) * display.scale;
    const QPointF to = (onScreen.bottomRight() - display.geometry.topLeft()) * display.scale;
    const QPoint origin = display.pixelOrigin;
    return QRect(QPoint(origin.x() + int(std::floor(from.x() + 1e-6)),
                        origin.y() + int(std::floor(from.y() + 1e-6))),
                 QPoint(origin.x() + int(std::ceil(to.x() - 1e-6)) - 1,
                        origin.y() + int(std::ceil(to.y() - 1e-6)) - 1));
}

} // namespace

RecordingFlows::RecordingFlows(Services services, Report report, QObject* parent)
    : QObject(parent)
    , m_services(services)
    , m_report(std::move(report))
    , m_recorder(std::make_unique<recorder::ScreenRecorder>(services.video, services.audio))
    , m_windows(std::make_unique<RecordingWindows>(services.camera, services.clicks)) {
    m_delivering.setMaxThreadCount(1);
    m_recorder->onStoppedUnexpectedly = [this](const QString& reason) { stoppedByItself(reason); };
    m_windows->onStop = [this] { stopRecording(); };
    m_windows->onPauseToggle = [this](bool paused) { setPaused(paused); };
    connect(m_windows.get(), &RecordingWindows::elapsedChanged, this,
            &RecordingFlows::elapsedChanged);
}

RecordingFlows::~RecordingFlows() {
    m_windows->closeAll();
}

bool RecordingFlows::isPaused() const {
    return m_recorder->isPaused();
}

bool RecordingFlows::controlBarShown() const {
    return m_windows->controlBarShown();
}

RecordingState* RecordingFlows::state() const {
    return m_windows->state();
}

void RecordingFlows::setPhase(Phase phase) {
    if (m_phase == phase)
        return;
    m_phase = phase;
    Q_EMIT phaseChanged(phase);
}

void RecordingFlows::endStart(const CaptureOutcome& outcome) {
    if (auto started = std::exchange(m_started, {}))
        started(outcome);
}

void RecordingFlows::recordArea(OutcomeCallback started) {
    if (m_phase != Phase::Idle) {
        if (started)
            started(outcome::Failed{QStringLiteral("A recording is already running.")});
        return;
    }
    m_started = std::move(started);
    setPhase(Phase::Selecting);
    m_services.capture.captureDesktop(this, [this](CaptureResult<FrozenDesktop> result) {
        if (!result.ok()) {
            setPhase(Phase::Idle);
            const QString reason = result.error().reason.isEmpty()
                                       ? QStringLiteral("The screen could not be captured.")
                                       : result.error().reason;
            m_report.status(QStringLiteral("Capture failed: ") + reason);
            return endStart(outcome::Failed{reason});
        }
        const FrozenDesktop frozen = std::move(result).value();
        m_services.overlay.begin(
            frozen, QStringLiteral("Record"),
            [this, frozen](std::optional<SelectionResult> selection) {
                if (!selection) {
                    setPhase(Phase::Idle);
                    m_report.status(QStringLiteral("Cancelled"));
                    return endStart(outcome::Cancelled{});
                }
                const QRectF chosen = std::holds_alternative<QRectF>(*selection)
                                          ? std::get<QRectF>(*selection)
                                          : std::get<CapturedWindow>(*selection).frame;
                // A recording shows one monitor: the one holding the middle of the area.
                const int index = frozen.displayAt(chosen.center());
                if (index < 0) {
                    setPhase(Phase::Idle);
                    m_report.status(QStringLiteral("Capture failed: No display was found."));
                    return endStart(outcome::Failed{QStringLiteral("No display was found.")});
                }
                const DisplayCapture& display = frozen.displays[std::size_t(index)];
                afterCountdown(display.screen, pixelsOf(display, chosen),
                               chosen.intersected(display.geometry));
            });
    });
}

void RecordingFlows::recordScreen(OutcomeCallback started) {
    if (m_phase != Phase::Idle) {
        if (started)
            started(outcome::Failed{QStringLiteral("A recording is already running.")});
        return;
    }
    m_started = std::move(started);
    QScreen* screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    setPhase(Phase::Selecting);
    QPointer<QScreen> guarded(screen);
    m_services.capture.shareableDisplay(
        screen, this, [this, guarded](CaptureResult<platform::ShareableDisplay> display) {
            if (!display.ok() || !guarded) {
                setPhase(Phase::Idle);
                const QString reason = display.ok() || display.error().reason.isEmpty()
                                           ? QStringLiteral("No display was found.")
                                           : display.error().reason;
                m_report.status(QStringLiteral("Capture failed: ") + reason);
                return endStart(outcome::Failed{reason});
            }
            afterCountdown(guarded, display.value().pixelGeometry, guarded->geometry());
        });
}

void RecordingFlows::afterCountdown(QScreen* screen, const QRect& pixels, const QRectF& area) {
    setPhase(Phase::Countdown);
    // The bubble and the ripples are up before the countdown so the first frame has them.
    m_windows->showDecorations(screen, area.toAlignedRect(), m_services.preferences.recordWebcam(),
                               m_services.preferences.highlightClicks());
    m_report.status(QStringLiteral("Recording in %1s…").arg(kCountdownSeconds));
    QPointer<QScreen> guarded(screen);
    m_services.countdown.begin(
        kCountdownSeconds, [this, guarded, pixels, area] { start(guarded, pixels, area); },
        [this] {
            m_windows->closeAll();
            setPhase(Phase::Idle);
            m_report.status(QStringLiteral("Cancelled"));
            endStart(outcome::Cancelled{});
        });
}

void RecordingFlows::start(QScreen* screen, const QRect& pixels, const QRectF& area) {
    setPhase(Phase::Starting);
    const QString folder = recorder::recordingsFolder();
    recorder::RecordingConfig config;
    config.area = pixels;
    config.includeSystemAudio = m_services.preferences.recordSystemAudio();
    config.includeMicrophone = m_services.preferences.recordMicrophone();
    Result<recorder::StartedRecording> started = [&]() -> Result<recorder::StartedRecording> {
        if (Status made = SafeWrite::ensureFolder(folder); !made)
            return failure(QStringLiteral("Could not create the recordings folder: ") +
                           made.error().reason);
        m_inProgress = recorder::inProgressPath(folder, QDateTime::currentDateTime());
        return m_recorder->start(config, m_inProgress);
    }();
    if (!started) {
        m_windows->closeAll();
        setPhase(Phase::Idle);
        const QString reason = started.error().reason;
        m_report.status(QStringLiteral("Capture failed: ") + reason);
        qCWarning(lcRecording).noquote() << QStringLiteral("Quillmark capture error: ") + reason;
        return endStart(outcome::Failed{reason});
    }
    m_stoppedReason.clear();
    setPhase(Phase::Recording);
    m_windows->showControls(screen, area.toAlignedRect());
    if (!started->microphoneProblem.isEmpty())
        m_report.status(started->microphoneProblem +
                        QStringLiteral(" — recording without voiceover"));
    else
        m_report.status(QStringLiteral("Recording…"));
    m_services.sounds.play(SystemSound::Notify);
    endStart(outcome::Recording{});
}

void RecordingFlows::setPaused(bool paused) {
    if (m_phase != Phase::Recording || paused == m_recorder->isPaused())
        return;
    m_recorder->setPaused(paused);
    m_windows->setPaused(paused);
    Q_EMIT pausedChanged(paused);
}

void RecordingFlows::stopRecording(OutcomeCallback saved) {
    if (saved)
        m_saved.push_back(std::move(saved));
    if (m_phase == Phase::Finishing)
        return; // the movie is on its way; this caller hears about it too
    if (m_phase != Phase::Recording) {
        for (auto& callback : std::exchange(m_saved, {}))
            callback(outcome::Failed{QStringLiteral("Nothing is being recorded.")});
        return;
    }
    setPhase(Phase::Finishing);
    m_windows->closeAll();
    m_recorder->stop([this](Result<recorder::RecordedMovie> movie) {
        if (!movie) {
            setPhase(Phase::Idle);
            m_report.status(QStringLiteral("Recording failed"));
            qCWarning(lcRecording).noquote()
                << QStringLiteral("Recording failed: ") + movie.error().reason;
            m_services.toasts.present(QStringLiteral("Recording failed: ") + movie.error().reason,
                                      QStringLiteral("dialog-warning"), ToastCenter::Style::Error);
            for (auto& callback : std::exchange(m_saved, {}))
                callback(outcome::Failed{movie.error().reason});
            return;
        }
        if (!movie->problem.isEmpty() && m_stoppedReason.isEmpty())
            m_stoppedReason = movie->problem;
        deliver(movie->path, false, {});
    });
}

void RecordingFlows::stoppedByItself(const QString& reason) {
    if (m_phase != Phase::Recording || !m_stoppedReason.isEmpty())
        return;
    m_stoppedReason = reason;
    qCWarning(lcRecording).noquote() << QStringLiteral("Recording stopped by itself: ") + reason;
    // What was recorded is kept: the file is finished as if the user had pressed stop.
    stopRecording();
}

void RecordingFlows::deliver(const QString& inProgress, bool recovered, OutcomeCallback saved) {
    const QString saveFolder = m_services.preferences.outputDirectory();
    QPointer<RecordingFlows> self(this);
    m_delivering.start([self, inProgress, saveFolder, recovered, saved] {
        Result<recorder::DeliveredRecording> delivered =
            recorder::deliverRecording(inProgress, saveFolder);
        QMetaObject::invokeMethod(
            self.data(),
            [self, delivered = std::move(delivered), recovered, saved]() {
                if (!self)
                    return;
                RecordingFlows& flows = *self;
                std::vector<OutcomeCallback> waiting;
                if (!recovered) {
                    waiting = std::exchange(flows.m_saved, {});
                    flows.setPhase(Phase::Idle);
                }
                if (saved)
                    waiting.push_back(saved);
                const QString why = std::exchange(flows.m_stoppedReason, {});
                if (!delivered) {
                    flows.m_report.status(QStringLiteral("Recording failed"));
                    if (!recovered)
                        flows.m_services.toasts.present(
                            QStringLiteral("Recording failed: ") + delivered.error().reason,
                            QStringLiteral("dialog-warning"), ToastCenter::Style::Error);
                    for (auto& callback : waiting)
                        callback(outcome::Failed{delivered.error().reason});
                    return;
                }
                const QString path = delivered->path;
                const QString name = QFileInfo(path).fileName();
                flows.m_report.saved(path);
                flows.m_report.status(QStringLiteral("Recording saved → ") + name);
                if (flows.m_services.preferences.playCaptureSound())
                    flows.m_services.sounds.play(SystemSound::Complete);
                if (recovered) {
                    flows.m_services.toasts.present(
                        QStringLiteral("Recovered a recording that was cut off: ") + name,
                        QStringLiteral("media-record"), ToastCenter::Style::Accent);
                } else if (!delivered->problem.isEmpty()) {
                    flows.m_services.toasts.present(
                        QStringLiteral("Could not move the recording to the save folder: ") +
                            delivered->problem,
                        QStringLiteral("dialog-warning"), ToastCenter::Style::Error);
                } else if (!why.isEmpty()) {
                    flows.m_services.toasts.present(
                        QStringLiteral("Recording stopped: %1. What was recorded is saved as %2.")
                            .arg(why, name),
                        QStringLiteral("dialog-warning"), ToastCenter::Style::Error);
                } else if (flows.m_services.preferences.trimAfterRecording() &&
                           flows.m_report.trim) {
                    flows.m_report.trim(path);
                } else {
                    revealInFolder(path);
                }
                for (auto& callback : waiting) {
                    if (delivered->problem.isEmpty())
                        callback(outcome::Saved{path});
                    else
                        callback(outcome::NotSaved{delivered->problem});
                }
            },
            Qt::QueuedConnection);
    });
}

void RecordingFlows::recoverLeftovers() {
    const QStringList leftovers = recorder::leftoverRecordings(recorder::recordingsFolder());
    for (const QString& path : leftovers) {
        // Never the one this instance is writing.
        if (path == m_inProgress && m_phase != Phase::Idle)
            continue;
        qCInfo(lcRecording).noquote()
            << QStringLiteral("Recovering a recording that was cut off: ") + path;
        deliver(path, true, {});
    }
}

} // namespace qm
