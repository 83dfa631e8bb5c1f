#include "media/player/MovieDecoder.h"

#include "media/Av.h"

#include <cmath>

namespace qm::media::player {

namespace {
// Frame times come from integer time stamps; this absorbs the rounding of a double target.
constexpr double kTimeSlack = 1e-4;
} // namespace

struct MovieDecoder::Impl {
    av::InputFormat format;
    av::CodecContext codec;
    av::Packet packet{av_packet_alloc()};
    av::Frame decoded{av_frame_alloc()};
    av::Sws sws;
    int stream = -1;
    AVRational timeBase{1, 1};
    double startTime = 0;
    double duration = 0;
    double frameRate = 30;
    bool endOfInput = false;
    // A frame read past the asked time, kept because it is the next one in order.
    av::Frame ahead;
    // The frame last returned, and its time.
    av::Frame shown;
    double lastTime = -1;
    // While catching up to a seek's target: the time before which nothing is shown.
    double skipBefore = -1;

    double timeOf(const AVFrame* frame) const {
        int64_t pts = frame->best_effort_timestamp;
        if (pts == AV_NOPTS_VALUE)
            pts = frame->pts;
        return pts == AV_NOPTS_VALUE ? lastTime + 1.0 / frameRate
                                     : pts * av_q2d(timeBase) - startTime;
    }

    // The next frame from the codec, or nothing at the end.
    av::Frame decodeOne() {
        for (;;) {
            const int got = avcodec_receive_frame(codec.get(), decoded.get());
            if (got == 0) {
                av::Frame out{av_frame_alloc()};
                av_frame_move_ref(out.get(), decoded.get());
                return out;
            }
            if (got == AVERROR_EOF)
                return {};
            if (endOfInput)
                return {};
            const int read = av_read_frame(format.get(), packet.get());
            if (read < 0) {
                endOfInput = true;
                avcodec_send_packet(codec.get(), nullptr);
                continue;
            }
            if (packet->stream_index == stream) {
                // Pictures that end before the wanted one and that no other picture refers to
                // need not be decoded at all: this makes a seek far from a key frame quicker.
                const double end =
                    (packet->pts == AV_NOPTS_VALUE || packet->duration <= 0)
                        ? -1
                        : (packet->pts + packet->duration) * av_q2d(timeBase) - startTime;
                codec->skip_frame = end >= 0 && end <= skipBefore - kTimeSlack ? AVDISCARD_NONREF
                                                                               : AVDISCARD_DEFAULT;
                avcodec_send_packet(codec.get(), packet.get());
            }
            av_packet_unref(packet.get());
        }
    }

    av::Frame takeNext() {
        if (ahead)
            return std::move(ahead);
        return decodeOne();
    }

    bool seekBefore(double seconds) {
        const double target = std::max(0.0, seconds) + startTime;
        const auto ts = static_cast<int64_t>(std::floor(target / av_q2d(timeBase)));
        if (av_seek_frame(format.get(), stream, ts, AVSEEK_FLAG_BACKWARD) < 0)
            return false;
        avcodec_flush_buffers(codec.get());
        ahead.reset();
        shown.reset();
        endOfInput = false;
        lastTime = -1;
        return true;
    }

    Result<VideoFrame> show(av::Frame frame, int height) {
        lastTime = timeOf(frame.get());
        auto image = toImage(frame.get(), height);
        shown = std::move(frame);
        return image;
    }

    Result<VideoFrame> toImage(const AVFrame* frame, int height) {
        int outW = frame->width;
        int outH = frame->height;
        if (height > 0 && frame->height > 0) {
            outH = height;
            outW = std::max(
                1, static_cast<int>(std::lround(double(frame->width) * height / frame->height)));
        }
        sws.reset(sws_getCachedContext(sws.release(), frame->width, frame->height,
                                       static_cast<AVPixelFormat>(frame->format), outW, outH,
                                       AV_PIX_FMT_RGB32, SWS_BILINEAR, nullptr, nullptr, nullptr));
        if (!sws)
            return failure(QStringLiteral("the movie's pictures are in a format we cannot show"));
        QImage image(outW, outH, QImage::Format_RGB32);
        uint8_t* planes[4] = {image.bits(), nullptr, nullptr, nullptr};
        int strides[4] = {static_cast<int>(image.bytesPerLine()), 0, 0, 0};
        sws_scale(sws.get(), frame->data, frame->linesize, 0, frame->height, planes, strides);
        return VideoFrame{std::move(image), timeOf(frame)};
    }
};

MovieDecoder::MovieDecoder(std::unique_ptr<Impl> impl)
    : d(std::move(impl)) {}
MovieDecoder::~MovieDecoder() = default;

Result<std::unique_ptr<MovieDecoder>> MovieDecoder::open(const QString& path) {
    av::routeLibraryLog();
    auto impl = std::make_unique<Impl>();
    AVFormatContext* raw = nullptr;
    const QByteArray name = path.toUtf8();
    if (const int err = avformat_open_input(&raw, name.constData(), nullptr, nullptr); err < 0)
        return failure(QStringLiteral("Could not open the movie: %1").arg(av::errorText(err)));
    impl->format.reset(raw);
    if (avformat_find_stream_info(raw, nullptr) < 0)
        return failure(QStringLiteral("Could not open the movie: it is damaged"));
    const AVCodec* codec = nullptr;
    impl->stream = av_find_best_stream(raw, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    if (impl->stream < 0 || !codec)
        return failure(QStringLiteral("Could not open the movie: it has no picture"));
    AVStream* stream = raw->streams[impl->stream];
    impl->codec.reset(avcodec_alloc_context3(codec));
    avcodec_parameters_to_context(impl->codec.get(), stream->codecpar);
    impl->codec->thread_count = 2;
    if (avcodec_open2(impl->codec.get(), codec, nullptr) < 0)
        return failure(QStringLiteral("Could not open the movie: its pictures cannot be read"));
    impl->timeBase = stream->time_base;
    if (raw->start_time != AV_NOPTS_VALUE)
        impl->startTime = raw->start_time / double(AV_TIME_BASE);
    if (raw->duration != AV_NOPTS_VALUE) {
        const double seconds = raw->duration / double(AV_TIME_BASE);
        impl->duration = std::isfinite(seconds) && seconds > 0 ? seconds : 0;
    }
    const AVRational rate =
        stream->avg_frame_rate.num ? stream->avg_frame_rate : stream->r_frame_rate;
    if (rate.num > 0 && rate.den > 0)
        impl->frameRate = av_q2d(rate);
    return std::unique_ptr<MovieDecoder>(new MovieDecoder(std::move(impl)));
}

double MovieDecoder::duration() const {
    return d->duration;
}

double MovieDecoder::frameRate() const {
    return d->frameRate;
}

QSize MovieDecoder::frameSize() const {
    return {d->codec->width, d->codec->height};
}

Result<VideoFrame> MovieDecoder::frameAt(double seconds, int height) {
    // Going on from the frame on screen is cheaper than a seek while the target is close ahead.
    av::Frame best;
    const bool forward =
        d->shown && seconds + kTimeSlack >= d->lastTime && seconds < d->lastTime + 1.0;
    if (forward)
        best.reset(av_frame_clone(d->shown.get()));
    else if (!d->seekBefore(seconds))
        return failure(QStringLiteral("Could not show the movie at that time"));
    d->skipBefore = seconds;
    for (;;) {
        av::Frame frame = d->takeNext();
        if (!frame)
            break;
        const double t = d->timeOf(frame.get());
        if (t > seconds + kTimeSlack && best) {
            d->ahead = std::move(frame);
            break;
        }
        best = std::move(frame);
        if (t > seconds + kTimeSlack)
            break; // the target lies before the first frame
    }
    d->skipBefore = -1;
    if (!best)
        return failure(QStringLiteral("Could not show the movie at that time"));
    return d->show(std::move(best), height);
}

Result<VideoFrame> MovieDecoder::nextFrame(int height) {
    av::Frame frame = d->takeNext();
    if (!frame)
        return failure(QStringLiteral("the movie has no more pictures"));
    return d->show(std::move(frame), height);
}

} // namespace qm::media::player
