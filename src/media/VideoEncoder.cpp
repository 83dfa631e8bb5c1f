#include "media/VideoEncoder.h"

extern "C" {
#include <libavutil/opt.h>
}

namespace qm::media {

Result<std::unique_ptr<VideoEncoder>> VideoEncoder::create(const Settings& settings) {
    const AVCodec* codec = avcodec_find_encoder_by_name("libx264");
    if (!codec)
        return failure(QStringLiteral("the H.264 encoder (x264) is not installed"));
    std::unique_ptr<VideoEncoder> encoder(new VideoEncoder);
    encoder->m_codec.reset(avcodec_alloc_context3(codec));
    encoder->m_frame.reset(av_frame_alloc());
    encoder->m_packet.reset(av_packet_alloc());
    AVCodecContext* c = encoder->m_codec.get();
    if (!c || !encoder->m_frame || !encoder->m_packet)
        return failure(av::describeErrno(ENOMEM));

    c->width = settings.size.width();
    c->height = settings.size.height();
    c->pix_fmt = AV_PIX_FMT_YUV420P;
    c->time_base = AVRational{1, settings.fps};
    c->framerate = AVRational{settings.fps, 1};
    c->bit_rate = settings.bitRate;
    // A screen is still for long stretches and then changes all at once: the buffer lets a
    // sudden full-screen change take twice the average for a second before quality drops.
    c->rc_max_rate = 2 * settings.bitRate;
    c->rc_buffer_size = int(std::min<std::int64_t>(2 * settings.bitRate, INT32_MAX));
    c->gop_size = 60;
    c->max_b_frames = 0;
    c->color_range = AVCOL_RANGE_MPEG;
    c->color_primaries = AVCOL_PRI_BT709;
    c->color_trc = AVCOL_TRC_BT709;
    c->colorspace = AVCOL_SPC_BT709;
    c->flags |= AV_CODEC_FLAG_GLOBAL_HEADER; // the movie's header carries SPS and PPS

    AVDictionary* options = nullptr;
    av_dict_set(&options, "preset", settings.preset.toUtf8().constData(), 0);
    av_dict_set(&options, "profile", "high", 0);
    // The fastest presets leave out the 8×8 transform, which is what makes a stream High.
    av_dict_set(&options, "x264-params", "8x8dct=1", 0);
    const int opened = avcodec_open2(c, codec, &options);
    av_dict_free(&options);
    if (opened < 0)
        return failure(QStringLiteral("the H.264 encoder could not start: ") +
                       av::errorText(opened));

    AVFrame* f = encoder->m_frame.get();
    f->format = c->pix_fmt;
    f->width = c->width;
    f->height = c->height;
    f->color_range = c->color_range;
    f->color_primaries = c->color_primaries;
    f->color_trc = c->color_trc;
    f->colorspace = c->colorspace;
    if (const int r = av_frame_get_buffer(f, 0); r < 0)
        return failure(av::errorText(r));

    encoder->m_convert.reset(sws_getContext(c->width, c->height, AV_PIX_FMT_BGR0, c->width,
                                            c->height, AV_PIX_FMT_YUV420P, SWS_BILINEAR, nullptr,
                                            nullptr, nullptr));
    if (!encoder->m_convert)
        return failure(QStringLiteral("the colour converter could not start"));
    // Full-range RGB in, BT.709 limited range out, matching the tags above.
    const int* bt709 = sws_getCoefficients(SWS_CS_ITU709);
    sws_setColorspaceDetails(encoder->m_convert.get(), bt709, 1, bt709, 0, 0, 1 << 16, 1 << 16);
    return encoder;
}

Status VideoEncoder::encode(const std::uint8_t* bgrx, int bytesPerLine, std::int64_t slot,
                            const PacketSink& sink) {
    AVFrame* f = m_frame.get();
    if (const int r = av_frame_make_writable(f); r < 0)
        return failure(av::errorText(r));
    const std::uint8_t* const planes[] = {bgrx};
    const int strides[] = {bytesPerLine};
    sws_scale(m_convert.get(), planes, strides, 0, f->height, f->data, f->linesize);
    f->pts = slot;
    if (const int r = avcodec_send_frame(m_codec.get(), f); r < 0)
        return failure(QStringLiteral("the H.264 encoder failed: ") + av::errorText(r));
    return drain(sink);
}

Status VideoEncoder::flush(const PacketSink& sink) {
    if (const int r = avcodec_send_frame(m_codec.get(), nullptr); r < 0 && r != AVERROR_EOF)
        return failure(QStringLiteral("the H.264 encoder failed: ") + av::errorText(r));
    return drain(sink);
}

Status VideoEncoder::drain(const PacketSink& sink) {
    for (;;) {
        const int r = avcodec_receive_packet(m_codec.get(), m_packet.get());
        if (r == AVERROR(EAGAIN) || r == AVERROR_EOF)
            return {};
        if (r < 0)
            return failure(QStringLiteral("the H.264 encoder failed: ") + av::errorText(r));
        Status written = sink(m_packet.get());
        av_packet_unref(m_packet.get());
        if (!written.ok())
            return written;
    }
}

} // namespace qm::media
