#include "RecorderUiFixture.h"
#include "platform/input/null/NullClickSource.h"
#include "platform/input/x11/X11ClickSource.h"
#include "recorder/ui/ClickHighlightController.h"

using namespace std::chrono_literals;

namespace qm::test {
namespace {

// Where in `box` the screen differs most from white, and how dark it is there (red channel:
// the accent is blue, so the ripple shows most in red).
struct Darkest {
    QPoint at;
    int red = 255;
};
Darkest darkestIn(const QImage& shown, const QRect& box) {
    Darkest found;
    for (int y = box.top(); y <= box.bottom(); ++y)
        for (int x = box.left(); x <= box.right(); ++x)
            if (const int red = shown.pixelColor(x, y).red(); red < found.red)
                found = {QPoint(x, y), red};
    return found;
}

QRect around(QPoint centre, int radius) {
    return {centre - QPoint(radius, radius), QSize(2 * radius + 1, 2 * radius + 1)};
}

double distance(QPoint a, QPoint b) {
    return std::hypot(a.x() - b.x(), a.y() - b.y());
}

TEST_F(RecorderUi, EachClickRipplesAtThePointerAndLeavesNothingBehind) {
    Compositor compositor;
    ASSERT_TRUE(compositor.ok());
    TargetWindow below(QRect(100, 100, 800, 600));
    ASSERT_TRUE(waitUntil([&] { return below.isExposed(); }));

    ManualClock clock;
    platform::X11ClickSource clicks;
    ClickHighlightController highlights(clicks, clock.function());
    const auto started = highlights.show(QGuiApplication::primaryScreen());
    ASSERT_TRUE(started.ok()) << started.error().reason.toStdString();
    RippleView* view = highlights.window();
    ASSERT_TRUE(shown(view));

    const QPoint first(300, 250), second(600, 450);
    ASSERT_TRUE(clickAt(first));
    ASSERT_TRUE(waitUntil([&] { return view->rippleCount() == 1; }));
    // A ninth of the way: the ring has grown to about 12 px radius and is still strong.
    clock.advance(50ms);
    ASSERT_TRUE(clickAt(second));
    ASSERT_TRUE(waitUntil([&] { return view->rippleCount() == 2; }));
    EXPECT_EQ(below.presses, 2) << "the ripples took the clicks";

    // The first ripple, drawn around the click: its ring is where it is darkest, its middle
    // is tinted, and the second, younger ripple is a smaller ring of its own.
    Darkest ring;
    ASSERT_TRUE(waitUntil([&] {
        ring = darkestIn(screenPixels(), around(first, 30));
        return ring.red < 190 && std::abs(distance(ring.at, first) - 11.8) < 2.5;
    })) << "darkest "
        << ring.red << " at " << distance(ring.at, first) << " px from the click";
    const QImage shown = screenPixels();
    EXPECT_LT(shown.pixelColor(first).red(), 250);
    EXPECT_GT(shown.pixelColor(first).red(), 190);
    const Darkest young = darkestIn(shown, around(second, 30));
    EXPECT_LT(young.red, 190);
    EXPECT_LT(distance(young.at, second), 8);
    EXPECT_EQ(darkestIn(shown, QRect(450, 150, 60, 60)).red, 255) << "a ripple out of place";

    // When the run is over the ripples are gone, from the window and from the screen.
    clock.advance(RippleView::duration);
    ASSERT_TRUE(waitUntil([&] { return view->rippleCount() == 0; }));
    EXPECT_TRUE(waitUntil([&] {
        const QImage after = screenPixels();
        return darkestIn(after, around(first, 30)).red == 255 &&
               darkestIn(after, around(second, 30)).red == 255;
    }));

    // Closed: clicks draw nothing.
    highlights.close();
    EXPECT_FALSE(highlights.window());
    ASSERT_TRUE(clickAt(first));
    ASSERT_TRUE(waitUntil([&] { return below.presses == 3; }));
}

TEST_F(RecorderUi, WithoutCompositingTheRingStillShowsAndThenTheWindowGoes) {
    TargetWindow below(QRect(100, 100, 800, 600));
    ASSERT_TRUE(waitUntil([&] { return below.isExposed(); }));
    ManualClock clock;
    platform::X11ClickSource clicks;
    ClickHighlightController highlights(clicks, clock.function());
    ASSERT_TRUE(highlights.show(QGuiApplication::primaryScreen()).ok());
    RippleView* view = highlights.window();
    EXPECT_FALSE(view->isVisible()) << "an opaque window over the whole screen";

    const QPoint at(400, 300);
    ASSERT_TRUE(clickAt(at));
    ASSERT_TRUE(waitUntil([&] { return view->rippleCount() == 1; }));
    clock.advance(50ms);
    view->advance();
    Darkest ring;
    ASSERT_TRUE(waitUntil([&] {
        ring = darkestIn(screenPixels(), around(at, 30));
        return ring.red < 120 && std::abs(distance(ring.at, at) - 11.8) < 3; // grown, not new
    })) << "darkest "
        << ring.red << " at " << distance(ring.at, at) << " px";
    EXPECT_EQ(screenPixels().pixelColor(at), QColor(Qt::white)) << "the ring's middle is open";

    clock.advance(RippleView::duration);
    ASSERT_TRUE(waitUntil([&] { return view->rippleCount() == 0; }));
    EXPECT_FALSE(view->isVisible());
    EXPECT_TRUE(waitUntil([&] { return darkestIn(screenPixels(), around(at, 30)).red == 255; }));
}

TEST_F(RecorderUi, ClickHighlightsSayWhyWithoutClicks) {
    platform::NullClickSource none;
    ClickHighlightController highlights(none);
    const auto started = highlights.show(QGuiApplication::primaryScreen());
    ASSERT_FALSE(started.ok());
    EXPECT_EQ(started.error().reason, QStringLiteral("Click highlights need an X11 session"));
    EXPECT_FALSE(highlights.window());
}

TEST(ClickHighlightMapping, DesktopPixelsBecomePointsOfTheScreen) {
    QScreen* screen = QGuiApplication::primaryScreen();
    const double scale = screen->devicePixelRatio();
    const QPointF origin = screen->geometry().topLeft();
    EXPECT_EQ(ClickHighlightController::logicalPoint(screen, origin.toPoint()), origin);
    EXPECT_EQ(ClickHighlightController::logicalPoint(screen, QPoint(300, 120)),
              origin + (QPointF(300, 120) - origin) / scale);
}

} // namespace
} // namespace qm::test
