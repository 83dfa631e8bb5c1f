#include "platform/video/x11/FramePacer.h"

#include <algorithm>

namespace qm::platform {

namespace {
constexpr std::int64_t kNanosPerSecond = 1'000'000'000;
}

FramePacer::FramePacer(MediaTime start, int fps)
    : m_start(start)
    , m_fps(std::max(1, fps)) {}

MediaTime FramePacer::slotTime(std::uint64_t slot) const {
    // Computed from the slot number each time, never by adding up periods: 1/30 s is not a
    // whole number of nanoseconds.
    return m_start + MediaTime(std::int64_t(slot) * kNanosPerSecond / m_fps);
}

std::uint64_t FramePacer::slotAt(MediaTime now) const {
    if (now <= m_start)
        return 0;
    auto slot = std::uint64_t((now - m_start).count() * m_fps / kNanosPerSecond);
    // The division above can land one short where a slot's time was rounded down.
    while (slotTime(slot + 1) <= now)
        ++slot;
    return slot;
}

std::uint64_t FramePacer::take(MediaTime now) {
    const std::uint64_t current = slotAt(now);
    std::uint64_t skipped = 0;
    if (current > m_next) {
        skipped = current - m_next;
        m_next = current;
    }
    ++m_next;
    return skipped;
}

} // namespace qm::platform
