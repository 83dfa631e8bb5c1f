#include "platform/audio/pulse/ChunkClock.h"

#include <algorithm>

namespace qm::platform {

ChunkClock::ChunkClock(int sampleRate)
    : m_rate(sampleRate) {}

MediaTime ChunkClock::duration(int frames) const {
    return MediaTime(std::int64_t(frames) * 1'000'000'000 / m_rate);
}

MediaTime ChunkClock::stamp(MediaTime measuredStart, int frames) {
    MediaTime pts = measuredStart;
    if (m_next) {
        const MediaTime error = measuredStart - *m_next;
        if (error <= kJumpAhead) {
            // A sixteenth of the error per block smooths the jitter out within a few hundred
            // milliseconds and still follows a drifting device clock.
            pts = *m_next + std::clamp(error / 16, -kMaxPull, kMaxPull);
        }
        pts = std::max(pts, m_last + MediaTime(1));
    }
    m_last = pts;
    // The sample count continues from the stamp, so a pull is carried forward, not undone.
    m_next = pts + duration(frames);
    return pts;
}

} // namespace qm::platform
