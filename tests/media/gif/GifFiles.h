#pragma once

// Making small source movies and reading GIFs back, with the real ffmpeg and ffprobe.

#include <QImage>
#include <QSize>
#include <QString>
#include <vector>

namespace qm::test {

// Encodes the lavfi graph `source` into an H.264 movie at `path` (one key frame every
// `keyFrameEvery` frames); false when ffmpeg fails.
bool makeMovie(const QString& path, const QString& source, int keyFrameEvery = 250);

struct GifFacts {
    QSize size;
    std::vector<int> delays; // hundredths of a second, per frame
    int loopCount = -1;      // -1: no loop block, so the GIF plays once
};

// What ffprobe and the file's loop block say; an empty size when it is not a GIF.
GifFacts readGif(const QString& path);

// Every frame as a viewer shows it (later frames drawn over earlier ones), RGB.
std::vector<QImage> gifFrames(const QString& path);

// Frames `first`, `first + step`, … (`count` of them) of a movie, scaled to `size`, RGB.
std::vector<QImage> movieFrames(const QString& path, int first, int step, int count, QSize size);

// The mean difference per channel (0…255) between two images of the same size.
double meanDifference(const QImage& a, const QImage& b);

// How many pixels differ by more than `threshold` in some channel: a stale strip that the
// mean hides.
int pixelsOff(const QImage& a, const QImage& b, int threshold);

} // namespace qm::test
