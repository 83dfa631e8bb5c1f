#include "media/ui/TrimView.h"

#include "CodedMovie.h"
#include "TestSupport.h"
#include "media/player/TrimSession.h"
#include "media/ui/TrimTimeline.h"
#include "media/ui/TrimWindowController.h"
#include "media/ui/VideoSurface.h"

#include <QLabel>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

namespace qm::media::ui {
namespace {

class TrimViewTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_dir = new QTemporaryDir;
        s_movie = s_dir->filePath(QStringLiteral("Clip.mov"));
        ASSERT_TRUE(test::makeCodedMovie(s_movie, 3));
    }
    static void TearDownTestSuite() { delete s_dir; }

    void SetUp() override {
        controller = std::make_unique<TrimWindowController>(s_movie, false);
        controller->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(controller->window()));
        view = controller->view();
        timeline = view->timeline();
        ASSERT_TRUE(test::waitUntil([&] { return view->hasFocus(); }));
    }

    player::TrimSession& session() { return controller->session(); }
    int shownFrame() const { return test::codedFrameNumber(view->surface()->picture()); }
    QPushButton* button(const char* name) const {
        return view->findChild<QPushButton*>(QLatin1String(name));
    }
    void key(Qt::Key k, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
        QTest::keyClick(view, k, modifiers);
    }
    // A real press, moves and release on the strip, from one time to another.
    void drag(int fromX, int toX) {
        const int y = timeline->stripRect().center().y();
        QTest::mousePress(timeline, Qt::LeftButton, {}, QPoint(fromX, y));
        QTest::mouseMove(timeline, QPoint((fromX + toX) / 2, y));
        QTest::mouseMove(timeline, QPoint(toX, y));
        QTest::mouseRelease(timeline, Qt::LeftButton, {}, QPoint(toX, y));
    }

    static inline QTemporaryDir* s_dir = nullptr;
    static inline QString s_movie;
    std::unique_ptr<TrimWindowController> controller;
    TrimView* view = nullptr;
    TrimTimeline* timeline = nullptr;
};

TEST_F(TrimViewTest, TheWindowShowsTheMovieAndFillsTheFilmstrip) {
    EXPECT_EQ(controller->window()->windowTitle(), QStringLiteral("Trim Recording — Clip.mov"));
    EXPECT_EQ(controller->window()->minimumSize(), QSize(680, 480));
    EXPECT_EQ(timeline->stripRect().height(), 120);
    ASSERT_TRUE(test::waitUntil([&] { return session().thumbnails().size() == 14; }));
    ASSERT_TRUE(test::waitUntil([&] { return shownFrame() == 0; }));
    // The filmstrip really is on screen: the last slot shows the movie's late, bright frames.
    const QImage strip = timeline->grab().toImage();
    const QRect area = timeline->stripRect();
    const QColor early = strip.pixelColor(area.left() + area.width() / 28, area.center().y());
    const QColor late = strip.pixelColor(area.right() - area.width() / 28, area.center().y());
    EXPECT_GT(late.lightness(), early.lightness() + 60);
    EXPECT_EQ(view->findChild<QLabel*>(QStringLiteral("time"))->text(),
              QStringLiteral("0:00.00 / 0:03.00"));
}

TEST_F(TrimViewTest, KeysStepFramesAndSecondsAndSetTheRange) {
    key(Qt::Key_Right);
    ASSERT_TRUE(test::waitUntil([&] { return shownFrame() == 1; }));
    key(Qt::Key_Right, Qt::ShiftModifier);
    ASSERT_TRUE(test::waitUntil([&] { return shownFrame() == 31; }));
    key(Qt::Key_Left);
    ASSERT_TRUE(test::waitUntil([&] { return shownFrame() == 30; }));
    key(Qt::Key_I);
    EXPECT_NEAR(session().trimStart(), 1.0, 0.001);
    key(Qt::Key_Right, Qt::ShiftModifier);
    key(Qt::Key_O);
    EXPECT_NEAR(session().trimEnd(), 2.0, 0.001);
    EXPECT_TRUE(button("trim")->isEnabled());
    key(Qt::Key_Home);
    ASSERT_TRUE(test::waitUntil([&] { return shownFrame() == 30; }));
    key(Qt::Key_End);
    ASSERT_TRUE(test::waitUntil([&] { return shownFrame() == 60; }));
    key(Qt::Key_Left, Qt::ShiftModifier);
    key(Qt::Key_Left, Qt::ShiftModifier);
    key(Qt::Key_Left, Qt::ShiftModifier);
    EXPECT_EQ(session().current(), 0);
}

TEST_F(TrimViewTest, SpacePlaysTheKeptRangeAndStopsAtItsEnd) {
    session().moveStartTo(1.0);
    session().moveEndTo(1.5);
    key(Qt::Key_Space); // at the end of the range: starts over from its beginning
    EXPECT_TRUE(session().isPlaying());
    EXPECT_EQ(button("play")->text(), QStringLiteral("Pause"));
    ASSERT_TRUE(test::waitUntil([&] { return !session().isPlaying(); }));
    EXPECT_GE(session().current(), 1.5 - 0.02);
    // The picture stays on the frame where playback stopped.
    const int stoppedFrame = static_cast<int>(session().current() * 30);
    ASSERT_TRUE(test::waitUntil([&] { return std::abs(shownFrame() - stoppedFrame) <= 1; }));
    EXPECT_EQ(button("play")->text(), QStringLiteral("Play"));
}

TEST_F(TrimViewTest, DraggingHandlesMovesTheRangeAndDraggingElsewhereScrubs) {
    const int width = timeline->stripRect().width();
    const int left = timeline->stripRect().left();
    // Grab the start handle a little to its right (within reach) and pull it to 1 s.
    drag(left + 10, timeline->xAt(1.0));
    EXPECT_NEAR(session().trimStart(), 1.0, 3.0 / width * 2);
    ASSERT_TRUE(test::waitUntil([&] { return std::abs(shownFrame() - 30) <= 1; }));
    // The end handle, pulled far past the start handle: the range keeps a fifth of a second.
    drag(timeline->xAt(3.0) - 5, left - 50);
    EXPECT_NEAR(session().trimEnd(), session().trimStart() + 0.2, 1e-9);
    // Anywhere else on the strip moves only the playhead.
    const double start = session().trimStart();
    const double end = session().trimEnd();
    drag(timeline->xAt(2.5), timeline->xAt(2.0));
    EXPECT_NEAR(session().current(), 2.0, 3.0 / width * 2);
    EXPECT_EQ(session().trimStart(), start);
    EXPECT_EQ(session().trimEnd(), end);
    // The end handle, grabbed a little to its right, goes back out.
    drag(timeline->xAt(end) + 12, timeline->xAt(2.5));
    EXPECT_NEAR(session().trimEnd(), 2.5, 3.0 / width * 2);
    EXPECT_EQ(session().trimStart(), start);
}

TEST_F(TrimViewTest, TrimAndGifButtonsHandOverTheRange) {
    std::vector<std::pair<double, double>> trims, gifs;
    view->onTrim = [&](double s, double e) { trims.emplace_back(s, e); };
    view->onExportGif = [&](double s, double e) { gifs.emplace_back(s, e); };
    EXPECT_FALSE(button("trim")->isEnabled()); // the whole movie is no trim
    session().moveStartTo(0.5);
    session().moveEndTo(2.5);
    QTest::mouseClick(button("trim"), Qt::LeftButton);
    QTest::mouseClick(button("gif"), Qt::LeftButton);
    ASSERT_EQ(trims.size(), 1u);
    EXPECT_DOUBLE_EQ(trims[0].first, 0.5);
    EXPECT_DOUBLE_EQ(trims[0].second, 2.5);
    ASSERT_EQ(gifs.size(), 1u);
    // While an export runs, neither starts another.
    session().setExporting(true);
    session().setStatus(QStringLiteral("Exporting GIF… 40%"));
    EXPECT_FALSE(button("trim")->isEnabled());
    EXPECT_FALSE(button("gif")->isEnabled());
    EXPECT_EQ(view->findChild<QLabel*>(QStringLiteral("status"))->text(),
              QStringLiteral("Exporting GIF… 40%"));
}

TEST_F(TrimViewTest, ClosingTheWindowStopsPlaybackAndTellsTheOwner) {
    bool closed = false;
    controller->onClosed = [&] {
        closed = true;
        controller.reset(); // the owner may let go of the controller right there
    };
    key(Qt::Key_Space);
    ASSERT_TRUE(session().isPlaying());
    QTest::mouseClick(button("done"), Qt::LeftButton);
    EXPECT_FALSE(session().isPlaying());
    EXPECT_FALSE(session().observerRunning());
    ASSERT_TRUE(test::waitUntil([&] { return closed; }));
    EXPECT_FALSE(controller);
}

TEST(MovieTime, ReadsAsMinutesSecondsAndHundredths) {
    EXPECT_EQ(formatMovieTime(0), QStringLiteral("0:00.00"));
    EXPECT_EQ(formatMovieTime(65.256), QStringLiteral("1:05.26"));
    EXPECT_EQ(formatMovieTime(59.999), QStringLiteral("1:00.00"));
    EXPECT_EQ(formatMovieTime(-1), QStringLiteral("0:00.00"));
}

} // namespace
} // namespace qm::media::ui
