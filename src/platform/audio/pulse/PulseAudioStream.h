#pragma once

#include "platform/audio/api/AudioCapture.h"
#include "platform/audio/pulse/ChunkClock.h"
#include "platform/audio/pulse/PulseConnection.h"

#include <QByteArray>
#include <vector>

struct pa_stream;

namespace qm::platform {

// One recording stream on a connection of its own. It is connected corked, so opening proves
// the device records, and `start` only uncorks it.
class PulseAudioStream final : public AudioStream {
public:
    static Result<std::unique_ptr<AudioStream>> open(AudioInput input);
    ~PulseAudioStream() override;

    Status start(ChunkSink onChunk, StopSink onStopped) override;
    void stop() override;

private:
    struct StreamDeleter {
        void operator()(pa_stream* stream) const;
    };
    PulseAudioStream(std::unique_ptr<PulseConnection> connection, AudioInput input);

    // These run with the connection's lock held.
    Result<QByteArray> findDevice();
    Status connectTo(const QByteArray& device);
    void readAvailable();
    void endByItself(const QString& reason);
    QString lostDeviceReason() const;

    static void onState(pa_stream* stream, void* self);
    static void onReadable(pa_stream* stream, size_t bytes, void* self);
    static void onTiming(pa_stream* stream, void* self);
    static void onFreshTiming(pa_stream* stream, int success, void* self);

    std::unique_ptr<PulseConnection> m_connection;
    std::unique_ptr<pa_stream, StreamDeleter> m_stream;
    AudioInput m_input;
    ChunkSink m_onChunk;
    StopSink m_onStopped;
    bool m_started = false;
    bool m_stopped = false;
    QString m_endReason; // set once the stream ended by itself
    ChunkClock m_clock{kAudioSampleRate};
    bool m_stamped = false;
    bool m_timingAsked = false;
    bool m_timingFresh = false;
    std::vector<float> m_scratch; // silence for holes, and blocks that need realigning
};

} // namespace qm::platform
