#pragma once

#include "base/MediaClock.h"

#include <cstdint>

namespace qm::platform {

// The absolute schedule of a screen stream: frame k is due at start + k / fps on the media
// clock, so small delays never add up into drift. A frame taken late does not make the next
// ones come sooner to catch up; the slots whose whole period went by without a frame are
// skipped and counted instead.
class FramePacer {
public:
    FramePacer(MediaTime start, int fps);

    // When the next frame is due.
    MediaTime due() const { return slotTime(m_next); }
    // A frame is being taken at `now`; returns how many slots before it were skipped.
    std::uint64_t take(MediaTime now);

private:
    MediaTime slotTime(std::uint64_t slot) const;
    std::uint64_t slotAt(MediaTime now) const; // the last slot due at or before `now`

    MediaTime m_start;
    std::int64_t m_fps;
    std::uint64_t m_next = 0;
};

} // namespace qm::platform
