#include "media/gif/GifFrameReader.h"

extern "C" {
#include <libavutil/imgutils.h>
}

namespace qm::media {

namespace {

// Frame times are compared with a little slack, so that a frame stamped at exactly the
// requested time is not missed by a rounding error of the division.
constexpr double kSlack = 1e-6;

} // namespace

Result<std::unique_ptr<GifFrameReader>> GifFrameReader::open(const QString& path) {
    av::routeLibraryLog();
    std::unique_ptr<GifFrameReader> reader(new GifFrameReader);
    AVFormatContext* format = nullptr;
    const QByteArray name = path.toUtf8();
    if (avformat_open_input(&format, name.constData(), nullptr, nullptr) < 0)
        return failure(QStringLiteral("The file is not a movie Quillmark can read"));
    reader->m_format.reset(format);
    if (avformat_find_stream_info(format, nullptr) < 0)
        return failure(QStringLiteral("The file is not a movie Quillmark can read"));
    const AVCodec* codec = nullptr;
    reader->m_stream = av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    if (reader->m_stream < 0 || !codec)
        return failure(QStringLiteral("The movie has no picture"));
    const AVStream* stream = format->streams[reader->m_stream];
    reader->m_decoder.reset(avcodec_alloc_context3(codec));
    if (!reader->m_decoder ||
        avcodec_parameters_to_context(reader->m_decoder.get(), stream->codecpar) < 0)
        return failure(QStringLiteral("The movie's picture cannot be decoded"));
    reader->m_decoder->thread_count = 0; // as many as the machine has
    if (avcodec_open2(reader->m_decoder.get(), codec, nullptr) < 0)
        return failure(QStringLiteral("The movie's picture cannot be decoded"));
    if (reader->m_decoder->width <= 0 || reader->m_decoder->height <= 0)
        return failure(QStringLiteral("The movie's picture has no size"));
    reader->m_packet.reset(av_packet_alloc());
    reader->m_current.reset(av_frame_alloc());
    reader->m_next.reset(av_frame_alloc());
    return reader;
}

QSize GifFrameReader::size() const {
    return {m_decoder->width, m_decoder->height};
}

std::optional<double> GifFrameReader::duration() const {
    const AVStream* stream = m_format->streams[m_stream];
    if (stream->duration != AV_NOPTS_VALUE && stream->duration > 0)
        return stream->duration * av_q2d(stream->time_base);
    if (m_format->duration != AV_NOPTS_VALUE && m_format->duration > 0)
        return m_format->duration / double(AV_TIME_BASE);
    return std::nullopt;
}

double GifFrameReader::secondsOf(const AVFrame* frame) const {
    const AVStream* stream = m_format->streams[m_stream];
    std::int64_t pts = frame->best_effort_timestamp;
    if (pts == AV_NOPTS_VALUE)
        pts = frame->pts;
    if (pts == AV_NOPTS_VALUE)
        return 0;
    if (stream->start_time != AV_NOPTS_VALUE)
        pts -= stream->start_time;
    return pts * av_q2d(stream->time_base);
}

Status GifFrameReader::start(double seconds, QSize target) {
    m_target = target;
    m_pixels.assign(std::size_t(target.width()) * target.height() * 4, 0);
    m_scaler.reset();
    if (seconds > 0) {
        const AVStream* stream = m_format->streams[m_stream];
        std::int64_t ts = std::int64_t(seconds / av_q2d(stream->time_base));
        if (stream->start_time != AV_NOPTS_VALUE)
            ts += stream->start_time;
        // The key frame at or before the start; the frames up to the start are decoded and
        // dropped, so the GIF begins exactly where asked.
        if (av_seek_frame(m_format.get(), m_stream, ts, AVSEEK_FLAG_BACKWARD) < 0)
            av_seek_frame(m_format.get(), m_stream, 0, AVSEEK_FLAG_BACKWARD);
        avcodec_flush_buffers(m_decoder.get());
    }
    m_haveCurrent = m_haveNext = m_ended = m_flushing = m_converted = false;
    return {};
}

bool GifFrameReader::decodeNext() {
    AVCodecContext* decoder = m_decoder.get();
    for (;;) {
        const int received = avcodec_receive_frame(decoder, m_next.get());
        if (received == 0)
            return true;
        if (received == AVERROR_EOF)
            return false;
        if (received != AVERROR(EAGAIN))
            continue; // a broken frame: go on with the next one
        if (m_flushing)
            return false;
        const int read = av_read_frame(m_format.get(), m_packet.get());
        if (read < 0) {
            m_flushing = true;
            avcodec_send_packet(decoder, nullptr);
            continue;
        }
        if (m_packet->stream_index == m_stream)
            avcodec_send_packet(decoder, m_packet.get()); // a bad packet only costs its frame
        av_packet_unref(m_packet.get());
    }
}

const std::vector<std::uint8_t>* GifFrameReader::frameAt(double seconds) {
    for (;;) {
        if (!m_haveNext && !m_ended) {
            m_haveNext = decodeNext();
            m_ended = !m_haveNext;
        }
        if (!m_haveNext)
            break;
        const bool due = secondsOf(m_next.get()) <= seconds + kSlack;
        if (m_haveCurrent && !due)
            break;
        // The next frame is due; before the first frame, the first one stands in.
        std::swap(m_current, m_next);
        m_haveCurrent = true;
        m_haveNext = false;
        m_converted = false;
        if (!due)
            break;
    }
    if (!m_haveCurrent)
        return nullptr;
    if (!m_converted && !convert(m_current.get()))
        return nullptr;
    m_converted = true;
    return &m_pixels;
}

bool GifFrameReader::convert(const AVFrame* frame) {
    SwsContext* scaler =
        sws_getCachedContext(m_scaler.release(), frame->width, frame->height,
                             AVPixelFormat(frame->format), m_target.width(), m_target.height(),
                             AV_PIX_FMT_RGBA, SWS_BICUBIC, nullptr, nullptr, nullptr);
    m_scaler.reset(scaler);
    if (!scaler)
        return false;
    if (frame->colorspace != AVCOL_SPC_UNSPECIFIED || frame->color_range == AVCOL_RANGE_JPEG) {
        const int space =
            frame->colorspace == AVCOL_SPC_UNSPECIFIED ? SWS_CS_DEFAULT : int(frame->colorspace);
        const int* coefficients = sws_getCoefficients(space);
        sws_setColorspaceDetails(scaler, coefficients, frame->color_range == AVCOL_RANGE_JPEG,
                                 sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, 1 << 16, 1 << 16);
    }
    std::uint8_t* planes[4] = {m_pixels.data(), nullptr, nullptr, nullptr};
    int strides[4] = {m_target.width() * 4, 0, 0, 0};
    return sws_scale(scaler, frame->data, frame->linesize, 0, frame->height, planes, strides) > 0;
}

} // namespace qm::media
