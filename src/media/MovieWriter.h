#pragma once

#include "base/MediaClock.h"
#include "base/Result.h"

#include <QSize>
#include <QString>
#include <cstdint>
#include <memory>

namespace qm::media {

enum class AudioTrack { System, Microphone };

struct MovieSettings {
    QSize size;   // even width and height, at least 2 × 2
    int fps = 30; // frames per second the video track is timed in
    bool systemAudio = false;
    bool microphone = false;
    // At 1920 × 1080, 30 fps, both sound tracks and a page scrolling all the time, veryfast
    // costs about 0.7 of one core's second per second of movie and can write 66-70 frames a
    // second on two cores: more than half the machine stays free for the program being
    // recorded and the screen grab. "faster" costs 0.9, writes 55 frames a second on an idle
    // machine and only about 40 while another build runs (bench/media/bench_movie_writer).
    QString x264Preset = QStringLiteral("veryfast");
};

// Bits per second for a screen movie of this size: 0.11 bits per pixel at 30 frames a second,
// at most 40 Mb/s (1920 × 1080 gets 6 842 880).
std::int64_t videoBitRate(QSize size);

// Writes a recording as it happens: H.264 High (yuv420p, a key frame every 60 frames) and one
// AAC track (48 kHz stereo, 160 kb/s) per audio input, in a fragmented QuickTime movie that
// gains a fragment at least every second, so a crash loses at most the last second.
// Times are media time since the movie's start (pauses already taken out by the caller).
// One thread at a time uses a writer; all calls may block on encoding and disk writes.
class MovieWriter {
public:
    // Creates the file exclusively (an existing file is an error, never replaced).
    static Result<std::unique_ptr<MovieWriter>> create(const QString& path,
                                                       const MovieSettings& settings);
    virtual ~MovieWriter() = default;

    // BGRX pixels of exactly settings.size. A frame whose time falls on the same frame slot as
    // the previous one is skipped (returns ok).
    virtual Status writeVideo(const std::uint8_t* pixels, int bytesPerLine, MediaTime t) = 0;
    // Interleaved stereo floats at 48 kHz. Sound that arrives late or early by more than a
    // little (20 ms) is lined up with its time again (silence fills a gap, an overlap is cut).
    // The first 21 ms of each track are the AAC encoder's start-up and hold no sound.
    virtual Status writeAudio(AudioTrack track, const float* samples, int frames, MediaTime t) = 0;
    // Flushes the encoders and closes the file; the writer accepts nothing afterwards.
    virtual Status finish() = 0;

    virtual std::uint64_t videoFramesWritten() const = 0;
};

// What a finished movie holds, for messages and tests.
struct MovieSummary {
    double durationSeconds = 0;
    std::uint64_t videoFrames = 0;
};

// Turns a recording written by MovieWriter (finished, or cut off by a crash or a power loss)
// into a normal movie with its index at the front, written exclusively at `outputPath`.
// Everything up to the last complete fragment is kept. Fails with a reason when the source
// holds no complete frame at all or the output cannot be written.
Result<MovieSummary> finalizeMovie(const QString& fragmentedPath, const QString& outputPath);

// The reason finalizeMovie gives when there is nothing to keep, as opposed to a movie it
// could not write out.
QString noCompleteFrameReason();

} // namespace qm::media
