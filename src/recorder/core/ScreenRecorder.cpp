#include "recorder/core/ScreenRecorder.h"

#include "base/Log.h"
#include "recorder/core/RecordingSession.h"

#include <QPointer>

namespace qm::recorder {

ScreenRecorder::ScreenRecorder(platform::ScreenVideoBackend& video,
                               platform::AudioCaptureBackend& audio, QObject* parent)
    : QObject(parent)
    , m_video(video)
    , m_audio(audio) {
    m_finishing.setMaxThreadCount(1);
}

ScreenRecorder::~ScreenRecorder() {
    if (m_session)
        (void)m_session->finish(); // closes the file so what was recorded stays playable
}

bool ScreenRecorder::isPaused() const {
    return m_session && m_session->paused();
}

RecordingStats ScreenRecorder::stats() const {
    return m_session ? m_session->stats() : RecordingStats{};
}

Result<StartedRecording> ScreenRecorder::start(const RecordingConfig& config, const QString& path) {
    if (m_session)
        return failure(QStringLiteral("A recording is already running."));
    const Result<QRect> area = recordableArea(config.area);
    if (!area)
        return area.error();
    if (const QString why = m_video.unavailableReason(); !why.isEmpty())
        return failure(why);

    StartedRecording started;
    started.size = area->size();
    RecordingSession::Parts parts;
    parts.video = m_video.createSource();
    if (config.includeSystemAudio) {
        auto stream = m_audio.open(platform::AudioInput::SystemOutput);
        if (stream) {
            parts.systemAudio = std::move(*stream);
            started.systemAudio = true;
        } else {
            started.systemAudioProblem = stream.error().reason;
            qCWarning(lcRecording).noquote()
                << QStringLiteral("Recording without system audio: ") + stream.error().reason;
        }
    }
    if (config.includeMicrophone) {
        auto stream = m_audio.open(platform::AudioInput::Microphone);
        if (stream) {
            parts.microphone = std::move(*stream);
            started.microphone = true;
        } else {
            started.microphoneProblem = stream.error().reason;
            qCWarning(lcRecording)
                << "Quillmark: no microphone available, recording without voiceover";
        }
    }

    media::MovieSettings settings;
    settings.size = started.size;
    settings.fps = kRecordingFps;
    settings.systemAudio = started.systemAudio;
    settings.microphone = started.microphone;
    auto writer = RecordingSession::createWriter(path, settings);
    if (!writer)
        return writer.error();
    parts.writer = std::move(*writer);

    QPointer<ScreenRecorder> self(this);
    auto session = std::make_shared<RecordingSession>(
        std::move(parts), path, *area, [self](const QString& reason) {
            // Streams report on their own threads; the owner hears it on its own.
            QMetaObject::invokeMethod(
                self.data(),
                [self, reason] {
                    if (self && self->onStoppedUnexpectedly)
                        self->onStoppedUnexpectedly(reason);
                },
                Qt::QueuedConnection);
        });
    if (Status running = session->start(); !running) {
        (void)session->finish();
        return running.error();
    }
    m_session = std::move(session);
    return started;
}

void ScreenRecorder::setPaused(bool paused) {
    if (m_session)
        m_session->setPaused(paused);
}

void ScreenRecorder::stop(std::function<void(Result<RecordedMovie>)> onFinish) {
    if (!m_session)
        return;
    std::shared_ptr<RecordingSession> session = std::move(m_session);
    QPointer<ScreenRecorder> self(this);
    // Writing out the queue and closing the file can take a moment; the GUI stays responsive.
    m_finishing.start([session, self, onFinish = std::move(onFinish)]() mutable {
        Result<RecordedMovie> movie = session->finish();
        QMetaObject::invokeMethod(
            self.data(),
            [onFinish = std::move(onFinish), movie = std::move(movie)]() mutable {
                if (onFinish)
                    onFinish(std::move(movie));
            },
            Qt::QueuedConnection);
    });
}

} // namespace qm::recorder
