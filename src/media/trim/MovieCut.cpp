#include "media/trim/MovieCut.h"

#include "media/Av.h"
#include "media/FileIo.h"

#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <cmath>
#include <sys/stat.h>
#include <vector>

extern "C" {
#include <libavutil/mathematics.h>
}

namespace qm::media::trim {

namespace {

const QString kNotAMovie = QStringLiteral("the file is not a movie");
const QString kDamaged = QStringLiteral("the movie is damaged or cut off");

// The first box of a QuickTime movie is one of these; anything else is some other kind of
// file, which FFmpeg might still open (a picture, a sound file) but we would not trim.
bool startsLikeMovie(const QByteArray& head) {
    if (head.size() < 8)
        return false;
    static const char* const kBoxes[] = {"ftyp", "moov", "mdat", "free", "skip", "wide", "pnot"};
    const QByteArray type = head.mid(4, 4);
    return std::any_of(std::begin(kBoxes), std::end(kBoxes),
                       [&](const char* box) { return type == box; });
}

// True when every sample the index names lies wholly inside the file: a movie whose end was
// cut off (a copy that stopped, a full disk) still opens when its index is at the front.
bool samplesInFile(AVStream* stream, std::int64_t fileSize) {
    const int count = avformat_index_get_entries_count(stream);
    for (int i = 0; i < count; ++i) {
        const AVIndexEntry* entry = avformat_index_get_entry(stream, i);
        if (entry && entry->pos + entry->size > fileSize)
            return false;
    }
    return true;
}

std::int64_t toStreamTime(double seconds, AVRational timeBase) {
    return av_rescale_q(std::llround(seconds * AV_TIME_BASE), AV_TIME_BASE_Q, timeBase);
}

} // namespace

struct MovieCut::Input {
    QString path;
    av::InputFormat format;
    int video = -1;
    std::vector<int> audio;
    double duration = 0;
};

MovieCut::MovieCut(std::unique_ptr<Input> input)
    : m_input(std::move(input)) {}

MovieCut::~MovieCut() = default;

double MovieCut::durationSeconds() const {
    return m_input->duration;
}

Result<std::unique_ptr<MovieCut>> MovieCut::open(const QString& movie) {
    av::routeLibraryLog();
    const QFileInfo info(movie);
    if (!info.exists())
        return failure(QStringLiteral("the movie does not exist"));
    if (!info.isFile())
        return failure(kNotAMovie);
    if (info.size() == 0)
        return failure(QStringLiteral("the file is empty"));
    QFile file(movie);
    if (!file.open(QIODevice::ReadOnly))
        return failure(QStringLiteral("the movie could not be read"));
    if (!startsLikeMovie(file.read(8)))
        return failure(kNotAMovie);
    file.close();

    AVFormatContext* opened = nullptr;
    // avformat_open_input frees the context itself when it fails.
    if (avformat_open_input(&opened, QFile::encodeName(movie).constData(),
                            av_find_input_format("mov"), nullptr) < 0)
        return failure(kDamaged);
    auto input = std::make_unique<Input>();
    input->path = movie;
    input->format.reset(opened);

    for (unsigned i = 0; i < opened->nb_streams; ++i) {
        const AVStream* stream = opened->streams[i];
        const AVMediaType type = stream->codecpar->codec_type;
        if (type == AVMEDIA_TYPE_VIDEO && input->video < 0 &&
            !(stream->disposition & AV_DISPOSITION_ATTACHED_PIC))
            input->video = int(i);
        else if (type == AVMEDIA_TYPE_AUDIO)
            input->audio.push_back(int(i));
    }
    if (input->video < 0)
        return failure(QStringLiteral("the movie has no picture"));
    AVStream* video = opened->streams[input->video];
    if (avformat_index_get_entries_count(video) == 0)
        return failure(QStringLiteral("the movie's length is unknown"));
    if (!samplesInFile(video, info.size()) ||
        !std::all_of(input->audio.begin(), input->audio.end(),
                     [&](int i) { return samplesInFile(opened->streams[i], info.size()); }))
        return failure(kDamaged);

    if (opened->duration != AV_NOPTS_VALUE && opened->duration > 0)
        input->duration = double(opened->duration) / AV_TIME_BASE;
    else if (video->duration != AV_NOPTS_VALUE && video->duration > 0)
        input->duration = double(video->duration) * av_q2d(video->time_base);
    if (!std::isfinite(input->duration) || input->duration <= 0)
        return failure(QStringLiteral("the movie's length is unknown"));
    return std::unique_ptr<MovieCut>(new MovieCut(std::move(input)));
}

namespace {

// One pass over the input from the key frame at or before the start to the end of the range.
class RangeCopier {
public:
    RangeCopier(const QString& path, AVFormatContext* input, int video,
                const std::vector<int>& audio)
        : m_path(path)
        , m_input(input)
        , m_video(video)
        , m_audio(audio) {}

    Result<TrimSummary> run(const QString& outputPath, double start, double end,
                            const std::function<void(double)>& progress,
                            const std::atomic_bool* cancel);

private:
    struct Track {
        int output = -1;
        std::int64_t offset = 0; // the cut, in this stream's time
        std::int64_t end = 0;    // packets presented from here on are left out
        bool done = false;
    };

    Status seekToKeyFrame(std::int64_t start);
    Status addSoundLeadIn(int stream);
    Status openOutput(const QString& path);
    Status copy(AVPacket* packet);
    Status diskOr(int result, const QString& what) const;

    QString m_path;
    AVFormatContext* m_input;
    int m_video;
    std::vector<int> m_audio;
    av::OutputFormat m_output;
    std::unique_ptr<FileSink> m_file;
    std::vector<Track> m_tracks;    // per input stream
    std::vector<av::Packet> m_lead; // read while looking for the frame at the start
    TrimSummary m_summary;
    std::int64_t m_keyFrame = 0;
    std::int64_t m_lastVideoEnd = 0;
};

Status RangeCopier::diskOr(int result, const QString& what) const {
    if (Status disk = m_file->status(); !disk.ok())
        return disk.error();
    if (result < 0)
        return failure(what + av::errorText(result));
    return {};
}

// Reads from the key frame at or before `start` until the frame after it, so that the frame
// on screen at `start` is known before anything is written.
Status RangeCopier::seekToKeyFrame(std::int64_t start) {
    const AVStream* video = m_input->streams[m_video];
    // A key frame's decoding time can lie a little before its presentation time; step back
    // further when the first try lands past the start.
    const std::int64_t step = toStreamTime(2.0, video->time_base);
    for (std::int64_t target = start;; target -= step) {
        m_lead.clear();
        if (av_seek_frame(m_input, m_video, std::max<std::int64_t>(target, 0),
                          AVSEEK_FLAG_BACKWARD) < 0)
            return failure(kDamaged);
        bool firstVideo = true, passed = false;
        while (!passed) {
            av::Packet packet(av_packet_alloc());
            if (!packet)
                return failure(av::describeErrno(ENOMEM));
            const int r = av_read_frame(m_input, packet.get());
            if (r == AVERROR_EOF)
                break;
            if (r < 0 || (packet->flags & AV_PKT_FLAG_CORRUPT))
                return failure(kDamaged);
            if (packet->stream_index == m_video) {
                if (packet->pts == AV_NOPTS_VALUE)
                    return failure(kDamaged);
                if (firstVideo) {
                    if (!(packet->flags & AV_PKT_FLAG_KEY))
                        return failure(kDamaged);
                    if (packet->pts > start && target > 0)
                        break; // too late: step back
                    m_keyFrame = packet->pts;
                    firstVideo = false;
                }
                passed = packet->pts > start;
            }
            m_lead.push_back(std::move(packet));
        }
        if (!firstVideo)
            break;
        if (target <= 0)
            return failure(kDamaged);
    }
    // The frame on screen at the start: the last one presented at or before it.
    std::int64_t cut = m_keyFrame;
    for (const av::Packet& packet : m_lead)
        if (packet->stream_index == m_video && packet->pts <= start)
            cut = std::max(cut, packet->pts);
    m_summary.startSeconds = double(cut) * av_q2d(video->time_base);
    return {};
}

// Seeking to the key frame puts each sound track at the cut's own time, but an AAC decoder
// needs the packet before the cut to make the first sound at the cut right. That packet is
// fetched with a second reader, which can seek the sound track on its own.
Status RangeCopier::addSoundLeadIn(int stream) {
    const AVStream* sound = m_input->streams[stream];
    const AVRational base = sound->time_base;
    const std::int64_t cut = toStreamTime(m_summary.startSeconds, base);
    std::int64_t first = INT64_MAX, length = sound->codecpar->frame_size;
    for (const av::Packet& packet : m_lead)
        if (packet->stream_index == stream) {
            first = std::min(first, packet->pts);
            length = packet->duration > 0 ? packet->duration : length;
        }
    if (length <= 0)
        length = 1024;
    if (first != INT64_MAX && first + length <= cut)
        return {}; // the lead-in was read anyway
    const std::int64_t bound = first != INT64_MAX ? first : cut;

    AVFormatContext* opened = nullptr;
    if (avformat_open_input(&opened, QFile::encodeName(m_path).constData(),
                            av_find_input_format("mov"), nullptr) < 0)
        return failure(kDamaged);
    const av::InputFormat reader(opened);
    if (av_seek_frame(opened, stream, cut - 2 * length, AVSEEK_FLAG_BACKWARD) < 0)
        return {}; // nothing before the cut: the sound starts there
    std::vector<av::Packet> leadIn;
    for (;;) {
        av::Packet packet(av_packet_alloc());
        if (!packet)
            return failure(av::describeErrno(ENOMEM));
        if (av_read_frame(opened, packet.get()) < 0)
            break;
        if (packet->stream_index != stream)
            continue;
        if (packet->pts == AV_NOPTS_VALUE || packet->pts >= bound)
            break;
        leadIn.push_back(std::move(packet));
    }
    m_lead.insert(m_lead.begin(), std::make_move_iterator(leadIn.begin()),
                  std::make_move_iterator(leadIn.end()));
    return {};
}

Status RangeCopier::openOutput(const QString& path) {
    AVFormatContext* output = nullptr;
    if (avformat_alloc_output_context2(&output, nullptr, "mov", nullptr) < 0 || !output)
        return failure(QStringLiteral("the movie format is not available"));
    m_output.reset(output);
    m_tracks.assign(m_input->nb_streams, Track{});
    std::vector<int> kept{m_video};
    kept.insert(kept.end(), m_audio.begin(), m_audio.end());
    for (int index : kept) {
        const AVStream* in = m_input->streams[index];
        AVStream* out = avformat_new_stream(output, nullptr);
        if (!out || avcodec_parameters_copy(out->codecpar, in->codecpar) < 0)
            return failure(av::describeErrno(ENOMEM));
        out->codecpar->codec_tag = 0;
        if (in->codecpar->codec_type == AVMEDIA_TYPE_AUDIO && out->codecpar->frame_size == 0)
            out->codecpar->frame_size = 1024; // AAC; the index wants it
        out->time_base = in->time_base;
        out->avg_frame_rate = in->avg_frame_rate;
        out->disposition = in->disposition;
        av_dict_copy(&out->metadata, in->metadata, 0);
        m_tracks[index].output = out->index;
    }
    av_dict_copy(&output->metadata, m_input->metadata, 0);

    auto file = FileSink::createExclusive(path);
    if (!file)
        return file.error();
    m_file = std::move(*file);
    // Only its owner may read the new movie until it takes the original's place and
    // permissions: a recording can be private.
    ::chmod(QFile::encodeName(path).constData(), 0600);
    output->pb = m_file->io();
    output->flags |= AVFMT_FLAG_CUSTOM_IO;
    // Moving the index to the front reads the file back by its name.
    output->url = av_strdup(QFile::encodeName(path).constData());

    AVDictionary* options = nullptr;
    av_dict_set(&options, "movflags", "faststart", 0);
    // Packets before the cut keep negative times; the edit list hides them from players.
    av_dict_set(&options, "use_editlist", "1", 0);
    const int header = avformat_write_header(output, &options);
    av_dict_free(&options);
    return diskOr(header, QStringLiteral("the movie could not be started: "));
}

Status RangeCopier::copy(AVPacket* packet) {
    const int index = packet->stream_index;
    if (index < 0 || index >= int(m_tracks.size()) || m_tracks[index].output < 0)
        return {};
    Track& track = m_tracks[index];
    if (packet->pts == AV_NOPTS_VALUE || track.done)
        return {};
    if (packet->pts >= track.end) {
        track.done = true;
        return {};
    }
    if (index == m_video) {
        if (packet->pts < m_keyFrame)
            return {};
        if (packet->pts >= track.offset)
            ++m_summary.videoFrames;
        m_lastVideoEnd = std::max(m_lastVideoEnd, packet->pts + packet->duration);
    } else if (packet->pts + 2 * packet->duration <= track.offset) {
        // Sound wholly before the cut, except one packet of lead-in that primes the decoder.
        return {};
    }
    const AVStream* in = m_input->streams[index];
    AVStream* out = m_output->streams[track.output];
    packet->pts -= track.offset;
    if (packet->dts != AV_NOPTS_VALUE)
        packet->dts -= track.offset;
    av_packet_rescale_ts(packet, in->time_base, out->time_base);
    packet->stream_index = track.output;
    packet->pos = -1;
    ++m_summary.copiedPackets;
    return diskOr(av_interleaved_write_frame(m_output.get(), packet),
                  QStringLiteral("the movie could not be written: "));
}

Result<TrimSummary> RangeCopier::run(const QString& outputPath, double start, double end,
                                     const std::function<void(double)>& progress,
                                     const std::atomic_bool* cancel) {
    const AVRational videoBase = m_input->streams[m_video]->time_base;
    if (Status found = seekToKeyFrame(toStreamTime(start, videoBase)); !found.ok())
        return found.error();
    for (int sound : m_audio)
        if (Status added = addSoundLeadIn(sound); !added.ok())
            return added.error();
    if (Status opened = openOutput(outputPath); !opened.ok())
        return opened.error();
    const std::int64_t cut = toStreamTime(m_summary.startSeconds, videoBase);
    const std::int64_t endTime = toStreamTime(end, videoBase);
    for (int index = 0; index < int(m_tracks.size()); ++index) {
        const AVRational base = m_input->streams[index]->time_base;
        m_tracks[index].offset = av_rescale_q(cut, videoBase, base);
        m_tracks[index].end = av_rescale_q(endTime, videoBase, base);
    }

    const auto cancelled = [&] { return cancel && cancel->load(); };
    const auto allDone = [&] {
        return std::all_of(m_tracks.begin(), m_tracks.end(),
                           [](const Track& t) { return t.output < 0 || t.done; });
    };
    const double span = double(std::max<std::int64_t>(endTime - m_keyFrame, 1));
    const auto report = [&](const AVPacket* packet) {
        if (progress && packet->stream_index == m_video)
            progress(std::clamp(double(packet->pts - m_keyFrame) / span, 0.0, 1.0));
    };

    for (av::Packet& packet : m_lead) {
        if (cancelled())
            return failure(cancelledReason());
        report(packet.get());
        if (Status copied = copy(packet.get()); !copied.ok())
            return copied.error();
    }
    m_lead.clear();
    av::Packet packet(av_packet_alloc());
    if (!packet)
        return failure(av::describeErrno(ENOMEM));
    while (!allDone()) {
        if (cancelled())
            return failure(cancelledReason());
        const int r = av_read_frame(m_input, packet.get());
        if (r == AVERROR_EOF)
            break;
        if (r < 0 || (packet->flags & AV_PKT_FLAG_CORRUPT))
            return failure(kDamaged);
        report(packet.get());
        const Status copied = copy(packet.get());
        av_packet_unref(packet.get());
        if (!copied.ok())
            return copied.error();
    }
    if (m_summary.videoFrames == 0)
        return failure(QStringLiteral("the range holds no frame"));
    if (Status finished = diskOr(av_write_trailer(m_output.get()),
                                 QStringLiteral("the movie could not be finished: "));
        !finished.ok())
        return finished.error();
    if (Status closed = m_file->close(); !closed.ok())
        return closed.error();
    m_summary.durationSeconds = double(m_lastVideoEnd - cut) * av_q2d(videoBase);
    return m_summary;
}

} // namespace

Result<TrimSummary> MovieCut::writeRange(const QString& output, double start, double end,
                                         const std::function<void(double)>& progress,
                                         const std::atomic_bool* cancel) {
    RangeCopier copier(m_input->path, m_input->format.get(), m_input->video, m_input->audio);
    return copier.run(output, start, end, progress, cancel);
}

} // namespace qm::media::trim
