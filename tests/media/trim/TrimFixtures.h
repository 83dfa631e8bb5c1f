#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <vector>

namespace qm::test {

// A movie like a finished recording: 320 × 240 H.264 High at 30 fps with a key frame every 60
// frames and no B-frames, a 440 Hz stereo AAC track unless `withSound` is false, and its index
// at the front. Made by the ffmpeg command; false when that failed.
bool makeMovie(const QString& path, double seconds, bool withSound = true);

// A 10 s movie made by makeMovie once per test program, to copy from; empty when it failed.
QString sharedMovie(bool withSound = true);

// Runs the ffmpeg command quietly.
void runFfmpeg(const QStringList& args);

QByteArray fileBytes(const QString& path);
// The names in a folder, hidden ones included.
QStringList folderEntries(const QString& folder);

// An MD5 of every picture a player shows, in order (edit lists applied).
QStringList shownFrameHashes(const QString& path);
// An MD5 of every stored picture packet, exactly as stored.
QStringList storedPacketHashes(const QString& path);
// The first sound track as a player plays it: mono 16-bit samples at 48 kHz.
std::vector<std::int16_t> playedSound(const QString& path);
// The movie's length as ffprobe reports it, in seconds (0 when unreadable).
double probedDuration(const QString& path);

} // namespace qm::test
