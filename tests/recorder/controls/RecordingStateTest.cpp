#include "recorder/controls/RecordingState.h"

#include <QSignalSpy>
#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

// A clock the test moves by hand.
struct ManualClock {
    qm::RecordingState::TimePoint now{};
    qm::RecordingState::Clock function() {
        return [this] { return now; };
    }
    void advance(std::chrono::duration<double> by) {
        now += std::chrono::duration_cast<std::chrono::steady_clock::duration>(by);
    }
};

TEST(RecordingState, PauseHoldsTheTimeAndResumeContinuesFromIt) {
    ManualClock clock;
    qm::RecordingState state(clock.function());
    EXPECT_EQ(state.display(), QStringLiteral("00:00"));

    clock.advance(10.4s);
    state.tick();
    EXPECT_EQ(state.display(), QStringLiteral("00:10"));

    state.setPaused(true);
    EXPECT_NEAR(state.elapsed(), 10.4, 1e-9);
    for (int i = 0; i < 12; ++i) { // three seconds of ticks while paused
        clock.advance(250ms);
        state.tick();
        EXPECT_EQ(state.display(), QStringLiteral("00:10"));
    }

    state.setPaused(false);
    clock.advance(0.7s);
    state.tick();
    EXPECT_NEAR(state.elapsed(), 11.1, 1e-9);
    EXPECT_EQ(state.display(), QStringLiteral("00:11"));
}

TEST(RecordingState, RepeatedEqualFlagsAreIgnoredAndTheLastPressWins) {
    ManualClock clock;
    qm::RecordingState state(clock.function());
    QSignalSpy paused(&state, &qm::RecordingState::pausedChanged);

    clock.advance(5s);
    state.setPaused(true);
    clock.advance(5s);
    state.setPaused(true); // a second press of the same flag must not count the pause as run
    EXPECT_NEAR(state.elapsed(), 5.0, 1e-9);
    state.setPaused(false);
    state.setPaused(false);
    EXPECT_EQ(paused.count(), 2);
    EXPECT_FALSE(state.isPaused());

    // Pause and resume in the same instant: running again, nothing lost or gained.
    clock.advance(2s);
    state.setPaused(true);
    state.setPaused(false);
    clock.advance(1s);
    state.tick();
    EXPECT_NEAR(state.elapsed(), 8.0, 1e-9);
}

TEST(RecordingState, MinutesAreNotWrappedIntoHours) {
    EXPECT_EQ(qm::RecordingState::format(59.999), QStringLiteral("00:59"));
    EXPECT_EQ(qm::RecordingState::format(3599), QStringLiteral("59:59"));
    EXPECT_EQ(qm::RecordingState::format(3600), QStringLiteral("60:00"));
    EXPECT_EQ(qm::RecordingState::format(4500), QStringLiteral("75:00"));
    EXPECT_EQ(qm::RecordingState::format(-0.5), QStringLiteral("00:00"));

    ManualClock clock;
    qm::RecordingState state(clock.function());
    clock.advance(3600s);
    state.tick();
    EXPECT_EQ(state.display(), QStringLiteral("60:00"));
}

TEST(RecordingState, TheTimerTicksUntilStopped) {
    ManualClock clock;
    qm::RecordingState state(clock.function());
    QSignalSpy changed(&state, &qm::RecordingState::elapsedChanged);
    state.startTicking();
    EXPECT_TRUE(state.isTicking());
    clock.advance(2s);
    // The timer's own tick, not a hand-made one: the test only waits for it.
    EXPECT_TRUE(changed.wait(5000));
    EXPECT_EQ(state.display(), QStringLiteral("00:02"));
    state.stopTicking();
    EXPECT_FALSE(state.isTicking());
}

} // namespace
