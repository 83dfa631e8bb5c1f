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

// Clicks and screen reads are in device pixels; on a scaled screen the ripple grows with it.
TEST_F(RecorderUi, EachClickRipplesAtThePointerAndLeavesNothingBehind) {
    Compositor compositor;
    ASSERT_TRUE(compositor.ok());
    TargetWindow below(QRect(50, 50, 800, 500));
    ASSERT_TRUE(waitUntil([&] { return below.isExposed(); }));
    const double scale = QGuiApplication::primaryScreen()->devicePixelRatio();
    const int reach = int(30 * scale);

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
    // A ninth of the way: the ring has grown to about 12 points radius and is still strong.
    clock.advance(50ms);
    ASSERT_TRUE(clickAt(second));
    ASSERT_TRUE(waitUntil([&] { return view->rippleCount() == 2; }));
    EXPECT_EQ(below.presses, 2) << "the ripples took the clicks";

    // The first ripple, drawn around the click: its ring is where it is darkest, its middle
    // is tinted, and the second, younger ripple is a smaller ring of its own.
    Darkest ring;
    ASSERT_TRUE(waitUntil([&] {
        ring = darkestIn(screenPixels(), around(first, reach));
        return ring.red < 190 && std::abs(distance(ring.at, first) - 11.8 * scale) < 2.5 * scale;
    })) << "darkest "
        << ring.red << " at " << distance(ring.at, first) << " px from the click";
    const QImage shown = screenPixels();
    EXPECT_LT(shown.pixelColor(first).red(), 250);
    EXPECT_GT(shown.pixelColor(first).red(), 190);
    const Darkest young = darkestIn(shown, around(second, reach));
    EXPECT_LT(young.red, 190);
    EXPECT_LT(distance(young.at, second), 8 * scale);
    EXPECT_EQ(darkestIn(shown, QRect(450, 150, 60, 60)).red, 255) << "a ripple out of place";

    // When the run is over the ripples are gone, from the window and from the screen.
    clock.advance(RippleView::duration);
    ASSERT_TRUE(waitUntil([&] { return view->rippleCount() == 0; }));
    EXPECT_TRUE(waitUntil([&] {
        const QImage after = screenPixels();
        return darkestIn(after, around(first, reach)).red == 255 &&
               darkestIn(after, around(second, reach)).red == 255;
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

// Clicks arrive in desktop pixels; on a second monitor at its own scale Qt's points have a gap
// at the seam, and the ripple must still land under the pointer.
TEST_F(RecorderUi, RippleOnASecondMonitorOfItsOwnScaleLandsUnderThePointer) {
    const QList<QScreen*> screens = QGuiApplication::screens();
    if (screens.size() < 2)
        GTEST_SKIP() << "needs two monitors";
    QScreen* second = screens[1];
    const QPoint origin = second->geometry().topLeft(); // in pixels as in points
    const double scale = second->devicePixelRatio();
    TargetWindow below(QRect(origin + QPoint(100, 100), QSize(400, 300)));
    ASSERT_TRUE(waitUntil([&] { return below.isExposed(); }));

    ManualClock clock;
    platform::X11ClickSource clicks;
    ClickHighlightController highlights(clicks, clock.function());
    ASSERT_TRUE(highlights.show(second).ok());
    RippleView* view = highlights.window();

    const QPoint pixel = origin + QPoint(380, 400); // on the desktop
    ASSERT_TRUE(clickAt(pixel));
    ASSERT_TRUE(waitUntil([&] { return view->rippleCount() == 1; }));
    clock.advance(50ms);
    view->advance();
    const QPoint inScreen = pixel - origin; // the second screen's own picture starts there
    Darkest ring;
    ASSERT_TRUE(waitUntil([&] {
        ring = darkestIn(second->grabWindow(0).toImage(), around(inScreen, int(30 * scale)));
        return ring.red < 120 && std::abs(distance(ring.at, inScreen) - 11.8 * scale) < 3 * scale;
    })) << "darkest "
        << ring.red << " at " << distance(ring.at, inScreen) << " px";

    // A click on the first monitor is not this screen's.
    ASSERT_TRUE(clickAt(QPoint(200, 200)));
    ASSERT_TRUE(clickAt(pixel + QPoint(10, 10)));
    // Clicks arrive in order: once the second screen's shows, the other one has been seen.
    ASSERT_TRUE(waitUntil([&] { return view->rippleCount() >= 2; }));
    EXPECT_EQ(view->rippleCount(), 2);
}

} // namespace
} // namespace qm::test
