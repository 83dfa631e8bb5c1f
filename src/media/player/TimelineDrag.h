#pragma once

// How a drag on the filmstrip is read: what it moves is decided at its first movement and
// holds until it ends.

#include <algorithm>
#include <cmath>

namespace qm::media::player {

// How far from a handle, in pixels, a drag still takes it.
inline constexpr double kHandleReach = 14;

enum class DragTarget { Start, End, Scrub };

// The start handle wins when both are in reach, so handles pushed together can still be parted.
inline DragTarget dragTargetAt(double x, double startX, double endX) {
    if (std::abs(x - startX) <= kHandleReach)
        return DragTarget::Start;
    if (std::abs(x - endX) <= kHandleReach)
        return DragTarget::End;
    return DragTarget::Scrub;
}

// The movie time under a pointer `x` pixels into a strip `width` wide.
inline double timeAtX(double x, double width, double duration) {
    if (width <= 0)
        return 0;
    return duration * std::clamp(x / width, 0.0, 1.0);
}

inline double xAtTime(double seconds, double width, double duration) {
    return duration > 0 ? width * seconds / duration : 0;
}

} // namespace qm::media::player
