#include "platform/audio/pulse/ChunkClock.h"

#include <gtest/gtest.h>
#include <random>

using namespace qm;
using namespace qm::platform;
using namespace std::chrono_literals;

namespace {

constexpr int kRate = 48000;
constexpr int kBlock = 480; // 10 ms
constexpr MediaTime kBlockTime = 10ms;

// Measured starts scatter by up to ±4 ms around the truth, from a device whose clock is exact,
// 0.2 % fast or 0.2 % slow. The stamps are spaced by the block length (give or take the pull)
// and, once settled, stay within 2 ms of the truth over ten seconds.
TEST(ChunkClockTest, JitteryMeasurementsGiveEvenStampsThatFollowTheDevice) {
    for (const double rate : {1.0, 1.002, 0.998}) {
        ChunkClock clock(kRate);
        std::mt19937 random(7);
        std::uniform_int_distribution<int> jitterUs(-4000, 4000);
        const MediaTime origin = 1000s;
        MediaTime previous{};
        for (int i = 0; i < 1000; ++i) {
            const MediaTime truth =
                origin + MediaTime(std::int64_t(double(i * kBlockTime.count()) / rate));
            const MediaTime pts =
                clock.stamp(truth + std::chrono::microseconds(jitterUs(random)), kBlock);
            if (i > 0) {
                EXPECT_LE(std::chrono::abs(pts - previous - kBlockTime), ChunkClock::kMaxPull)
                    << "rate " << rate << ", block " << i;
            }
            if (i >= 100) {
                EXPECT_LT(std::chrono::abs(pts - truth), 2ms) << "rate " << rate << ", block " << i;
            }
            previous = pts;
        }
    }
}

// Sound lost for 200 ms: the block after the hole is stamped where it was heard. A measurement
// that jumps back is never followed backwards: stamps only increase.
TEST(ChunkClockTest, JumpsOverLostSoundAndNeverGoesBack) {
    ChunkClock clock(kRate);
    const MediaTime origin = 10s;
    for (int i = 0; i < 10; ++i)
        clock.stamp(origin + i * kBlockTime, kBlock);
    const MediaTime afterHole = origin + 10 * kBlockTime + 200ms;
    EXPECT_EQ(clock.stamp(afterHole, kBlock), afterHole);

    MediaTime last = afterHole;
    for (int i = 1; i < 20; ++i) {
        const MediaTime pts = clock.stamp(afterHole - 300ms, kBlock);
        EXPECT_GT(pts, last) << "block " << i;
        last = pts;
    }
    // Tiny blocks whose measurements fall behind still advance.
    for (int i = 0; i < 10; ++i) {
        const MediaTime pts = clock.stamp(origin, 1);
        EXPECT_GT(pts, last);
        last = pts;
    }
}

} // namespace
