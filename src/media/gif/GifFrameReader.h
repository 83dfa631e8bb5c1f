#pragma once

// Decodes a movie's picture from a start time on and hands out the frame shown at each
// requested time, scaled to the GIF's size as RGBA.

#include "base/Result.h"
#include "media/Av.h"

#include <QSize>
#include <QString>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace qm::media {

class GifFrameReader {
public:
    // Fails, saying why, when the file is not a movie or has no picture.
    static Result<std::unique_ptr<GifFrameReader>> open(const QString& path);

    QSize size() const;
    // Seconds; nothing when the movie does not say how long it is.
    std::optional<double> duration() const;

    // Starts decoding at `seconds` (exactly, not at the key frame before it) and scales every
    // frame handed out to `target`.
    Status start(double seconds, QSize target);

    // The frame shown at `seconds` (times must not go back), `target` width × height RGBA
    // pixels, 4 bytes each, rows packed. After the end of the movie its last frame; nothing
    // when no frame can be decoded at all.
    const std::vector<std::uint8_t>* frameAt(double seconds);

private:
    GifFrameReader() = default;
    // Decodes the next frame into m_next; false at the end of the picture.
    bool decodeNext();
    double secondsOf(const AVFrame* frame) const;
    bool convert(const AVFrame* frame);

    av::InputFormat m_format;
    av::CodecContext m_decoder;
    av::Packet m_packet;
    av::Frame m_current; // the frame shown now
    av::Frame m_next;    // the one after it, decoded ahead
    av::Sws m_scaler;
    int m_stream = -1;
    bool m_haveCurrent = false;
    bool m_haveNext = false;
    bool m_ended = false;
    bool m_flushing = false;
    bool m_converted = false;
    QSize m_target;
    std::vector<std::uint8_t> m_pixels;
};

} // namespace qm::media
