#pragma once

#include "base/MediaClock.h"

#include <optional>

namespace qm::platform {

// Stamps consecutive blocks of sound. Each block comes with a measured start (the clock at
// delivery minus what the server still held), which jitters by a few milliseconds from block
// to block. A stamp follows the sample count instead, so a movie's sound has no steps, and
// is pulled gently towards the measurements so it tracks a sound card whose clock runs a
// little fast or slow. When the measurement runs far ahead (sound was lost: the server
// dropped data, the device was suspended) the stamp jumps to it, so what follows the hole
// is still placed where it was heard. Stamps only ever increase.
class ChunkClock {
public:
    explicit ChunkClock(int sampleRate);

    MediaTime stamp(MediaTime measuredStart, int frames);

    // Beyond this much ahead of the sample count, a measurement marks lost sound.
    static constexpr MediaTime kJumpAhead = std::chrono::milliseconds(40);
    // The most one block's stamp moves away from the sample count, when pulled.
    static constexpr MediaTime kMaxPull = std::chrono::microseconds(500);

private:
    MediaTime duration(int frames) const;

    int m_rate;
    std::optional<MediaTime> m_next; // where the sample count puts the next block
    MediaTime m_last{};
};

} // namespace qm::platform
