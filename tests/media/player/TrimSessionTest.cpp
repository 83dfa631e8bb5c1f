#include "media/player/TrimSession.h"

#include "CodedMovie.h"
#include "TestSupport.h"
#include "media/player/TimelineDrag.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace qm::media::player {
namespace {

// A player whose clock the test moves by hand.
struct ScriptedPlayback : Playback {
    void play() override { playing = true; }
    void pause() override { playing = false; }
    void seek(double seconds) override {
        at = seconds;
        ++seeks;
    }
    double position() const override { return at; }
    bool playing = false;
    double at = 0;
    int seeks = 0;
};

class TrimSessionTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_dir = new QTemporaryDir;
        s_movie = s_dir->filePath(QStringLiteral("Clip.mov"));
        ASSERT_TRUE(test::makeCodedMovie(s_movie, 10));
    }
    static void TearDownTestSuite() { delete s_dir; }

    void SetUp() override {
        auto playback = std::make_unique<ScriptedPlayback>();
        player = playback.get();
        session = std::make_unique<TrimSession>(s_movie, std::move(playback));
        session->load();
    }

    static inline QTemporaryDir* s_dir = nullptr;
    static inline QString s_movie;
    ScriptedPlayback* player = nullptr;
    std::unique_ptr<TrimSession> session;
};

TEST_F(TrimSessionTest, LoadingTakesTheWholeMovieAndFillsTheFilmstrip) {
    EXPECT_NEAR(session->duration(), 10.0, 0.001);
    EXPECT_EQ(session->trimStart(), 0);
    EXPECT_EQ(session->trimEnd(), session->duration());
    EXPECT_FALSE(session->hasTrim());
    EXPECT_TRUE(session->observerRunning());
    int changes = 0;
    QObject::connect(session.get(), &TrimSession::thumbnailsChanged, session.get(),
                     [&] { ++changes; });
    ASSERT_TRUE(test::waitUntil([&] { return session->thumbnails().size() == 14; }));
    EXPECT_GE(changes, 14); // one at a time, as each frame arrives
    session->teardown();
    EXPECT_FALSE(session->observerRunning());
}

TEST_F(TrimSessionTest, ARangeThatTouchesTheEndsIsNoTrim) {
    session->moveStartTo(0.04);
    session->moveEndTo(9.97);
    EXPECT_FALSE(session->hasTrim());
    session->moveStartTo(0.06);
    EXPECT_TRUE(session->hasTrim());
    session->moveStartTo(0);
    session->moveEndTo(9.94);
    EXPECT_TRUE(session->hasTrim());
}

TEST_F(TrimSessionTest, HandlesKeepTheRangeAtLeastAFifthOfASecondAndMoveThePlayhead) {
    session->moveEndTo(6);
    EXPECT_DOUBLE_EQ(player->at, 6);
    session->moveStartTo(8); // dragged past the end handle
    EXPECT_DOUBLE_EQ(session->trimStart(), 6 - kMinimumRange);
    EXPECT_DOUBLE_EQ(session->current(), session->trimStart());
    session->moveEndTo(1);
    EXPECT_DOUBLE_EQ(session->trimEnd(), session->trimStart() + kMinimumRange);
    session->moveStartTo(-5);
    EXPECT_EQ(session->trimStart(), 0);
}

TEST_F(TrimSessionTest, SeeksStayInsideTheMovie) {
    session->seek(-3);
    EXPECT_EQ(session->current(), 0);
    EXPECT_EQ(player->at, 0);
    session->seek(42);
    EXPECT_DOUBLE_EQ(session->current(), session->duration());
    session->seek(4.25);
    EXPECT_DOUBLE_EQ(player->at, 4.25);
}

TEST_F(TrimSessionTest, PlayAtTheEndOfTheRangeStartsOverAndPlaybackStopsAtTheEnd) {
    session->moveStartTo(2);
    session->moveEndTo(5);
    session->seek(5 - 0.04);
    session->togglePlay();
    EXPECT_TRUE(session->isPlaying());
    EXPECT_DOUBLE_EQ(player->at, 2); // started over

    session->togglePlay();
    EXPECT_FALSE(player->playing);
    session->seek(5 - 0.06);
    session->togglePlay();
    EXPECT_DOUBLE_EQ(player->at, 5 - 0.06); // resumed in place
    // The observer follows the player and stops it within one 1/30 s beat of the end.
    int ticks = 0;
    while (session->isPlaying() && ticks < 10) {
        player->at += 1.0 / 30;
        session->observerTick();
        ++ticks;
    }
    EXPECT_FALSE(session->isPlaying());
    EXPECT_FALSE(player->playing);
    EXPECT_GE(session->current(), 5 - 0.02);
    EXPECT_LT(session->current(), 5 - 0.02 + 1.0 / 30);
}

TEST_F(TrimSessionTest, PlayBeforeTheRangeStartsAtItsBeginning) {
    session->moveStartTo(3);
    session->seek(2.99); // within the slack before the start: plays in place
    session->togglePlay();
    EXPECT_DOUBLE_EQ(player->at, 2.99);
    session->togglePlay();
    session->seek(2.5);
    session->togglePlay();
    EXPECT_DOUBLE_EQ(player->at, 3);
}

TEST_F(TrimSessionTest, FrameStepsMoveOneWholeFrameFromTheFrameOnScreen) {
    session->seek(2.01); // inside frame 60
    session->stepFrames(1);
    EXPECT_EQ(static_cast<int>(session->current() * 30), 61);
    session->stepFrames(-2);
    EXPECT_EQ(static_cast<int>(session->current() * 30), 59);
    session->seek(0);
    session->stepFrames(-1);
    EXPECT_EQ(session->current(), 0);
    session->stepSeconds(-1);
    EXPECT_EQ(session->current(), 0);
    session->seek(9.5);
    session->stepSeconds(1);
    EXPECT_DOUBLE_EQ(session->current(), session->duration());
}

TEST_F(TrimSessionTest, AnUnreadableMovieLoadsAsEmptyAndCannotBeTrimmed) {
    auto playback = std::make_unique<ScriptedPlayback>();
    TrimSession broken(s_dir->filePath(QStringLiteral("missing.mov")), std::move(playback));
    broken.load();
    EXPECT_EQ(broken.duration(), 0);
    EXPECT_TRUE(broken.thumbnails().isEmpty());
    broken.moveStartTo(0.5);
    EXPECT_FALSE(broken.hasTrim());
}

TEST_F(TrimSessionTest, ReloadStartsOverOnTheReplacedFile) {
    session->moveStartTo(2);
    session->seek(4);
    session->setStatus(QStringLiteral("Trimming…"));
    session->reload();
    EXPECT_EQ(session->trimStart(), 0);
    EXPECT_EQ(session->current(), 0);
    EXPECT_TRUE(session->status().isEmpty());
    EXPECT_EQ(session->trimEnd(), session->duration());
    ASSERT_TRUE(test::waitUntil([&] { return session->thumbnails().size() == 14; }));
}

// Handles pushed together: the start handle is taken first, so the two can be parted again.
TEST(TimelineDrag, TheStartHandleWinsWhenBothAreInReach) {
    EXPECT_EQ(dragTargetAt(100, 100, 110), DragTarget::Start);
    EXPECT_EQ(dragTargetAt(114, 100, 110), DragTarget::Start);
    EXPECT_EQ(dragTargetAt(124, 100, 110), DragTarget::End);
    EXPECT_EQ(dragTargetAt(125, 100, 110), DragTarget::Scrub);
    EXPECT_EQ(dragTargetAt(85.5, 100, 110), DragTarget::Scrub);
    EXPECT_DOUBLE_EQ(timeAtX(-20, 400, 10), 0);
    EXPECT_DOUBLE_EQ(timeAtX(500, 400, 10), 10);
    EXPECT_DOUBLE_EQ(timeAtX(100, 400, 10), 2.5);
}

} // namespace
} // namespace qm::media::player
