#include "RecorderUiFixture.h"
#include "recorder/ui/ControlButton.h"
#include "recorder/ui/RecordingControlsController.h"
#include "recorder/ui/RecordingControlsView.h"
#include "recorder/ui/RecordingDimOverlay.h"
#include "recorder/ui/RecordingDot.h"

#include <QPointer>

using namespace std::chrono_literals;

namespace qm::test {
namespace {

QPoint centreOf(QWidget* widget) {
    return widget->mapToGlobal(widget->rect().center());
}

TEST_F(RecorderUi, ControlBarSitsBelowTheAreaAndItsButtonsReport) {
    ManualClock clock;
    RecordingControlsController controls(clock.function());
    int stops = 0;
    std::vector<bool> toggles;
    const QRect area(400, 200, 800, 500);
    ASSERT_TRUE(controls.show(
        area, QGuiApplication::screens(), [&] { ++stops; },
        [&](bool paused) { toggles.push_back(paused); }));
    QPointer<RecordingControlsView> panel = controls.panel();
    ASSERT_TRUE(shown(panel));
    const QRect bar = panel->frameGeometry();
    EXPECT_FALSE(bar.intersects(area.adjusted(-2, -2, 2, 2)));
    EXPECT_GT(bar.top(), area.bottom());
    EXPECT_LE(std::abs(bar.center().x() - area.center().x()), 1);
    EXPECT_TRUE(controls.state()->isTicking());

    clock.advance(75s);
    controls.state()->tick();
    EXPECT_EQ(panel->timeText(), QStringLiteral("01:15"));

    // Real clicks on the bar: it takes the pointer though it never takes the focus.
    ASSERT_TRUE(clickAt(centreOf(panel->pauseButton())));
    ASSERT_TRUE(waitUntil([&] { return toggles.size() == 1; }));
    EXPECT_TRUE(toggles[0]);
    EXPECT_TRUE(controls.state()->isPaused());
    EXPECT_TRUE(panel->dot()->isPaused());
    EXPECT_EQ(panel->pauseButton()->toolTip(), QStringLiteral("Resume"));
    clock.advance(30s); // paused: the time stands
    controls.state()->tick();
    EXPECT_EQ(panel->timeText(), QStringLiteral("01:15"));

    ASSERT_TRUE(clickAt(centreOf(panel->pauseButton())));
    ASSERT_TRUE(waitUntil([&] { return toggles.size() == 2; }));
    EXPECT_FALSE(toggles[1]);
    EXPECT_EQ(panel->pauseButton()->toolTip(), QStringLiteral("Pause"));
    EXPECT_EQ(panel->stopButton()->toolTip(), QStringLiteral("Stop Recording"));

    ASSERT_TRUE(clickAt(centreOf(panel->stopButton())));
    ASSERT_TRUE(waitUntil([&] { return stops == 1; }));
    EXPECT_EQ(toggles.size(), 2u);
    EXPECT_FALSE(QGuiApplication::focusWindow()) << "the bar took the keyboard focus";

    controls.close();
    EXPECT_FALSE(controls.state());
    EXPECT_TRUE(waitUntil([&] { return panel.isNull(); }));
}

TEST_F(RecorderUi, AWholeSingleScreenGetsNoBarButTheTimeRuns) {
    ManualClock clock;
    RecordingControlsController controls(clock.function());
    QScreen* screen = QGuiApplication::primaryScreen();
    EXPECT_FALSE(controls.show(
        screen->geometry(), {screen}, [] {}, [](bool) {}));
    EXPECT_FALSE(controls.panel());
    ASSERT_TRUE(controls.state());
    clock.advance(3s);
    controls.state()->tick();
    EXPECT_EQ(controls.state()->display(), QStringLiteral("00:03"));
    // Paused from the tray: the state follows without reporting back.
    controls.setPaused(true);
    EXPECT_TRUE(controls.state()->isPaused());
}

TEST_F(RecorderUi, DimmingDarkensAroundTheAreaOutlinesItAndLetsClicksThrough) {
    Compositor compositor;
    ASSERT_TRUE(compositor.ok());
    TargetWindow below(QRect(100, 100, 700, 500));
    ASSERT_TRUE(waitUntil([&] { return below.isExposed(); }));

    const QRect area(300, 200, 300, 200);
    RecordingDimOverlay dim;
    dim.show(area);
    ASSERT_EQ(dim.windows().size(), 1u);
    ASSERT_TRUE(shown(dim.windows().front()));

    // White under 35 % black is 166.
    const QPoint outside(150, 150);
    ASSERT_TRUE(waitUntil([&] {
        return near(screenPixels().pixelColor(outside), QColor(166, 166, 166));
    })) << "outside: "
        << screenPixels().pixelColor(outside).name().toStdString();
    const QImage shown = screenPixels();
    EXPECT_EQ(shown.pixelColor(area.topLeft()), QColor(Qt::white));
    EXPECT_EQ(shown.pixelColor(area.bottomRight()), QColor(Qt::white));
    EXPECT_EQ(shown.pixelColor(area.center()), QColor(Qt::white));
    // The outline lies just outside the area, two pixels wide.
    EXPECT_TRUE(near(shown.pixelColor(area.left() - 1, area.center().y()), accent(), 2));
    EXPECT_TRUE(near(shown.pixelColor(area.left() - 2, area.center().y()), accent(), 2));
    EXPECT_TRUE(near(shown.pixelColor(area.center().x(), area.bottom() + 2), accent(), 2));
    EXPECT_FALSE(near(shown.pixelColor(area.left() - 3, area.center().y()), accent(), 2));

    ASSERT_TRUE(clickAt(outside));
    EXPECT_TRUE(waitUntil([&] { return below.presses == 1; })) << "the dimming took the click";

    dim.close();
    EXPECT_TRUE(dim.windows().empty());
    EXPECT_TRUE(waitUntil([&] { return screenPixels().pixelColor(outside) == QColor(Qt::white); }));
}

TEST_F(RecorderUi, WithoutCompositingOnlyTheOutlineIsDrawn) {
    ASSERT_FALSE(compositorSelectionOwned());
    TargetWindow below(QRect(100, 100, 700, 500));
    ASSERT_TRUE(waitUntil([&] { return below.isExposed(); }));
    const QRect area(300, 200, 300, 200);
    RecordingDimOverlay dim;
    dim.show(area);
    ASSERT_TRUE(shown(dim.windows().front()));
    const QPoint edge(area.left() - 1, area.center().y());
    ASSERT_TRUE(waitUntil([&] { return near(screenPixels().pixelColor(edge), accent(), 2); }));
    // An opaque window cannot dim: the desktop stays as it is rather than go black.
    const QImage shown = screenPixels();
    EXPECT_EQ(shown.pixelColor(150, 150), QColor(Qt::white));
    EXPECT_EQ(shown.pixelColor(area.center()), QColor(Qt::white));
    ASSERT_TRUE(clickAt(QPoint(area.left() - 1, area.top() + 20)));
    EXPECT_TRUE(waitUntil([&] { return below.presses == 1; })) << "the outline took the click";
}

TEST_F(RecorderUi, OnTwoMonitorsTheDimmingCoversBothAndTheBarMovesAcross) {
    const QList<QScreen*> screens = QGuiApplication::screens();
    if (screens.size() < 2)
        GTEST_SKIP() << "needs two monitors";
    QScreen* first = screens[0];
    QScreen* second = screens[1];

    // An area across the seam darkens both screens, each around its own part of the hole.
    const QRect area(first->geometry().right() - 199, 300, 400, 300);
    RecordingDimOverlay dim;
    dim.show(area);
    ASSERT_EQ(dim.windows().size(), 2u);
    for (DimView* view : dim.windows()) {
        ASSERT_TRUE(shown(view));
        QScreen* screen = view->screen();
        EXPECT_EQ(view->geometry(), screen->geometry());
        EXPECT_EQ(view->hole(), area.translated(-screen->geometry().topLeft()));
    }

    // The whole first screen recorded: the bar goes to the bottom of the second.
    RecordingControlsController controls;
    ASSERT_TRUE(controls.show(
        first->geometry(), screens, [] {}, [](bool) {}));
    ASSERT_TRUE(shown(controls.panel()));
    const QRect bar = controls.panel()->frameGeometry();
    EXPECT_TRUE(second->availableGeometry().contains(bar));
    EXPECT_EQ(controls.panel()->screen(), second);
    EXPECT_EQ(bar.bottom(), second->availableGeometry().bottom() - 24);
}

} // namespace
} // namespace qm::test
