#include "platform/camera/v4l2/FfmpegCameraStream.h"

#include <QImage>
#include <atomic>
#include <mutex>
#include <thread>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavdevice/avdevice.h>
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
#include <libavutil/error.h>
#include <libswscale/swscale.h>
}

namespace qm::platform {

namespace {

QString describe(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return QString::fromLocal8Bit(text);
}

struct InputCloser {
    void operator()(AVFormatContext* input) const { avformat_close_input(&input); }
};
struct CodecFree {
    void operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
};
struct PacketFree {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct FrameFree {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct ScalerFree {
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};
struct DictionaryFree {
    void operator()(AVDictionary* dictionary) const { av_dict_free(&dictionary); }
};

class Stream final : public CameraStream {
public:
    Stream(std::unique_ptr<AVFormatContext, InputCloser> input,
           std::unique_ptr<AVCodecContext, CodecFree> decoder, int streamIndex,
           std::shared_ptr<std::atomic<bool>> stopping)
        : m_stopping(std::move(stopping))
        , m_input(std::move(input))
        , m_decoder(std::move(decoder))
        , m_streamIndex(streamIndex) {}

    ~Stream() override { stop(); }

    Status start(FrameSink onFrame, StopSink onStopped) override {
        std::lock_guard lock(m_control);
        if (m_stopping->load())
            return failure(QStringLiteral("The camera has been stopped"));
        if (m_thread.joinable())
            return failure(QStringLiteral("The camera is already running"));
        m_thread = std::thread([this, onFrame = std::move(onFrame),
                                onStopped = std::move(onStopped)] { run(onFrame, onStopped); });
        return {};
    }

    void stop() override {
        // Also breaks a read waiting in FFmpeg; a camera hands over a picture every few dozen
        // milliseconds, so a read waiting in the driver ends as soon.
        m_stopping->store(true);
        if (std::this_thread::get_id() == m_runner.load())
            return; // asked from a callback: the thread ends when it returns, joined later
        std::lock_guard lock(m_control);
        if (m_thread.joinable())
            m_thread.join();
    }

private:
    void run(const FrameSink& onFrame, const StopSink& onStopped) {
        m_runner.store(std::this_thread::get_id());
        std::unique_ptr<AVPacket, PacketFree> packet(av_packet_alloc());
        std::unique_ptr<AVFrame, FrameFree> frame(av_frame_alloc());
        std::unique_ptr<SwsContext, ScalerFree> scaler;
        QString reason;
        while (!m_stopping->load()) {
            const int read = av_read_frame(m_input.get(), packet.get());
            if (read == AVERROR(EAGAIN))
                continue;
            if (read < 0) {
                reason = read == AVERROR_EOF
                             ? QStringLiteral("The camera stopped sending pictures")
                             : QStringLiteral("The camera went away: ") + describe(read);
                break;
            }
            if (packet->stream_index == m_streamIndex &&
                avcodec_send_packet(m_decoder.get(), packet.get()) >= 0) {
                while (avcodec_receive_frame(m_decoder.get(), frame.get()) >= 0) {
                    const QImage image = convert(*frame, scaler);
                    av_frame_unref(frame.get());
                    if (!image.isNull())
                        onFrame(image);
                }
            }
            av_packet_unref(packet.get());
        }
        if (!m_stopping->load() && onStopped)
            onStopped(reason);
    }

    static QImage convert(const AVFrame& frame, std::unique_ptr<SwsContext, ScalerFree>& scaler) {
        if (frame.width <= 0 || frame.height <= 0)
            return {};
        scaler.reset(sws_getCachedContext(
            scaler.release(), frame.width, frame.height, AVPixelFormat(frame.format), frame.width,
            frame.height, AV_PIX_FMT_RGB32, SWS_BILINEAR, nullptr, nullptr, nullptr));
        if (!scaler)
            return {};
        // AV_PIX_FMT_RGB32 is a native-endian 0xAARRGGBB word, as QImage::Format_RGB32 is.
        QImage image(frame.width, frame.height, QImage::Format_RGB32);
        uint8_t* planes[4] = {image.bits(), nullptr, nullptr, nullptr};
        int strides[4] = {int(image.bytesPerLine()), 0, 0, 0};
        sws_scale(scaler.get(), frame.data, frame.linesize, 0, frame.height, planes, strides);
        return image;
    }

    // The input's interrupt callback reads this flag, so it outlives the input.
    std::shared_ptr<std::atomic<bool>> m_stopping;
    std::unique_ptr<AVFormatContext, InputCloser> m_input;
    std::unique_ptr<AVCodecContext, CodecFree> m_decoder;
    int m_streamIndex;
    std::mutex m_control;
    std::atomic<std::thread::id> m_runner{};
    std::thread m_thread;
};

int interruptWhenStopping(void* opaque) {
    return static_cast<std::atomic<bool>*>(opaque)->load() ? 1 : 0;
}

} // namespace

Result<std::unique_ptr<CameraStream>>
FfmpegCameraStream::open(const QString& inputFormat, const QString& url,
                         const QMap<QString, QString>& options) {
    static std::once_flag registered;
    std::call_once(registered, [] { avdevice_register_all(); });

    const AVInputFormat* format = av_find_input_format(inputFormat.toLatin1().constData());
    if (!format)
        return failure(QStringLiteral("This system's FFmpeg cannot read cameras"));

    auto stopping = std::make_shared<std::atomic<bool>>(false);
    AVFormatContext* raw = avformat_alloc_context();
    if (!raw)
        return failure(QStringLiteral("The camera could not be opened: out of memory"));
    raw->interrupt_callback.callback = interruptWhenStopping;
    raw->interrupt_callback.opaque = stopping.get();

    AVDictionary* rawOptions = nullptr;
    for (auto it = options.begin(); it != options.end(); ++it)
        av_dict_set(&rawOptions, it.key().toUtf8().constData(), it.value().toUtf8().constData(), 0);
    std::unique_ptr<AVDictionary, DictionaryFree> optionsOwner(rawOptions);
    AVDictionary* passed = optionsOwner.release();
    // On failure avformat_open_input frees the context itself.
    const int opened = avformat_open_input(&raw, url.toLocal8Bit().constData(), format, &passed);
    optionsOwner.reset(passed);
    if (opened < 0)
        return failure(QStringLiteral("The camera could not be opened: ") + describe(opened));
    std::unique_ptr<AVFormatContext, InputCloser> input(raw);

    if (const int found = avformat_find_stream_info(input.get(), nullptr); found < 0)
        return failure(QStringLiteral("The camera sends no pictures: ") + describe(found));
    const AVCodec* codec = nullptr;
    const int index = av_find_best_stream(input.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    if (index < 0 || !codec)
        return failure(QStringLiteral("The camera sends no pictures this program can read"));

    std::unique_ptr<AVCodecContext, CodecFree> decoder(avcodec_alloc_context3(codec));
    if (!decoder ||
        avcodec_parameters_to_context(decoder.get(), input->streams[index]->codecpar) < 0 ||
        avcodec_open2(decoder.get(), codec, nullptr) < 0)
        return failure(QStringLiteral("The camera's pictures cannot be decoded"));

    return std::unique_ptr<CameraStream>(
        std::make_unique<Stream>(std::move(input), std::move(decoder), index, std::move(stopping)));
}

} // namespace qm::platform
