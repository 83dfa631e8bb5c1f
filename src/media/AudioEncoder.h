#pragma once

#include "base/MediaClock.h"
#include "base/Result.h"
#include "media/Av.h"
#include "media/VideoEncoder.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace qm::media {

// One sound track: 48 kHz stereo floats in, AAC-LC at 160 kb/s out (FFmpeg's own encoder).
// The track is kept sample-continuous, and stays on the media clock: sound that arrives more
// than 20 ms after the end of what was written gets silence before it, sound that arrives
// more than 20 ms too early loses the part that would overlap. A pause, a stall of the sound
// server or a slowly drifting sound card therefore never moves the sound away from the
// picture by more than that.
class AudioEncoder {
public:
    static constexpr int kSampleRate = 48000;
    static constexpr int kChannels = 2;
    static constexpr std::int64_t kTolerance = kSampleRate / 50; // 20 ms

    static Result<std::unique_ptr<AudioEncoder>> create();

    // The encoder's parameters (time base 1/48000), for the movie's track.
    const AVCodecContext* context() const { return m_codec.get(); }

    Status write(const float* interleaved, int frames, MediaTime t, const PacketSink& sink);
    // Encodes what is left, including a last short frame, and drains the encoder.
    Status flush(const PacketSink& sink);

private:
    AudioEncoder() = default;
    void append(const float* interleaved, std::int64_t frames);
    void appendSilence(std::int64_t frames);
    Status encodePending(bool all, const PacketSink& sink);
    Status drain(const PacketSink& sink);

    av::CodecContext m_codec;
    av::Frame m_frame;
    av::Packet m_packet;
    // Samples not yet handed to the encoder, one vector per channel.
    std::vector<float> m_left, m_right;
    // The encoder's output lags its input by its priming delay. Packets are stamped that much
    // later, so sample n of the input plays at n + m_priming, and the first m_priming samples
    // of the track (about 21 ms) are the encoder's start-up, never sound: the track starts
    // at zero with no edit list, and every sound plays at its own time.
    std::int64_t m_priming = 0;
    std::int64_t m_trackEnd = 0; // where the next sample will play, in samples
    std::int64_t m_sent = 0;     // samples handed to the encoder
    bool m_liningUp = true;      // placing the next sound exactly: the first, or after a cut
};

} // namespace qm::media
