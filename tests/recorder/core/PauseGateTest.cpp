#include "recorder/core/PauseGate.h"

#include "recorder/core/RecordingConfig.h"

#include <gtest/gtest.h>

using namespace qm;
using namespace qm::recorder;
using namespace std::chrono_literals;

namespace {

// A screen stream at 30 frames a second: each call runs it on until `until`, and returns the
// times the movie gives the frames the gate keeps.
struct Stream {
    PauseGate& gate;
    std::int64_t frame = 0;

    std::vector<MediaTime> until(std::chrono::seconds end) {
        std::vector<MediaTime> kept;
        for (MediaTime t = at(frame); t < end; t = at(++frame))
            if (!gate.dropVideo(t))
                kept.push_back(t - gate.offset());
        return kept;
    }
    static MediaTime at(std::int64_t frame) { return MediaTime(frame * 1'000'000'000 / 30); }
};

TEST(PauseGate, APauseLeavesNoHoleAndPausesAddUp) {
    PauseGate gate;
    Stream stream{gate};
    const auto before = stream.until(2s);
    gate.setPaused(true);
    EXPECT_TRUE(stream.until(7s).empty());
    gate.setPaused(false);
    const auto after = stream.until(9s);
    ASSERT_FALSE(after.empty());
    // The first frame after resuming follows the last one before pausing by one frame.
    EXPECT_NEAR(double((after.front() - before.back()).count()), 33'333'333.0, 1e3);
    EXPECT_NEAR(double(gate.offset().count()), 5e9, 1e3);

    gate.setPaused(true);
    (void)stream.until(12s);
    gate.setPaused(false);
    const auto last = stream.until(13s);
    EXPECT_NEAR(double(gate.offset().count()), 8e9, 1e3);
    EXPECT_NEAR(double((last.front() - after.back()).count()), 33'333'333.0, 1e3);
}

TEST(PauseGate, RepeatedFlagsKeepTheFirstAnchorAndAResumeWithoutFramesRemovesNothing) {
    PauseGate gate;
    gate.setPaused(true);
    EXPECT_TRUE(gate.dropVideo(1s));
    gate.setPaused(true); // a second press of the same flag changes nothing
    EXPECT_TRUE(gate.dropVideo(2s));
    gate.setPaused(false);
    EXPECT_FALSE(gate.dropVideo(4s));
    EXPECT_EQ(gate.offset(), 3s); // from the first frame seen while paused

    PauseGate quick;
    quick.setPaused(true);
    quick.setPaused(false); // no frame came in between
    EXPECT_FALSE(quick.dropVideo(1s));
    EXPECT_EQ(quick.offset(), 0s);
}

TEST(PauseGate, SoundWaitsForTheFirstFrameAfterResuming) {
    PauseGate gate;
    EXPECT_FALSE(gate.dropAudio());
    gate.setPaused(true);
    EXPECT_TRUE(gate.dropAudio());
    (void)gate.dropVideo(1s);
    gate.setPaused(false);
    // Sound heard now would land inside the stretch about to be cut out.
    EXPECT_TRUE(gate.dropAudio());
    (void)gate.dropVideo(3s);
    EXPECT_FALSE(gate.dropAudio());
}

TEST(RecordableArea, OddSizesLoseTheirLastPixelAndTinyAreasAreRefused) {
    const auto area = recordableArea(QRect(10, 20, 1001, 601));
    ASSERT_TRUE(area.ok());
    EXPECT_EQ(*area, QRect(10, 20, 1000, 600));
    EXPECT_EQ(*recordableArea(QRect(0, 0, 2, 3)), QRect(0, 0, 2, 2));
    for (const QRect tiny :
         {QRect(0, 0, 1, 1), QRect(0, 0, 1, 500), QRect(0, 0, 500, 1), QRect()}) {
        const auto refused = recordableArea(tiny);
        ASSERT_FALSE(refused.ok());
        EXPECT_TRUE(refused.error().reason.contains(QStringLiteral("2 × 2")));
    }
}

} // namespace
