#include "media/Av.h"
#include "media/FileIo.h"
#include "media/MovieBoxes.h"
#include "media/MovieWriter.h"

#include <QFile>
#include <algorithm>
#include <unistd.h>
#include <vector>

namespace qm::media {

namespace {

const QString kNoFrame = QStringLiteral("the recording holds no complete frame");

struct Remux {
    av::InputFormat input;
    av::OutputFormat output;
    std::unique_ptr<FileSink> file;
    std::vector<int> outputIndex; // per input stream, -1 when left out
    int videoInput = -1;
};

Status openInput(Remux& remux, FileSource& source, std::int64_t usableBytes) {
    AVFormatContext* input = avformat_alloc_context();
    if (!input)
        return failure(av::describeErrno(ENOMEM));
    input->pb = source.io(usableBytes);
    input->flags |= AVFMT_FLAG_CUSTOM_IO;
    if (!input->pb) {
        avformat_free_context(input);
        return failure(av::describeErrno(ENOMEM));
    }
    // avformat_open_input frees the context itself when it fails.
    if (avformat_open_input(&input, nullptr, av_find_input_format("mov"), nullptr) < 0)
        return failure(kNoFrame);
    remux.input.reset(input);
    return {};
}

Status openOutput(Remux& remux, const QString& outputPath) {
    AVFormatContext* output = nullptr;
    if (avformat_alloc_output_context2(&output, nullptr, "mov", nullptr) < 0 || !output)
        return failure(QStringLiteral("the movie format is not available"));
    remux.output.reset(output);
    AVFormatContext* input = remux.input.get();
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        const AVStream* in = input->streams[i];
        const AVMediaType type = in->codecpar->codec_type;
        remux.outputIndex.push_back(-1);
        if (type != AVMEDIA_TYPE_VIDEO && type != AVMEDIA_TYPE_AUDIO)
            continue;
        AVStream* out = avformat_new_stream(output, nullptr);
        if (!out || avcodec_parameters_copy(out->codecpar, in->codecpar) < 0)
            return failure(av::describeErrno(ENOMEM));
        out->codecpar->codec_tag = 0;
        if (type == AVMEDIA_TYPE_AUDIO && out->codecpar->frame_size == 0)
            out->codecpar->frame_size = 1024; // AAC; the index wants it
        out->time_base = in->time_base;
        out->avg_frame_rate = in->avg_frame_rate;
        remux.outputIndex.back() = out->index;
        if (type == AVMEDIA_TYPE_VIDEO && remux.videoInput < 0)
            remux.videoInput = int(i);
    }
    if (remux.videoInput < 0)
        return failure(kNoFrame);

    auto file = FileSink::createExclusive(outputPath);
    if (!file)
        return file.error();
    remux.file = std::move(*file);
    output->pb = remux.file->io();
    output->flags |= AVFMT_FLAG_CUSTOM_IO;
    // Moving the index to the front reads the file back by its name.
    output->url = av_strdup(QFile::encodeName(outputPath).constData());
    return {};
}

Result<MovieSummary> copyPackets(Remux& remux) {
    AVFormatContext* input = remux.input.get();
    AVFormatContext* output = remux.output.get();
    AVDictionary* options = nullptr;
    av_dict_set(&options, "movflags", "faststart", 0);
    const int header = avformat_write_header(output, &options);
    av_dict_free(&options);
    if (Status disk = remux.file->status(); !disk.ok())
        return disk.error();
    if (header < 0)
        return failure(QStringLiteral("the movie could not be started: ") + av::errorText(header));

    MovieSummary summary;
    double end = 0;
    av::Packet packet(av_packet_alloc());
    if (!packet)
        return failure(av::describeErrno(ENOMEM));
    // Only complete fragments are offered to the reader, so a read error means the end of
    // what can be saved, not a failure.
    while (av_read_frame(input, packet.get()) >= 0) {
        const int index = packet->stream_index;
        const int target = index < int(remux.outputIndex.size()) ? remux.outputIndex[index] : -1;
        if (target < 0) {
            av_packet_unref(packet.get());
            continue;
        }
        const AVStream* in = input->streams[index];
        if (index == remux.videoInput)
            ++summary.videoFrames;
        if (packet->pts != AV_NOPTS_VALUE)
            end = std::max(end, double(packet->pts + packet->duration) * av_q2d(in->time_base));
        av_packet_rescale_ts(packet.get(), in->time_base, output->streams[target]->time_base);
        packet->stream_index = target;
        packet->pos = -1;
        const int r = av_interleaved_write_frame(output, packet.get());
        if (Status disk = remux.file->status(); !disk.ok())
            return disk.error();
        if (r < 0)
            return failure(QStringLiteral("the movie could not be written: ") + av::errorText(r));
    }
    if (summary.videoFrames == 0)
        return failure(kNoFrame);
    const int trailer = av_write_trailer(output);
    if (Status disk = remux.file->status(); !disk.ok())
        return disk.error();
    if (trailer < 0)
        return failure(QStringLiteral("the movie could not be finished: ") +
                       av::errorText(trailer));
    if (Status closed = remux.file->close(); !closed.ok())
        return closed.error();
    summary.durationSeconds = end;
    return summary;
}

} // namespace

Result<MovieSummary> finalizeMovie(const QString& fragmentedPath, const QString& outputPath) {
    av::routeLibraryLog();
    auto source = FileSource::open(fragmentedPath);
    if (!source)
        return failure(QStringLiteral("the recording could not be read: ") + source.error().reason);
    const FragmentedLayout layout = scanFragmentedMovie((*source)->fd(), (*source)->size());
    if (!layout.hasIndex || layout.completeFragments == 0)
        return failure(kNoFrame);

    Remux remux;
    if (Status opened = openInput(remux, **source, layout.usableBytes); !opened.ok())
        return opened.error();
    Status ready = openOutput(remux, outputPath);
    Result<MovieSummary> outcome =
        ready.ok() ? copyPackets(remux) : Result<MovieSummary>(ready.error());
    if (!outcome.ok() && remux.file) {
        // The output was ours alone (created exclusively): an unfinished one goes again.
        remux.output.reset();
        remux.file.reset();
        ::unlink(QFile::encodeName(outputPath).constData());
    }
    return outcome;
}

QString noCompleteFrameReason() {
    return kNoFrame;
}

} // namespace qm::media
