#pragma once

#include "base/MediaClock.h"

#include <optional>

namespace qm::recorder {

// Keeps a paused stretch out of the movie without leaving a hole in it. Video frames drive
// it: the first frame seen while paused marks where the pause began, the first frame after
// resuming adds the whole stretch to one running offset, and every later sample is moved
// back by that offset. Sound waits for that first frame after resuming, so it never lands
// in the stretch that is about to be cut out.
class PauseGate {
public:
    void setPaused(bool paused);
    bool paused() const { return m_paused; }

    // For a video frame at `pts`: true when it must be dropped.
    bool dropVideo(MediaTime pts);
    // For sound: true while paused or until the first frame after resuming has been seen.
    bool dropAudio() const { return m_paused || m_anchor.has_value() || m_resuming; }

    MediaTime offset() const { return m_offset; }

private:
    bool m_paused = false;
    bool m_resuming = false; // resumed, but no frame seen since
    std::optional<MediaTime> m_anchor;
    MediaTime m_offset{0};
};

} // namespace qm::recorder
