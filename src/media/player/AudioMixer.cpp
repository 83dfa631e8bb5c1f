#include "media/player/AudioMixer.h"

#include "media/Av.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <deque>

namespace qm::media::player {

namespace {
struct SwrFree {
    void operator()(SwrContext* s) const { swr_free(&s); }
};
using Swr = std::unique_ptr<SwrContext, SwrFree>;
} // namespace

struct AudioMixer::Impl {
    struct Track {
        int stream = -1;
        av::CodecContext codec;
        Swr swr;
        AVRational timeBase{1, 1};
        std::deque<float> pending; // interleaved stereo at kMixRate
        double dropUntil = 0;      // sound before the asked time is not played
        bool finished = false;
    };
    av::InputFormat format;
    std::vector<Track> tracks;
    av::Packet packet{av_packet_alloc()};
    av::Frame frame{av_frame_alloc()};
    double startTime = 0;
    bool endOfInput = false;

    void convert(Track& track) {
        const double t = (frame->best_effort_timestamp == AV_NOPTS_VALUE
                              ? 0
                              : frame->best_effort_timestamp * av_q2d(track.timeBase)) -
                         startTime;
        const int capacity = swr_get_out_samples(track.swr.get(), frame->nb_samples);
        std::vector<float> out(static_cast<std::size_t>(std::max(capacity, 0)) * kMixChannels);
        uint8_t* planes[1] = {reinterpret_cast<uint8_t*>(out.data())};
        const int made =
            swr_convert(track.swr.get(), planes, capacity,
                        const_cast<const uint8_t**>(frame->extended_data), frame->nb_samples);
        if (made <= 0)
            return;
        int skip = 0;
        if (t < track.dropUntil)
            skip = std::min(made, static_cast<int>((track.dropUntil - t) * kMixRate));
        track.pending.insert(track.pending.end(), out.begin() + skip * kMixChannels,
                             out.begin() + made * kMixChannels);
    }

    void drain(Track& track) {
        for (;;) {
            const int got = avcodec_receive_frame(track.codec.get(), frame.get());
            if (got == AVERROR_EOF)
                track.finished = true;
            if (got < 0)
                return;
            convert(track);
            av_frame_unref(frame.get());
        }
    }

    // Reads on until every unfinished track holds `samples` or the file ends.
    void fill(std::size_t samples) {
        auto needy = [&] {
            return std::any_of(tracks.begin(), tracks.end(), [&](const Track& t) {
                return !t.finished && t.pending.size() < samples;
            });
        };
        while (needy()) {
            if (endOfInput) {
                for (Track& track : tracks) {
                    avcodec_send_packet(track.codec.get(), nullptr);
                    drain(track);
                    track.finished = true;
                }
                return;
            }
            if (av_read_frame(format.get(), packet.get()) < 0) {
                endOfInput = true;
                continue;
            }
            for (Track& track : tracks) {
                if (track.stream != packet->stream_index)
                    continue;
                avcodec_send_packet(track.codec.get(), packet.get());
                drain(track);
            }
            av_packet_unref(packet.get());
        }
    }
};

AudioMixer::AudioMixer(std::unique_ptr<Impl> impl)
    : d(std::move(impl)) {}
AudioMixer::~AudioMixer() = default;

Result<std::unique_ptr<AudioMixer>> AudioMixer::open(const QString& path) {
    av::routeLibraryLog();
    auto impl = std::make_unique<Impl>();
    AVFormatContext* raw = nullptr;
    if (const int err = avformat_open_input(&raw, path.toUtf8().constData(), nullptr, nullptr);
        err < 0)
        return failure(QStringLiteral("Could not open the movie: %1").arg(av::errorText(err)));
    impl->format.reset(raw);
    if (avformat_find_stream_info(raw, nullptr) < 0)
        return failure(QStringLiteral("Could not open the movie: it is damaged"));
    if (raw->start_time != AV_NOPTS_VALUE)
        impl->startTime = raw->start_time / double(AV_TIME_BASE);
    AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
    for (unsigned i = 0; i < raw->nb_streams; ++i) {
        AVStream* stream = raw->streams[i];
        if (stream->codecpar->codec_type != AVMEDIA_TYPE_AUDIO)
            continue;
        const AVCodec* codec = avcodec_find_decoder(stream->codecpar->codec_id);
        if (!codec)
            continue; // a track we cannot decode stays silent; the others still play
        Impl::Track track;
        track.stream = static_cast<int>(i);
        track.timeBase = stream->time_base;
        track.codec.reset(avcodec_alloc_context3(codec));
        avcodec_parameters_to_context(track.codec.get(), stream->codecpar);
        if (avcodec_open2(track.codec.get(), codec, nullptr) < 0)
            continue;
        SwrContext* swr = nullptr;
        if (swr_alloc_set_opts2(&swr, &stereo, AV_SAMPLE_FMT_FLT, kMixRate, &track.codec->ch_layout,
                                track.codec->sample_fmt, track.codec->sample_rate, 0,
                                nullptr) < 0 ||
            swr_init(swr) < 0) {
            swr_free(&swr);
            continue;
        }
        track.swr.reset(swr);
        impl->tracks.push_back(std::move(track));
    }
    return std::unique_ptr<AudioMixer>(new AudioMixer(std::move(impl)));
}

int AudioMixer::trackCount() const {
    return static_cast<int>(d->tracks.size());
}

void AudioMixer::seek(double seconds) {
    const auto ts = static_cast<int64_t>((std::max(0.0, seconds) + d->startTime) * AV_TIME_BASE);
    av_seek_frame(d->format.get(), -1, ts, AVSEEK_FLAG_BACKWARD);
    d->endOfInput = false;
    for (auto& track : d->tracks) {
        avcodec_flush_buffers(track.codec.get());
        swr_init(track.swr.get()); // forget what it held from before the jump
        track.pending.clear();
        track.finished = false;
        track.dropUntil = seconds;
    }
}

std::vector<float> AudioMixer::read(int frames) {
    const auto samples = static_cast<std::size_t>(frames) * kMixChannels;
    d->fill(samples);
    std::size_t available = 0;
    for (const auto& track : d->tracks)
        available = std::max(available, std::min(samples, track.pending.size()));
    std::vector<float> mix(available, 0.0f);
    for (auto& track : d->tracks) {
        const std::size_t n = std::min(available, track.pending.size());
        for (std::size_t i = 0; i < n; ++i)
            mix[i] += track.pending[i];
        track.pending.erase(track.pending.begin(), track.pending.begin() + n);
    }
    for (float& s : mix)
        s = std::clamp(s, -1.0f, 1.0f);
    return mix;
}

} // namespace qm::media::player
