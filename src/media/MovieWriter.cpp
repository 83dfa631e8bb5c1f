#include "media/MovieWriter.h"

#include "media/AudioEncoder.h"
#include "media/Av.h"
#include "media/FileIo.h"
#include "media/VideoEncoder.h"

#include <QFile>
#include <cmath>
#include <optional>
#include <unistd.h>

extern "C" {
#include <libavutil/mathematics.h>
}

namespace qm::media {

std::int64_t videoBitRate(QSize size) {
    // 0.11 bits per pixel at 30 frames a second, in integers so 1920 × 1080 is exact.
    const std::int64_t bits = std::int64_t(size.width()) * size.height() * 30 * 11 / 100;
    return std::min<std::int64_t>(bits, 40'000'000);
}

namespace {

// Fragments are cut at every key frame and at least once a second, so a recording cut off
// at any moment loses at most the last second.
constexpr double kFragmentSeconds = 1.0;

class FragmentedMovie final : public MovieWriter {
public:
    Status open(const QString& path, const MovieSettings& settings);
    ~FragmentedMovie() override;

    Status writeVideo(const std::uint8_t* pixels, int bytesPerLine, MediaTime t) override;
    Status writeAudio(AudioTrack track, const float* samples, int frames, MediaTime t) override;
    Status finish() override;
    std::uint64_t videoFramesWritten() const override { return m_frames; }

private:
    struct Track {
        AVStream* stream = nullptr;
        AVRational timeBase{};
    };
    struct Sound {
        std::unique_ptr<AudioEncoder> encoder;
        Track track;
    };

    Status addTrack(const AVCodecContext* codec, Track& track);
    Status videoPacket(AVPacket* packet);
    Status mux(AVPacket* packet, const Track& track);
    Status cutFragment();
    Status fail(Status status);
    Sound* sound(AudioTrack which);

    int m_fps = 30;
    std::unique_ptr<FileSink> m_file;
    av::OutputFormat m_format;
    std::unique_ptr<VideoEncoder> m_video;
    Track m_videoTrack;
    Sound m_system;
    Sound m_microphone;
    // The newest video packet waits for the next one, which tells how long it is shown. The
    // last frame of a fragment is timed by its own entry alone: a wrong one would move every
    // later frame earlier, away from its sound, after a gap.
    av::Packet m_heldVideo;
    bool m_holding = false;
    std::optional<std::int64_t> m_lastSlot;
    std::uint64_t m_frames = 0;
    std::optional<double> m_fragmentStart; // seconds, while the open fragment holds anything
    std::optional<Error> m_failure;
    bool m_started = false; // the header is on disk
    bool m_finished = false;
};

Status FragmentedMovie::open(const QString& path, const MovieSettings& settings) {
    const QSize size = settings.size;
    if (size.width() < 2 || size.height() < 2 || size.width() % 2 || size.height() % 2)
        return failure(QStringLiteral("the recorded area must be an even number of pixels wide "
                                      "and high, at least 2 × 2"));
    if (settings.fps < 1 || settings.fps > 240)
        return failure(QStringLiteral("the frame rate must be between 1 and 240"));
    m_fps = settings.fps;

    auto video = VideoEncoder::create({.size = size,
                                       .fps = settings.fps,
                                       .bitRate = videoBitRate(size),
                                       .preset = settings.x264Preset});
    if (!video)
        return video.error();
    m_video = std::move(*video);
    for (auto [wanted, sound] : {std::pair{settings.systemAudio, &m_system},
                                 std::pair{settings.microphone, &m_microphone}}) {
        if (!wanted)
            continue;
        auto encoder = AudioEncoder::create();
        if (!encoder)
            return encoder.error();
        sound->encoder = std::move(*encoder);
    }
    m_heldVideo.reset(av_packet_alloc());

    AVFormatContext* format = nullptr;
    if (avformat_alloc_output_context2(&format, nullptr, "mov", nullptr) < 0 || !format)
        return failure(QStringLiteral("the movie format is not available"));
    m_format.reset(format);

    // The system track first, then the microphone: players and the trim window take the
    // first sound track as the main one.
    if (Status s = addTrack(m_video->context(), m_videoTrack); !s.ok())
        return s;
    for (Sound* sound : {&m_system, &m_microphone})
        if (sound->encoder)
            if (Status s = addTrack(sound->encoder->context(), sound->track); !s.ok())
                return s;

    auto file = FileSink::createExclusive(path);
    if (!file)
        return file.error();
    m_file = std::move(*file);
    format->pb = m_file->io();
    format->flags |= AVFMT_FLAG_CUSTOM_IO;

    AVDictionary* options = nullptr;
    // An empty index up front and the media in self-describing fragments, cut where we say.
    av_dict_set(&options, "movflags", "empty_moov+frag_custom", 0);
    const int header = avformat_write_header(format, &options);
    av_dict_free(&options);
    Status started = m_file->status();
    if (started.ok() && header < 0)
        started =
            failure(QStringLiteral("the movie could not be started: ") + av::errorText(header));
    if (started.ok())
        started = m_file->sync();
    if (!started.ok()) {
        // Nothing of a recording is in it yet: the file goes again.
        (void)m_file->close();
        ::unlink(QFile::encodeName(path).constData());
        return started;
    }
    m_started = true;
    return {};
}

FragmentedMovie::~FragmentedMovie() {
    if (m_started && !m_finished)
        (void)finish();
}

Status FragmentedMovie::addTrack(const AVCodecContext* codec, Track& track) {
    AVStream* stream = avformat_new_stream(m_format.get(), nullptr);
    if (!stream)
        return failure(av::describeErrno(ENOMEM));
    if (const int r = avcodec_parameters_from_context(stream->codecpar, codec); r < 0)
        return failure(av::errorText(r));
    stream->time_base = codec->time_base;
    if (codec->codec_type == AVMEDIA_TYPE_VIDEO)
        stream->avg_frame_rate = codec->framerate;
    track.stream = stream;
    track.timeBase = codec->time_base;
    return {};
}

FragmentedMovie::Sound* FragmentedMovie::sound(AudioTrack which) {
    Sound* s = which == AudioTrack::System ? &m_system : &m_microphone;
    return s->encoder ? s : nullptr;
}

Status FragmentedMovie::fail(Status status) {
    if (!status.ok() && !m_failure)
        m_failure = status.error();
    return status;
}

Status FragmentedMovie::writeVideo(const std::uint8_t* pixels, int bytesPerLine, MediaTime t) {
    if (m_failure)
        return *m_failure;
    if (m_finished)
        return failure(QStringLiteral("the recording is already finished"));
    if (!pixels || bytesPerLine < 4 * m_video->context()->width)
        return failure(QStringLiteral("the screen frame does not match the recorded size"));
    const auto slot = std::int64_t(std::llround(double(t.count()) * m_fps / 1e9));
    if (slot < 0 || (m_lastSlot && slot <= *m_lastSlot))
        return {};
    m_lastSlot = slot;
    ++m_frames;
    return fail(m_video->encode(pixels, bytesPerLine, slot,
                                [this](AVPacket* p) { return videoPacket(p); }));
}

Status FragmentedMovie::writeAudio(AudioTrack track, const float* samples, int frames,
                                   MediaTime t) {
    if (m_failure)
        return *m_failure;
    if (m_finished)
        return failure(QStringLiteral("the recording is already finished"));
    Sound* s = sound(track);
    if (!s)
        return failure(track == AudioTrack::System
                           ? QStringLiteral("this recording has no system sound track")
                           : QStringLiteral("this recording has no microphone track"));
    return fail(
        s->encoder->write(samples, frames, t, [this, s](AVPacket* p) { return mux(p, s->track); }));
}

Status FragmentedMovie::videoPacket(AVPacket* packet) {
    Status written;
    if (m_holding) {
        // Shown until the next frame, however far away that is: dropped frames and gaps in
        // the times given leave no hole in the picture.
        m_heldVideo->duration = packet->dts - m_heldVideo->dts;
        written = mux(m_heldVideo.get(), m_videoTrack);
        av_packet_unref(m_heldVideo.get());
    }
    av_packet_ref(m_heldVideo.get(), packet);
    m_holding = true;
    return written;
}

Status FragmentedMovie::mux(AVPacket* packet, const Track& track) {
    const double seconds = double(packet->dts) * av_q2d(track.timeBase);
    const bool keyFrame = track.stream == m_videoTrack.stream && (packet->flags & AV_PKT_FLAG_KEY);
    if (m_fragmentStart && (keyFrame || seconds - *m_fragmentStart >= kFragmentSeconds))
        if (Status cut = cutFragment(); !cut.ok())
            return cut;
    if (!m_fragmentStart)
        m_fragmentStart = seconds;
    av_packet_rescale_ts(packet, track.timeBase, track.stream->time_base);
    packet->stream_index = track.stream->index;
    const int r = av_write_frame(m_format.get(), packet);
    if (Status disk = m_file->status(); !disk.ok())
        return disk;
    if (r < 0)
        return failure(QStringLiteral("the movie could not be written: ") + av::errorText(r));
    return {};
}

Status FragmentedMovie::cutFragment() {
    m_fragmentStart.reset();
    const int r = av_write_frame(m_format.get(), nullptr); // writes the fragment out
    // Stored on the disk in the background: a slow disk must not hold up the frames.
    if (Status disk = m_file->syncSoon(); !disk.ok())
        return disk;
    if (r < 0)
        return failure(QStringLiteral("the movie could not be written: ") + av::errorText(r));
    return {};
}

Status FragmentedMovie::finish() {
    if (m_finished)
        return m_failure ? Status(*m_failure) : Status();
    m_finished = true;
    Status outcome = m_failure ? Status(*m_failure) : Status();
    if (outcome.ok())
        outcome = fail(m_video->flush([this](AVPacket* p) { return videoPacket(p); }));
    if (outcome.ok() && m_holding) {
        m_heldVideo->duration = 1;
        outcome = fail(mux(m_heldVideo.get(), m_videoTrack));
        m_holding = false;
    }
    for (Sound* s : {&m_system, &m_microphone})
        if (outcome.ok() && s->encoder)
            outcome = fail(s->encoder->flush([this, s](AVPacket* p) { return mux(p, s->track); }));
    if (outcome.ok())
        outcome = fail(cutFragment());
    if (outcome.ok()) {
        const int r = av_write_trailer(m_format.get());
        outcome = m_file->status();
        if (outcome.ok() && r < 0)
            outcome =
                failure(QStringLiteral("the movie could not be finished: ") + av::errorText(r));
    }
    // Whatever happened, what reached the disk stays there, readable up to its last fragment.
    Status closed = m_file->close();
    if (outcome.ok())
        outcome = fail(closed);
    m_format.reset();
    return outcome;
}

} // namespace

Result<std::unique_ptr<MovieWriter>> MovieWriter::create(const QString& path,
                                                         const MovieSettings& settings) {
    av::routeLibraryLog();
    auto movie = std::make_unique<FragmentedMovie>();
    if (Status opened = movie->open(path, settings); !opened.ok())
        return opened.error();
    return std::unique_ptr<MovieWriter>(std::move(movie));
}

} // namespace qm::media
