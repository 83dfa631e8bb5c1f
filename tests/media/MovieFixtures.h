#pragma once

#include "base/MediaClock.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <cstdint>
#include <vector>

namespace qm::media {
class MovieWriter;
}

namespace qm::test {

using namespace std::chrono_literals;

// A BGRX picture with a bar that moves with the frame number, so every frame differs.
std::vector<std::uint8_t> movingBar(int width, int height, int frame);
// A picture of random pixels, which no encoder can make much smaller.
std::vector<std::uint8_t> noise(int width, int height, int frame);

// Interleaved stereo at 48 kHz: a sine of `hz` (silence when 0), both channels alike.
std::vector<float> tone(double hz, int frames, float amplitude = 0.5f);

// Feeds a writer as the recorder would: a frame every 1/fps s and 10 ms sound chunks from
// `from` to `to` (media time), a tone of `systemHz` / `micHz` into the tracks that exist.
void feed(media::MovieWriter& writer, int width, int height, MediaTime from, MediaTime to,
          double systemHz, double micHz, bool system, bool microphone, int fps = 30);

// ffprobe's -show_streams, as JSON.
QJsonArray probeStreams(const QString& path);
// The presentation time and duration of every packet of the stream, in seconds.
struct PacketTime {
    double pts = 0;
    double duration = 0;
};
std::vector<PacketTime> probePackets(const QString& path, const QString& streamSpecifier);
// Frames the decoder actually produces for the first video stream.
int decodedFrames(const QString& path);
// The n-th audio track decoded to mono 48 kHz floats (edit lists applied, as a player does).
std::vector<float> decodeAudio(const QString& path, int track);
// Root-mean-square level of a stretch of samples, and where sound first exceeds a level.
double rms(const std::vector<float>& samples, std::size_t from = 0, std::size_t to = SIZE_MAX);
double firstSoundSeconds(const std::vector<float>& samples, float above = 0.1f);

} // namespace qm::test
