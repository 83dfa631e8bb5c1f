#pragma once

// Reading movies back with the real tools a user has (ffprobe and ffmpeg), for tests that
// check what a recording holds.
#include <QString>
#include <optional>
#include <vector>

namespace qm::test {

struct ProbedStream {
    QString type;    // "video", "audio"
    QString codec;   // "h264", "aac"
    QString profile; // "High", "LC"
    QString pixelFormat;
    int width = 0;
    int height = 0;
    int sampleRate = 0;
    int channels = 0;
};

struct ProbedMovie {
    QString formatName; // "mov,mp4,m4a,3gp,3g2,mj2"
    double duration = 0;
    std::vector<ProbedStream> streams;
    std::vector<ProbedStream> of(const QString& type) const;
};

// Nothing when ffprobe cannot read the file.
std::optional<ProbedMovie> probeMovie(const QString& path);

// Presentation times (seconds) of the video track's frames, in order.
std::vector<double> videoFrameTimes(const QString& path);

// Where the moov atom is: true when the index comes before the media data.
bool indexAtFront(const QString& path);

// The loudness of one audio track (0 = the first) over the whole movie, in dBFS RMS;
// -inf for silence.
double audioLevel(const QString& path, int audioTrack);

// When the track first gets loud (above `thresholdDb` over 5 ms windows), in seconds.
std::optional<double> soundOnset(const QString& path, int audioTrack, double thresholdDb = -30);

// When the mean brightness (0…255) of the video first exceeds `threshold`, in seconds.
std::optional<double> brightOnset(const QString& path, double threshold = 200);

} // namespace qm::test
