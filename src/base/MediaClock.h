#pragma once

#include <chrono>

namespace qm {

// The one clock every recorded stream is stamped from: the monotonic clock, in nanoseconds.
// Screen frames, system audio and the microphone are each stamped with it at the moment
// they were seen, so the movie can line them up without knowing where they came from.
using MediaTime = std::chrono::nanoseconds;

inline MediaTime mediaClockNow() {
    // steady_clock is CLOCK_MONOTONIC on Linux, which is also what the sound server and the
    // kernel's input timestamps can be compared against.
    return std::chrono::duration_cast<MediaTime>(
        std::chrono::steady_clock::now().time_since_epoch());
}

} // namespace qm
