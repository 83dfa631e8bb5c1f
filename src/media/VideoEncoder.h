#pragma once

#include "base/Result.h"
#include "media/Av.h"

#include <QSize>
#include <QString>
#include <cstdint>
#include <functional>
#include <memory>

namespace qm::media {

// Takes each encoded packet (stamped in its encoder's time base) as it comes out.
using PacketSink = std::function<Status(AVPacket*)>;

// BGRX screen frames to H.264 High, yuv420p in BT.709 limited range: libswscale converts,
// libx264 encodes at an average bit rate without B-frames, so that every frame is shown in
// the order it is stored and a cut can land on any key frame.
class VideoEncoder {
public:
    struct Settings {
        QSize size;
        int fps = 30;
        std::int64_t bitRate = 0;
        QString preset;
    };
    static Result<std::unique_ptr<VideoEncoder>> create(const Settings& settings);

    // The encoder's parameters (time base 1/fps), for the movie's track.
    const AVCodecContext* context() const { return m_codec.get(); }

    // One frame shown from frame slot `slot` on.
    Status encode(const std::uint8_t* bgrx, int bytesPerLine, std::int64_t slot,
                  const PacketSink& sink);
    // Drains the frames the encoder still holds.
    Status flush(const PacketSink& sink);

private:
    VideoEncoder() = default;
    Status drain(const PacketSink& sink);

    av::CodecContext m_codec;
    av::Sws m_convert;
    av::Frame m_frame;
    av::Packet m_packet;
};

} // namespace qm::media
