#pragma once

#include "base/Result.h"

#include <QString>
#include <atomic>
#include <cstdint>
#include <functional>

namespace qm::media::trim {

// The shortest range a movie can be trimmed to, in seconds.
inline constexpr double kMinimumTrimLength = 0.2;
// A range that comes this close (seconds) to both ends of the movie keeps all of it.
inline constexpr double kEndTolerance = 0.05;

// What the trimmed movie holds, in the original's time.
struct TrimSummary {
    double startSeconds = 0; // the frame a player now shows first (the one on screen at the
                             // asked start)
    double durationSeconds = 0;
    std::uint64_t videoFrames = 0;   // frames a player shows
    std::uint64_t copiedPackets = 0; // every picture and sound packet stored, pre-roll included
};

// Cuts the movie down to [startSeconds, endSeconds) and puts the result in its place.
//
// Nothing is re-encoded: every packet from the key frame at or before the start is copied as
// it is, and an edit list tells players to begin exactly at the frame on screen at
// startSeconds (sound likewise, with one packet of lead-in for the decoder). The result is a
// QuickTime movie with its index at the front and the original's permissions.
//
// The new movie is written to a hidden file beside the original, stored on the disk and then
// renamed over it, so at any moment, a crash included, the path holds either the old movie or
// the new one. On any failure or cancellation the original is left untouched and the hidden
// file removed; the reason is one sentence ("the movie is read-only").
//
// `progress` is called on the calling thread with fractions from 0 to 1. `cancel`, when set
// from another thread, stops the work at the next packet. Reads and writes the whole kept
// range (0.3 s for a minute of full HD, 46 MB, on a warm disk cache) and waits for the disk: call
// it off the GUI thread. A link is followed: the movie it points at is replaced, the link stays.
Result<TrimSummary> trimInPlace(const QString& movie, double startSeconds, double endSeconds,
                                const std::function<void(double fraction)>& progress = {},
                                const std::atomic_bool* cancel = nullptr);

// The reason given when `cancel` stopped a trim.
QString cancelledReason();

} // namespace qm::media::trim
