#pragma once

#include "base/MediaClock.h"
#include "base/Result.h"

#include <QString>
#include <functional>
#include <memory>

namespace qm::platform {

// Which sound to record: what the computer plays (the default output's monitor) or the
// microphone (the default input).
enum class AudioInput { SystemOutput, Microphone };

// Every stream delivers 48 kHz interleaved stereo floats.
inline constexpr int kAudioSampleRate = 48000;
inline constexpr int kAudioChannels = 2;

// A block of sound, valid only during the callback that delivers it.
struct AudioChunk {
    const float* samples = nullptr; // frames × 2 interleaved
    int frames = 0;
    MediaTime pts{}; // when the first frame of the block was heard, on the media clock
};

// A recording of one input, opened but silent until `start`. Chunks arrive on the backend's
// own thread, their stamps strictly increasing; the callback must return quickly (copy what
// it needs). `onStopped` runs at most once, on that thread, when the stream ends by itself
// (the sound server went away, the microphone was unplugged), with a sentence saying why; it
// never runs after `stop()` returned. Neither callback may call `stop()` or destroy the
// stream: hand the news to another thread.
class AudioStream {
public:
    using ChunkSink = std::function<void(const AudioChunk&)>;
    using StopSink = std::function<void(const QString& reason)>;

    virtual ~AudioStream() = default;
    virtual Status start(ChunkSink onChunk, StopSink onStopped) = 0;
    // Ends the stream and waits until no callback runs any more. Safe to call twice, and
    // without `start`. Destroying the stream stops it.
    virtual void stop() = 0;
};

// The sound server of this session.
class AudioCaptureBackend {
public:
    virtual ~AudioCaptureBackend() = default;
    virtual QString name() const = 0; // "pulse", "null"
    // Opens the input, or says why it cannot ("No microphone is connected"). A microphone
    // counts only if it is a real input, not another output's monitor.
    virtual Result<std::unique_ptr<AudioStream>> open(AudioInput input) = 0;
};

} // namespace qm::platform
