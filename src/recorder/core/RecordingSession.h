#pragma once

#include "media/MovieWriter.h"
#include "platform/audio/api/AudioCapture.h"
#include "platform/video/api/ScreenVideoSource.h"
#include "recorder/core/PauseGate.h"
#include "recorder/core/RecordingFiles.h"
#include "recorder/core/ScreenRecorder.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <variant>
#include <vector>

namespace qm::recorder {

// One recording from start to finished file: the screen and sound streams, a bounded queue
// and the writer thread that feeds the encoder. Streams call in on their own threads; the
// writer thread is the only one that touches the movie writer.
class RecordingSession {
public:
    struct Parts {
        std::unique_ptr<platform::ScreenVideoSource> video;
        std::unique_ptr<platform::AudioStream> systemAudio;
        std::unique_ptr<platform::AudioStream> microphone;
        std::unique_ptr<media::MovieWriter> writer;
    };
    // Called at most once, from any thread, when the recording stops by itself.
    using StopHandler = std::function<void(const QString& reason)>;

    RecordingSession(Parts parts, QString path, QRect area, StopHandler onStopped);

    // Makes the movie writer on a thread of lower priority, so the encoder's threads (which
    // inherit it) give way to the screen grab: on a busy machine a late grab is a lost frame,
    // while the encoder has a queue to catch up from.
    static Result<std::unique_ptr<media::MovieWriter>>
    createWriter(const QString& path, const media::MovieSettings& settings);
    ~RecordingSession();
    RecordingSession(const RecordingSession&) = delete;
    RecordingSession& operator=(const RecordingSession&) = delete;

    // Starts the streams; the screen first, so the movie never waits on sound.
    Status start();
    void setPaused(bool paused);
    bool paused() const;
    // Stops the streams, writes out what is queued and closes the file. Blocks; call it off
    // the GUI thread. Safe to call once only.
    Result<RecordedMovie> finish();
    RecordingStats stats() const;

    // Frames waiting for the encoder at most, a frame beyond this is dropped: a sixth of a
    // second for full HD, rides out a busy moment of the machine; bigger screens get at least
    // three, within about 48 MB.
    static int maxQueuedFrames(QSize frame);
    // Sound waiting for the encoder at most, in sample frames (one second).
    static constexpr int kMaxQueuedAudioFrames = platform::kAudioSampleRate;

private:
    struct VideoItem {
        std::vector<std::uint8_t> pixels;
        int bytesPerLine = 0;
        MediaTime t{};
    };
    struct AudioItem {
        media::AudioTrack track = media::AudioTrack::System;
        std::vector<float> samples;
        MediaTime t{};
    };
    using Item = std::variant<VideoItem, AudioItem>;

    void takeFrame(const platform::VideoFrame& frame);
    void takeSound(media::AudioTrack track, const platform::AudioChunk& chunk);
    void writeLoop();
    void stopBy(const QString& reason);

    Parts m_parts;
    const QString m_path;
    RecordingLock m_lock; // tells other instances this file is not a leftover
    const QRect m_area;
    StopHandler m_onStopped;

    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<Item> m_queue;
    std::vector<std::vector<std::uint8_t>> m_spareBuffers; // reused frame buffers
    int m_queuedFrames = 0;
    const int m_maxQueuedFrames;
    int m_queuedAudioFrames = 0;
    PauseGate m_gate;
    std::optional<MediaTime> m_sessionStart;
    bool m_accepting = true;
    bool m_draining = false;
    QString m_problem; // why the recording stopped early
    std::atomic_bool m_stopReported{false};
    std::uint64_t m_dropped = 0;
    std::uint64_t m_seen = 0;
    std::uint64_t m_missed = 0;       // grabs missed while the movie was running
    std::uint64_t m_sourceMissed = 0; // the stream's own count when last looked at
    std::atomic<std::uint64_t> m_written{0};
    std::thread m_writerThread;
    bool m_finished = false;
};

} // namespace qm::recorder
