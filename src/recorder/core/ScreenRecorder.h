#pragma once

#include "base/Result.h"
#include "recorder/core/RecordingConfig.h"

#include <QObject>
#include <QSize>
#include <QString>
#include <QThreadPool>
#include <cstdint>
#include <functional>
#include <memory>

namespace qm::platform {
class ScreenVideoBackend;
class AudioCaptureBackend;
} // namespace qm::platform

namespace qm::recorder {

class RecordingSession;

// What a recording left out when it started, so the workflow can say so.
struct StartedRecording {
    QSize size;                 // the movie's size, even in both directions
    bool systemAudio = false;   // the system track is being recorded
    bool microphone = false;    // the microphone track is being recorded
    QString systemAudioProblem; // why not, when it was asked for
    QString microphoneProblem;
};

struct RecordingStats {
    std::uint64_t framesSeen = 0; // pictures the screen stream delivered, paused or not
    std::uint64_t framesWritten = 0;
    std::uint64_t framesDropped = 0; // the encoder was busy; the frame was left out
    std::uint64_t framesMissed = 0;  // the screen grab itself fell behind the clock
};

// The movie a recording left behind. `problem` is set when the recording ended early (the
// disk filled up, the writer failed): the file then holds everything up to that point.
struct RecordedMovie {
    QString path;
    RecordingStats stats;
    QString problem;
};

// Turns the live screen and sound into a movie file. Screen frames, system sound and the
// microphone are stamped by one clock; the movie starts at the first frame and sound before
// it is dropped. Frames the encoder cannot take in time are dropped and counted, never
// queued without bound. Everything but `start` and `stop`'s completion happens on the
// recording's own threads; callbacks run on the thread that owns this object.
class ScreenRecorder : public QObject {
    Q_OBJECT
public:
    ScreenRecorder(platform::ScreenVideoBackend& video, platform::AudioCaptureBackend& audio,
                   QObject* parent = nullptr);
    ~ScreenRecorder() override;

    // Called once when the recording stops by itself (the recorded monitor went away, the disk
    // filled up), with the reason. The caller still calls stop() to finish the file.
    std::function<void(const QString& reason)> onStoppedUnexpectedly;

    // Starts recording into `path` (a new file, fragmented so a crash loses at most a second).
    // Fails with a reason when already recording, when the area is under 2 × 2 pixels, or when
    // the screen or the file cannot be opened. Missing sound inputs are not errors: the
    // recording goes on without them and the result says why.
    Result<StartedRecording> start(const RecordingConfig& config, const QString& path);
    void setPaused(bool paused);
    // Ends the recording; `onFinish` runs once the file is complete (or holds all it could),
    // or with the reason there is no movie. Stopping an idle recorder does nothing.
    void stop(std::function<void(Result<RecordedMovie>)> onFinish);

    bool isRecording() const { return m_session != nullptr; }
    bool isPaused() const;
    RecordingStats stats() const;

private:
    platform::ScreenVideoBackend& m_video;
    platform::AudioCaptureBackend& m_audio;
    std::shared_ptr<RecordingSession> m_session;
    // Finishing runs here, never queued behind other background work; waited for on exit.
    QThreadPool m_finishing;
};

} // namespace qm::recorder
