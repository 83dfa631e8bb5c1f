#pragma once

// Test movies whose every frame says its own number (up to frame 100): a flat grey that brightens
// by two levels a frame, 30 frames a second, a key frame every 60 and B-frames between, as a screen
// recording is laid out.

#include <QImage>
#include <QString>

namespace qm::test {

// Makes `seconds` of such a movie at `path` (with a 440 Hz tone on one sound track and an
// 880 Hz tone on a second when `sound`); false when ffmpeg failed.
bool makeCodedMovie(const QString& path, double seconds, bool sound = false);

// The frame number a picture of such a movie shows (-1 for a picture not from one).
int codedFrameNumber(const QImage& image);

} // namespace qm::test
