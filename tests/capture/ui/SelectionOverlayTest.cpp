#include "OverlayTestSupport.h"
#include "TestSupport.h"
#include "capture/core/FrozenDesktop.h"
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
    void moveTo(QPointF point) { moveOn(screen, origin + point); }
    // The same for a global point on any screen.
    void moveOn(QScreen* on, QPointF global) {
        const QPoint device = toDevice(on, global);
        xdotool({QStringLiteral("mousemove"), arg(device.x()), arg(device.y())});
        ASSERT_TRUE(waitUntil([&] { return view() && near(selection().mousePoint(), global); }))
            << "pointer at " << (view() ? selection().mousePoint().x() : -1) << ","
            << (view() ? selection().mousePoint().y() : -1);
    }
    // The pointer as the selection sees it, from the screen's top-left corner.
    QPointF pointer() const { return selection().mousePoint() - origin; }
    // The dragged area, from the screen's top-left corner.
    QRectF area() const { return selection().currentRect().translated(-origin); }
    void press() { xdotool({QStringLiteral("mousedown"), QStringLiteral("1")}); }
    // Presses and lets go of keys ("shift+Left"), or holds one down or lets it go.
    void key(const QString& keys) { xdotool({QStringLiteral("key"), keys}); }
    void keyDown(const QString& keys) { xdotool({QStringLiteral("keydown"), keys}); }
    void keyUp(const QString& keys) { xdotool({QStringLiteral("keyup"), keys}); }
    // Drags out an area that stays for adjusting.
    void dragToAdjust(QPointF from, QPointF to) {
        moveTo(from);
        press();
        moveTo(to);
        xdotool({QStringLiteral("mouseup"), QStringLiteral("1")});
        ASSERT_TRUE(waitUntil([&] { return view() && selection().isAdjusting(); }));
    }
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
    EXPECT_EQ(area(), QRectF(200, 200, 6, 0));
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
    const QRectF loupe = selection().loupeRect().translated(-origin);
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
    EXPECT_EQ(selection().loupeRect().center() - origin,
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

TEST_F(SelectionOverlayTest, SpaceMovesShiftSquaresAndArrowsNudgeByWholePixels) {
    begin();
    const double px = 1 / screen->devicePixelRatio(); // one pixel in points
    // Before a drag the arrows move the pointer, so the drag starts on the very pixel.
    moveTo({100, 100});
    key(QStringLiteral("Right"));
    key(QStringLiteral("Down"));
    ASSERT_TRUE(waitUntil([&] { return near(pointer(), QPointF(100 + px, 100 + px)); }));
    press();
    moveTo({200, 160});
    EXPECT_TRUE(near(area().topLeft(), QPointF(100 + px, 100 + px)));

    // Space held: the whole area follows the pointer.
    keyDown(QStringLiteral("space"));
    moveTo({250, 200});
    keyUp(QStringLiteral("space"));
    const QRectF moved(QPointF(150 + px, 140 + px), QPointF(250, 200));
    EXPECT_TRUE(near(area().topLeft(), moved.topLeft()) &&
                near(area().bottomRight(), moved.bottomRight()));
    // Shift held: a square on the longer side; let go, the pointer's corner again.
    keyDown(QStringLiteral("shift"));
    ASSERT_TRUE(waitUntil([&] { return std::abs(area().height() - moved.width()) < 0.01; }));
    EXPECT_TRUE(near(area().topLeft(), moved.topLeft()));
    keyUp(QStringLiteral("shift"));
    ASSERT_TRUE(waitUntil([&] { return std::abs(area().height() - moved.height()) < 0.01; }));

    // During the drag the arrows move the corner under the pointer: 1 pixel, with Shift 10.
    key(QStringLiteral("Right"));
    key(QStringLiteral("Right"));
    key(QStringLiteral("shift+Up"));
    const QPointF corner(250 + 2 * px, 200 - 10 * px);
    ASSERT_TRUE(waitUntil([&] { return near(pointer(), corner) && !selection().isMoving(); }));
    ASSERT_TRUE(waitUntil([&] { return near(area().bottomRight(), corner); }));
    release(); // where the cursor was left, which is the nudged pixel
    ASSERT_EQ(results.size(), 1u);
    ASSERT_TRUE(results[0]);
    const QRectF answered = std::get<QRectF>(*results[0]).translated(-origin);
    EXPECT_TRUE(near(answered.topLeft(), moved.topLeft()));
    EXPECT_TRUE(near(answered.bottomRight(), corner));
}

TEST_F(SelectionOverlayTest, AdjustedAreaWaitsForEnterOrADoubleClick) {
    controller.setAdjustBeforeCapturing(true);
    begin(twoWindows());
    const double px = 1 / screen->devicePixelRatio();
    dragToAdjust({100, 100}, {300, 250});
    EXPECT_TRUE(results.empty());
    EXPECT_EQ(selection().handleRects().size(), 8u);
    // The bottom handle makes it taller; an arrow moves it a pixel.
    moveTo({200, 250});
    press();
    moveTo({200, 270});
    xdotool({QStringLiteral("mouseup"), QStringLiteral("1")});
    key(QStringLiteral("Right"));
    const QRectF adjusted(100 + px, 100, 200, 170);
    ASSERT_TRUE(waitUntil(
        [&] { return !selection().isPressed() && near(area().topLeft(), adjusted.topLeft()); }));
    EXPECT_TRUE(results.empty());
    key(QStringLiteral("Return"));
    ASSERT_TRUE(waitUntil([&] { return !results.empty(); }));
    ASSERT_TRUE(results[0]);
    const QRectF answered = std::get<QRectF>(*results[0]).translated(-origin);
    EXPECT_TRUE(near(answered.topLeft(), adjusted.topLeft()) &&
                near(answered.bottomRight(), adjusted.bottomRight()));
    EXPECT_FALSE(controller.isActive());

    // A double click inside the area takes it too.
    results.clear();
    begin();
    dragToAdjust({100, 100}, {300, 250});
    moveTo({200, 200});
    xdotool({QStringLiteral("click"), QStringLiteral("--repeat"), QStringLiteral("2"),
             QStringLiteral("--delay"), QStringLiteral("80"), QStringLiteral("1")});
    ASSERT_TRUE(waitUntil([&] { return !results.empty(); }));
    ASSERT_TRUE(results[0]);
    EXPECT_EQ(std::get<QRectF>(*results[0]), QRectF(origin + QPointF(100, 100), QSizeF(200, 150)));
}

TEST_F(SelectionOverlayTest, WindowLabelShowsTheTitleClearOfTheLoupe) {
    const QString title = QStringLiteral("Inbox — Mail");
    begin({CapturedWindow{QRectF(origin + QPointF(100, 100), QSizeF(400, 300)),
                          QStringLiteral("Thunderbird"), 5u, title}});
    // The window's middle: a label centred there would sit under the loupe.
    moveTo({300, 250});
    ASSERT_TRUE(selection().hoveredWindow());
    EXPECT_EQ(selection().windowLabel(*selection().hoveredWindow()),
              QStringLiteral("Capture \u201C") + title + QStringLiteral("\u201D"));
    const QRectF label = view()->painter().windowLabelRect();
    ASSERT_FALSE(label.isEmpty());
    EXPECT_FALSE(label.intersects(selection().loupeZone()));

    // The screen shows the pill there, in the accent colour.
    const QColor accent = QApplication::palette().color(QPalette::Highlight);
    const double scale = screen->devicePixelRatio();
    const QPointF inPill = label.topLeft() - origin + QPointF(5, label.height() / 2);
    QColor shown;
    EXPECT_TRUE(waitUntil([&] {
        QApplication::processEvents();
        shown = screen->grabWindow(0).toImage().pixelColor((inPill * scale).toPoint());
        return std::abs(shown.red() - accent.red()) < 24 &&
               std::abs(shown.green() - accent.green()) < 24 &&
               std::abs(shown.blue() - accent.blue()) < 24;
    })) << shown.name().toStdString()
        << " where the label should be, accent " << accent.name().toStdString();
}

TEST_F(SelectionOverlayTest, ASelectionRunsFromOneMonitorOntoTheNext) {
    const auto screens = QGuiApplication::screens();
    if (screens.size() < 2)
        GTEST_SKIP() << "needs two monitors";
    QScreen* left = screens.at(0);
    QScreen* right = screens.at(1);
    FrozenDesktop desktop;
    for (QScreen* each : screens)
        desktop.displays.push_back(syntheticCapture(each));
    controller.begin(desktop, QStringLiteral("Capture"),
                     [this](std::optional<SelectionResult> result) { results.push_back(result); });
    ASSERT_TRUE(waitUntil([&] { return view() && view()->hasInputGrab(); }));
    ASSERT_EQ(controller.views().size(), std::size_t(screens.size()));

    const QPointF start(left->geometry().x() + left->geometry().width() - 120, 300);
    const QPointF end = QPointF(right->geometry().topLeft()) + QPointF(80, 400);
    moveOn(left, start);
    press();
    moveOn(right, end);
    const QRectF dragged(start, end);
    EXPECT_EQ(selection().currentRect(), dragged);

    // Where the test expects each monitor's pixels of the area, in desktop pixels.
    struct Piece {
        QScreen* screen;
        QRect pixels;
    };
    std::vector<Piece> pieces;
    QRect bounds;
    for (QScreen* each : screens) {
        const QRectF part = dragged & QRectF(each->geometry());
        if (part.isEmpty())
            continue;
        const QRect pixels(toDevice(each, part.topLeft()),
                           toDevice(each, part.bottomRight()) - QPoint(1, 1));
        pieces.push_back({each, pixels});
        bounds |= pixels;
    }
    ASSERT_EQ(pieces.size(), 2u);
    EXPECT_EQ(selection().sizeReadout(),
              QStringLiteral("%1 × %2").arg(bounds.width()).arg(bounds.height()));

    // Both monitors show their part of the area undimmed.
    for (const Piece& piece : pieces) {
        SCOPED_TRACE(piece.screen->name().toStdString());
        const QPoint inside =
            piece.pixels.center() - toDevice(piece.screen, piece.screen->geometry().topLeft());
        EXPECT_TRUE(waitUntil([&] {
            QApplication::processEvents();
            return piece.screen->grabWindow(0).toImage().pixelColor(inside) ==
                   syntheticColor(inside.x(), inside.y());
        }));
    }

    release();
    ASSERT_EQ(results.size(), 1u);
    ASSERT_TRUE(results[0]);
    EXPECT_EQ(std::get<QRectF>(*results[0]), dragged);
    // The picture holds exactly those pixels, each from its own monitor; between them, where
    // no monitor is, it is transparent.
    const auto image = cropDesktop(desktop, dragged);
    ASSERT_TRUE(image);
    ASSERT_EQ(image->size(), bounds.size());
    int wrong = 0;
    for (int y = 0; y < image->height(); ++y)
        for (int x = 0; x < image->width(); ++x) {
            const QPoint onDesktop = bounds.topLeft() + QPoint(x, y);
            const auto piece = std::find_if(pieces.begin(), pieces.end(), [&](const Piece& p) {
                return p.pixels.contains(onDesktop);
            });
            const QColor pixel = image->pixelColor(x, y);
            if (piece == pieces.end()) {
                wrong += pixel.alpha() != 0;
                continue;
            }
            const QPoint local =
                onDesktop - toDevice(piece->screen, piece->screen->geometry().topLeft());
            wrong += pixel != syntheticColor(local.x(), local.y());
        }
    EXPECT_EQ(wrong, 0);
}

} // namespace

namespace {

TEST_F(SelectionOverlayTest, HintShowsForTheFirstSelectionsThenWhileAKeyIsHeld) {
    begin(); // a fresh controller: the user's first selection
    ASSERT_TRUE(selection().hint());
    const QRectF hint = view()->painter().hintRect();
    const QRectF screenRect = screen->geometry();
    EXPECT_TRUE(screenRect.contains(hint));
    EXPECT_GT(hint.top(), screenRect.center().y()); // along the bottom
    controller.cancel();

    results.clear();
    controller.setSelectionsShown(SelectionOverlayController::pinnedHintSelections);
    begin();
    EXPECT_FALSE(selection().hint());
    keyDown(QStringLiteral("space"));
    EXPECT_TRUE(waitUntil([&] { return selection().hint().has_value(); }));
    keyUp(QStringLiteral("space"));
    EXPECT_TRUE(waitUntil([&] { return !selection().hint().has_value(); }));
}

} // namespace
