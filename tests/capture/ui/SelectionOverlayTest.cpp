#include "OverlayTestSupport.h"
#include "TestSupport.h"
#include "capture/ui/SelectionOverlayController.h"
#include "capture/ui/SelectionView.h"
#include "platform/surface/x11/X11SurfaceBackend.h"

#include <QApplication>
#include <QLineEdit>
#include <QPixmap>
#include <QProcess>
#include <QWindow>
#include <cmath>
#include <gtest/gtest.h>

using namespace qm;
using namespace qm::test;

namespace {

bool near(QPointF a, QPointF b) {
    return std::abs(a.x() - b.x()) < 0.01 && std::abs(a.y() - b.y()) < 0.01;
}

QString arg(double value) {
    return QString::number(value);
}

class SelectionOverlayTest : public ::testing::Test {
protected:
    void SetUp() override {
        screen = targetScreen();
        origin = screen->geometry().topLeft();
    }

    void TearDown() override {
        xdotool({QStringLiteral("mouseup"), QStringLiteral("1")});
        controller.cancel();
    }

    // Two windows: "Alpha" behind, an unnamed one in front overlapping its lower right.
    std::vector<CapturedWindow> twoWindows() const {
        return {
            CapturedWindow{QRectF(origin + QPointF(260, 160), QSizeF(200, 150)), std::nullopt, 42u},
            CapturedWindow{QRectF(origin + QPointF(60, 60), QSizeF(300, 200)),
                           QStringLiteral("Alpha"), 41u}};
    }

    void begin(std::vector<CapturedWindow> windows = {},
               const QString& verb = QStringLiteral("Capture")) {
        capture = syntheticCapture(screen, std::move(windows));
        controller.begin(capture, verb, [this](std::optional<SelectionResult> result) {
            results.push_back(std::move(result));
            if (whenAnswered)
                whenAnswered();
        });
        ASSERT_TRUE(waitUntil([&] { return view() && view()->hasInputGrab(); }));
    }

    SelectionView* view() const { return controller.view(); }
    const SelectionModel& selection() const { return view()->selection(); }

    // Moves the real pointer to a point in view coordinates and waits until the view saw it.
    void moveTo(QPointF point) {
        const QPoint device = toDevice(screen, origin + point);
        xdotool({QStringLiteral("mousemove"), arg(device.x()), arg(device.y())});
        ASSERT_TRUE(waitUntil([&] { return view() && near(selection().mousePoint(), point); }))
            << "pointer at " << (view() ? selection().mousePoint().x() : -1) << ","
            << (view() ? selection().mousePoint().y() : -1);
    }
    void press() { xdotool({QStringLiteral("mousedown"), QStringLiteral("1")}); }
    // Releases the button and waits for the one answer.
    void release() {
        xdotool({QStringLiteral("mouseup"), QStringLiteral("1")});
        ASSERT_TRUE(waitUntil([&] { return !results.empty(); }));
    }
    void drag(QPointF from, QPointF to) {
        moveTo(from);
        press();
        moveTo(to);
        release();
    }

    QScreen* screen = nullptr;
    QPointF origin;
    DisplayCapture capture;
    // The real display server's reports: they carry the exact pixel on scaled screens.
    std::unique_ptr<platform::X11SurfaceBackend> surface = platform::X11SurfaceBackend::create();
    SelectionOverlayController controller{*surface};
    std::vector<std::optional<SelectionResult>> results;
    std::function<void()> whenAnswered;
};

TEST_F(SelectionOverlayTest, RegionStartsOnlyPastTheDragThreshold) {
    begin();
    moveTo({200, 200});
    press();
    moveTo({203, 204}); // exactly 5 points away
    EXPECT_FALSE(selection().isDragging());
    EXPECT_FALSE(selection().sizeReadout());
    moveTo({206, 200}); // 6 points: a region begins, though still too thin to keep
    EXPECT_TRUE(selection().isDragging());
    EXPECT_EQ(selection().currentRect(), QRectF(200, 200, 6, 0));
    moveTo({204, 204}); // 4 × 4: the smallest region kept
    release();
    ASSERT_EQ(results.size(), 1u);
    ASSERT_TRUE(results[0]);
    EXPECT_EQ(std::get<QRectF>(*results[0]), QRectF(origin + QPointF(200, 200), QSizeF(4, 4)));

    // The same 5-point wiggle ends as a click, and a click on empty desktop cancels.
    results.clear();
    begin();
    drag({200, 200}, {203, 204});
    ASSERT_EQ(results.size(), 1u);
    EXPECT_FALSE(results[0]);
    EXPECT_FALSE(controller.isActive());
}

TEST_F(SelectionOverlayTest, RegionIsReportedInGlobalPointsWithItsPixelSize) {
    begin();
    moveTo({250, 170});
    press();
    moveTo({150, 120}); // dragged up and left: the rectangle still starts at its top-left
    const double scale = screen->devicePixelRatio();
    EXPECT_EQ(selection().sizeReadout(),
              QStringLiteral("%1 × %2").arg(100 * scale).arg(50 * scale));
    // By the time the answer comes the overlay is off the screen, so the caller may grab the
    // screen again at once.
    QColor shownWhenAnswered;
    whenAnswered = [&] {
        shownWhenAnswered = screen->grabWindow(0).toImage().pixelColor(
            toDevice(screen, origin + QPointF(200, 145)) - screen->geometry().topLeft());
    };
    release();
    ASSERT_EQ(results.size(), 1u);
    ASSERT_TRUE(results[0]);
    EXPECT_EQ(std::get<QRectF>(*results[0]), QRectF(origin + QPointF(150, 120), QSizeF(100, 50)));
    const QPoint pixel = (QPointF(200, 145) * scale).toPoint();
    EXPECT_NE(shownWhenAnswered, syntheticColor(pixel.x(), pixel.y()));
}

TEST_F(SelectionOverlayTest, ThinDragPicksTheWindowUnderItOrCancels) {
    begin(twoWindows());
    drag({100, 100}, {103, 140}); // 3 points wide, inside Alpha only
    ASSERT_EQ(results.size(), 1u);
    ASSERT_TRUE(results[0]);
    EXPECT_EQ(std::get<CapturedWindow>(*results[0]).appName, QStringLiteral("Alpha"));

    results.clear();
    begin(twoWindows());
    drag({500, 400}, {503, 440}); // the same over empty desktop
    ASSERT_EQ(results.size(), 1u);
    EXPECT_FALSE(results[0]);
}

TEST_F(SelectionOverlayTest, HoverAndClickTakeTheFrontMostWindow) {
    begin(twoWindows(), QStringLiteral("Record"));
    moveTo({100, 100});
    ASSERT_TRUE(selection().hoveredWindow());
    EXPECT_EQ(selection().windowLabel(*selection().hoveredWindow()),
              QStringLiteral("Record Alpha Window"));
    moveTo({300, 200}); // where the two overlap
    ASSERT_TRUE(selection().hoveredWindow());
    EXPECT_EQ(selection().hoveredWindow()->windowId, 42u);
    EXPECT_EQ(selection().windowLabel(*selection().hoveredWindow()),
              QStringLiteral("Record Window"));
    press();
    release();
    ASSERT_EQ(results.size(), 1u);
    ASSERT_TRUE(results[0]);
    EXPECT_EQ(std::get<CapturedWindow>(*results[0]), twoWindows()[0]);
}

TEST_F(SelectionOverlayTest, EscapeCancelsMidDragWhateverWindowHadFocus) {
    // Another window of the program has the keyboard focus when the overlay opens.
    QLineEdit editor;
    editor.setGeometry(QRect(screen->geometry().topLeft() + QPoint(40, 40), QSize(200, 30)));
    editor.show();
    editor.activateWindow();
    ASSERT_TRUE(waitUntil([&] { return editor.hasFocus(); }));

    begin(twoWindows());
    moveTo({100, 100});
    press();
    moveTo({180, 170});
    ASSERT_TRUE(selection().isDragging());
    xdotool({QStringLiteral("key"), QStringLiteral("Escape")});
    ASSERT_TRUE(waitUntil([&] { return !results.empty(); }));
    EXPECT_FALSE(results[0]);
    xdotool({QStringLiteral("mouseup"), QStringLiteral("1")});
    QApplication::processEvents();
    EXPECT_EQ(results.size(), 1u); // the release after cancelling answers nothing more
}

TEST_F(SelectionOverlayTest, KeysReachTheOverlayWhileAnotherProgramHasFocus) {
    QProcess other;
    other.start(QStringLiteral("xmessage"), {QStringLiteral("-name"), QStringLiteral("qm-other"),
                                             QStringLiteral("Another program")});
    ASSERT_TRUE(other.waitForStarted());
    const auto xdotoolOut = [](const QStringList& args) {
        return run(QStringLiteral("xdotool"), args).out.trimmed();
    };
    QByteArray window;
    ASSERT_TRUE(waitUntil(
        [&] {
            window = xdotoolOut({QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                 QStringLiteral("--classname"), QStringLiteral("qm-other")})
                         .split('\n')
                         .value(0);
            return !window.isEmpty();
        },
        std::chrono::seconds(20)));
    // Focus set straight on the window: it holds with and without a window manager.
    ASSERT_TRUE(waitUntil([&] {
        xdotoolOut({QStringLiteral("windowfocus"), QString::fromLatin1(window)});
        return xdotoolOut({QStringLiteral("getwindowfocus")}) == window;
    })) << "window "
        << window.toStdString() << " focus "
        << xdotoolOut({QStringLiteral("getwindowfocus")}).toStdString();

    begin();
    xdotool({QStringLiteral("key"), QStringLiteral("Escape")});
    EXPECT_TRUE(waitUntil([&] { return !results.empty(); }));
    other.kill();
    other.waitForFinished();
    ASSERT_EQ(results.size(), 1u);
    EXPECT_FALSE(results[0]);
}

TEST_F(SelectionOverlayTest, LoupeStaysInsideTheScreenAndMagnifiesThePointer) {
    begin();
    moveTo({20, 300});
    const QRectF loupe = selection().loupeRect();
    EXPECT_EQ(loupe.center(), QPointF(110, 300));
    EXPECT_EQ(loupe.size(), QSizeF(132, 132));

    // What the screen shows: the loupe's centre holds the undimmed pixel under the pointer,
    // and away from the overlays the picture is dimmed.
    ASSERT_TRUE(waitUntil([&] { return view()->windowHandle()->isExposed(); }));
    QApplication::processEvents();
    const QImage shown = screen->grabWindow(0).toImage();
    if (const QByteArray path = qgetenv("QM_OVERLAY_SHOT"); !path.isEmpty())
        shown.save(QString::fromLocal8Bit(path));
    const double scale = screen->devicePixelRatio();
    const QPoint pixel = selection().pixelUnderPointer();
    EXPECT_EQ(pixel, QPoint(int(20 * scale), int(300 * scale)));
    const auto shownAt = [&](QPointF point) {
        return shown.pixelColor(int(point.x() * scale), int(point.y() * scale));
    };
    EXPECT_EQ(shownAt(loupe.center()), syntheticColor(pixel.x(), pixel.y()));
    // One cell to the right is the next pixel to the right.
    EXPECT_EQ(shownAt(loupe.center() + QPointF(8 / scale, 0)),
              syntheticColor(pixel.x() + 1, pixel.y()));
    const QColor dimmed = shownAt({400, 60});
    const QColor original = syntheticColor(int(400 * scale), int(60 * scale));
    EXPECT_NEAR(dimmed.red(), original.red() * 0.65, 2);
    EXPECT_NEAR(dimmed.green(), original.green() * 0.65, 2);

    // Bottom-right corner: clamped the other way.
    moveTo({view()->width() - 5.0, view()->height() - 5.0});
    EXPECT_EQ(selection().loupeRect().center(),
              QPointF(view()->width() - 110.0, view()->height() - 110.0));
}

TEST_F(SelectionOverlayTest, ReadoutOnTheLastPixelColumnStillShowsAColour) {
    begin();
    const double scale = screen->devicePixelRatio();
    const int lastColumn = capture.image.width() - 1;
    const int row = int(100 * scale);
    moveTo({lastColumn / scale, 100});
    EXPECT_EQ(selection().pixelUnderPointer(), QPoint(lastColumn, row));
    const QColor color = syntheticColor(lastColumn, row);
    EXPECT_EQ(
        selection().colorReadout(),
        QStringLiteral("#%1 · %2, %3").arg(color.name().mid(1).toUpper()).arg(lastColumn).arg(row));
}

TEST_F(SelectionOverlayTest, AnswersOnceAndANewBeginReplacesTheOverlay) {
    int firstCalls = 0;
    capture = syntheticCapture(screen);
    controller.begin(capture, QStringLiteral("Capture"),
                     [&](std::optional<SelectionResult>) { ++firstCalls; });
    begin(); // replaces the first overlay and its completion
    const QWidgetList windows = QApplication::topLevelWidgets();
    EXPECT_EQ(
        std::count_if(windows.begin(), windows.end(),
                      [](QWidget* w) { return w->isVisible() && qobject_cast<SelectionView*>(w); }),
        1);
    controller.cancel();
    controller.cancel();
    ASSERT_EQ(results.size(), 1u);
    EXPECT_FALSE(results[0]);
    EXPECT_EQ(firstCalls, 0);
    EXPECT_FALSE(controller.isActive());
}

} // namespace
