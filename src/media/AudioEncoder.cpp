#include "media/AudioEncoder.h"

#include <algorithm>
#include <cmath>

namespace qm::media {

namespace {

QString encoderFailed(int r) {
    return QStringLiteral("the AAC encoder failed: ") + av::errorText(r);
}

} // namespace

Result<std::unique_ptr<AudioEncoder>> AudioEncoder::create() {
    const AVCodec* codec = avcodec_find_encoder_by_name("aac");
    if (!codec)
        return failure(QStringLiteral("the AAC encoder is not installed"));
    std::unique_ptr<AudioEncoder> encoder(new AudioEncoder);
    encoder->m_codec.reset(avcodec_alloc_context3(codec));
    encoder->m_frame.reset(av_frame_alloc());
    encoder->m_packet.reset(av_packet_alloc());
    AVCodecContext* c = encoder->m_codec.get();
    if (!c || !encoder->m_frame || !encoder->m_packet)
        return failure(av::describeErrno(ENOMEM));
    c->sample_fmt = AV_SAMPLE_FMT_FLTP;
    c->sample_rate = kSampleRate;
    c->ch_layout = AV_CHANNEL_LAYOUT_STEREO;
    c->bit_rate = 160000;
    c->time_base = AVRational{1, kSampleRate};
    c->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (const int r = avcodec_open2(c, codec, nullptr); r < 0)
        return failure(QStringLiteral("the AAC encoder could not start: ") + av::errorText(r));
    encoder->m_priming = c->initial_padding;
    encoder->m_trackEnd = c->initial_padding;
    return encoder;
}

Status AudioEncoder::write(const float* interleaved, int frames, MediaTime t,
                           const PacketSink& sink) {
    if (frames <= 0)
        return {};
    // Where this sound belongs on the track, to the nearest sample.
    const std::int64_t due = std::llround(double(t.count()) * kSampleRate / 1e9);
    const std::int64_t drift = due - m_trackEnd;
    // Small wobbles of the stamps are let go so the sound stays continuous; a real jump is
    // put right exactly, across as many chunks as an overlap takes to cut.
    std::int64_t skip = 0;
    if (m_liningUp || drift > kTolerance || drift < -kTolerance) {
        if (drift > 0)
            appendSilence(drift);
        else
            skip = std::min<std::int64_t>(-drift, frames);
        m_liningUp = skip == frames;
    }
    append(interleaved + skip * kChannels, frames - skip);
    return encodePending(false, sink);
}

void AudioEncoder::append(const float* interleaved, std::int64_t frames) {
    const std::size_t at = m_left.size();
    m_left.resize(at + std::size_t(frames));
    m_right.resize(at + std::size_t(frames));
    for (std::int64_t i = 0; i < frames; ++i) {
        m_left[at + std::size_t(i)] = interleaved[2 * i];
        m_right[at + std::size_t(i)] = interleaved[2 * i + 1];
    }
    m_trackEnd += frames;
}

void AudioEncoder::appendSilence(std::int64_t frames) {
    m_left.resize(m_left.size() + std::size_t(frames), 0.0f);
    m_right.resize(m_right.size() + std::size_t(frames), 0.0f);
    m_trackEnd += frames;
}

Status AudioEncoder::encodePending(bool all, const PacketSink& sink) {
    const std::size_t frameSize = std::size_t(m_codec->frame_size);
    std::size_t used = 0;
    while (m_left.size() - used >= frameSize || (all && used < m_left.size())) {
        const std::size_t n = std::min(frameSize, m_left.size() - used);
        AVFrame* f = m_frame.get();
        av_frame_unref(f);
        f->format = AV_SAMPLE_FMT_FLTP;
        f->sample_rate = kSampleRate;
        f->ch_layout = AV_CHANNEL_LAYOUT_STEREO;
        f->nb_samples = int(n);
        if (const int r = av_frame_get_buffer(f, 0); r < 0)
            return failure(encoderFailed(r));
        std::copy_n(m_left.data() + used, n, reinterpret_cast<float*>(f->data[0]));
        std::copy_n(m_right.data() + used, n, reinterpret_cast<float*>(f->data[1]));
        f->pts = m_sent;
        if (const int r = avcodec_send_frame(m_codec.get(), f); r < 0)
            return failure(encoderFailed(r));
        m_sent += std::int64_t(n);
        used += n;
        if (Status drained = drain(sink); !drained.ok())
            return drained;
    }
    m_left.erase(m_left.begin(), m_left.begin() + std::ptrdiff_t(used));
    m_right.erase(m_right.begin(), m_right.begin() + std::ptrdiff_t(used));
    return {};
}

Status AudioEncoder::flush(const PacketSink& sink) {
    if (Status pending = encodePending(true, sink); !pending.ok())
        return pending;
    if (const int r = avcodec_send_frame(m_codec.get(), nullptr); r < 0 && r != AVERROR_EOF)
        return failure(encoderFailed(r));
    return drain(sink);
}

Status AudioEncoder::drain(const PacketSink& sink) {
    for (;;) {
        const int r = avcodec_receive_packet(m_codec.get(), m_packet.get());
        if (r == AVERROR(EAGAIN) || r == AVERROR_EOF)
            return {};
        if (r < 0)
            return failure(encoderFailed(r));
        m_packet->pts += m_priming;
        m_packet->dts += m_priming;
        Status written = sink(m_packet.get());
        av_packet_unref(m_packet.get());
        if (!written.ok())
            return written;
    }
}

} // namespace qm::media
