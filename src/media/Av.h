#pragma once

// Owners for FFmpeg's handles, and its error codes in words.

#include <QString>
#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
#include <libswscale/swscale.h>
}

namespace qm::media::av {

struct CodecContextFree {
    void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct FrameFree {
    void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct PacketFree {
    void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct SwsFree {
    void operator()(SwsContext* s) const { sws_freeContext(s); }
};
// An output context whose pb belongs to someone else (FileSink).
struct OutputFormatFree {
    void operator()(AVFormatContext* f) const { avformat_free_context(f); }
};
struct InputFormatFree {
    void operator()(AVFormatContext* f) const { avformat_close_input(&f); }
};
struct DictionaryFree {
    void operator()(AVDictionary* d) const { av_dict_free(&d); }
};

using CodecContext = std::unique_ptr<AVCodecContext, CodecContextFree>;
using Frame = std::unique_ptr<AVFrame, FrameFree>;
using Packet = std::unique_ptr<AVPacket, PacketFree>;
using Sws = std::unique_ptr<SwsContext, SwsFree>;
using OutputFormat = std::unique_ptr<AVFormatContext, OutputFormatFree>;
using InputFormat = std::unique_ptr<AVFormatContext, InputFormatFree>;

// Sends FFmpeg's warnings and errors to the log ("quillmark.media") instead of stderr and drops
// its chatter; once per process, before the first use.
void routeLibraryLog();

// FFmpeg's own text for an error code, lower case ("invalid argument").
QString errorText(int averror);

// A disk error in words, as the user reads it after "Could not save: ".
QString describeErrno(int error);

} // namespace qm::media::av
