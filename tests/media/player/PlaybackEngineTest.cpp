#include "media/player/PlaybackEngine.h"

#include "CodedMovie.h"
#include "TestSupport.h"
#include "media/player/AudioMixer.h"
#include "media/player/TrimSession.h"

#include <QTemporaryDir>
#include <cmath>
#include <gtest/gtest.h>
#include <numbers>

namespace qm::media::player {
namespace {

// How strongly a frequency is present in the left channel of interleaved stereo (Goertzel).
double strength(const std::vector<float>& stereo, double hz) {
    const double w = 2 * std::numbers::pi * hz / kMixRate;
    double s1 = 0, s2 = 0;
    const std::size_t frames = stereo.size() / 2;
    for (std::size_t i = 0; i < frames; ++i) {
        const double s = stereo[i * 2] + 2 * std::cos(w) * s1 - s2;
        s2 = s1;
        s1 = s;
    }
    return std::sqrt(s1 * s1 + s2 * s2 - 2 * std::cos(w) * s1 * s2) / frames;
}

class PlaybackEngineTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_dir = new QTemporaryDir;
        s_movie = s_dir->filePath(QStringLiteral("sound.mov"));
        ASSERT_TRUE(test::makeCodedMovie(s_movie, 3, true));
    }
    static void TearDownTestSuite() { delete s_dir; }

    static int shownFrame(const PlaybackEngine& engine) {
        return test::codedFrameNumber(engine.picture());
    }

    static inline QTemporaryDir* s_dir = nullptr;
    static inline QString s_movie;
};

TEST_F(PlaybackEngineTest, BothSoundTracksAreHeardTogetherFromTheAskedTime) {
    auto mixer = AudioMixer::open(s_movie);
    ASSERT_TRUE(mixer.ok());
    EXPECT_EQ((*mixer)->trackCount(), 2);
    (*mixer)->seek(1.0);
    const auto second = (*mixer)->read(kMixRate);
    ASSERT_EQ(second.size(), std::size_t(kMixRate * 2));
    // lavfi's tones are at an eighth of full scale, spread over both channels.
    EXPECT_GT(strength(second, 440), 0.03);
    EXPECT_GT(strength(second, 880), 0.03);
    EXPECT_LT(strength(second, 660), 0.003);
    // From 1 s on, two seconds are left (and a little encoder padding at most).
    std::size_t rest = second.size();
    for (auto chunk = (*mixer)->read(4096); !chunk.empty(); chunk = (*mixer)->read(4096))
        rest += chunk.size();
    EXPECT_NEAR(rest / 2.0 / kMixRate, 2.0, 0.05);
}

TEST_F(PlaybackEngineTest, SeeksShowTheExactFrame) {
    PlaybackEngine engine(s_movie, false);
    engine.seek(2.0);
    ASSERT_TRUE(test::waitUntil([&] { return shownFrame(engine) == 60; }));
    engine.seek(0.51);
    ASSERT_TRUE(test::waitUntil([&] { return shownFrame(engine) == 15; }));
    engine.seek(-1);
    EXPECT_EQ(engine.position(), 0);
}

// The picture follows the clock while playing, and stays where it is once paused.
void playsInStepWithTheClock(PlaybackEngine& engine) {
    engine.seek(1.0);
    ASSERT_TRUE(test::waitUntil([&] { return test::codedFrameNumber(engine.picture()) == 30; }));
    engine.play();
    ASSERT_TRUE(test::waitUntil([&] { return engine.position() > 1.5; }));
    int lastFrame = -1;
    ASSERT_TRUE(test::waitUntil([&] {
        const int frame = test::codedFrameNumber(engine.picture());
        EXPECT_GE(frame, lastFrame); // never backwards
        lastFrame = frame;
        return frame >= 50;
    }));
    engine.pause();
    const double stopped = engine.position();
    const int frameAtStop = static_cast<int>(stopped * 30);
    ASSERT_TRUE(test::waitUntil(
        [&] { return std::abs(test::codedFrameNumber(engine.picture()) - frameAtStop) <= 1; }));
    EXPECT_EQ(engine.position(), stopped);
}

TEST_F(PlaybackEngineTest, PlaysOnTheSystemTimerWhenSilent) {
    PlaybackEngine engine(s_movie, false);
    playsInStepWithTheClock(engine);
    EXPECT_FALSE(engine.isSounding());
}

TEST_F(PlaybackEngineTest, PlaysThroughTheAudioOutputWhenThereIsOne) {
    PlaybackEngine engine(s_movie, true);
    playsInStepWithTheClock(engine);
    // With no sound server at all the clock falls back to the timer and playback works the same.
    engine.play();
    EXPECT_EQ(engine.isSounding(), qgetenv("QUILLMARK_EXPECT_SOUND") == "1");
}

TEST_F(PlaybackEngineTest, ASessionStopsAtTheEndOfTheKeptRange) {
    auto engine = std::make_unique<PlaybackEngine>(s_movie, true);
    PlaybackEngine* player = engine.get();
    TrimSession session(s_movie, std::move(engine));
    session.load();
    session.moveStartTo(0.5);
    session.moveEndTo(1.2);
    session.togglePlay(); // at the end: starts over from 0.5
    ASSERT_TRUE(test::waitUntil([&] { return !session.isPlaying(); }));
    EXPECT_GE(session.current(), 1.2 - 0.02);
    // Within a beat or so of the end (a busy machine may be late with one), never run on.
    EXPECT_LT(session.current(), 1.2 + 0.2);
    EXPECT_LT(player->position(), 1.2 + 0.2);
}

} // namespace
} // namespace qm::media::player
