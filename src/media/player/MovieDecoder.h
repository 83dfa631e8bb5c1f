#pragma once

// Reads the pictures of a movie by time, exactly: the frame a viewer sees at a moment is the
// last one that starts at or before it, however far that is from a key frame. One decoder
// belongs to one thread at a time.

#include "base/Result.h"

#include <QImage>
#include <QString>
#include <memory>

namespace qm::media::player {

struct VideoFrame {
    QImage image;
    double time = 0; // seconds from the start of the movie
};

class MovieDecoder {
public:
    static Result<std::unique_ptr<MovieDecoder>> open(const QString& path);
    ~MovieDecoder();
    MovieDecoder(const MovieDecoder&) = delete;
    MovieDecoder& operator=(const MovieDecoder&) = delete;

    // Seconds; 0 when the file does not say or says something that is not a finite number.
    double duration() const;
    double frameRate() const;
    QSize frameSize() const;

    // The frame on screen at `seconds` (the first frame for earlier times, the last one past the
    // end). `height` > 0 scales the picture to that height, keeping its shape.
    Result<VideoFrame> frameAt(double seconds, int height = 0);
    // The frame after the one last returned; an error at the end of the movie.
    Result<VideoFrame> nextFrame(int height = 0);

private:
    struct Impl;
    explicit MovieDecoder(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> d;
};

} // namespace qm::media::player
