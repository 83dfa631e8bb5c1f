#include "capture/core/SelectionModel.h"

#include "capture/core/FrozenDesktop.h"

#include <gtest/gtest.h>

namespace qm {
namespace {

QRgb positionColor(int x, int y) {
    return qRgb(x & 0xff, y & 0xff, (x >> 8) << 4 | (y >> 8));
}

// A frozen screen at `origin` whose every pixel's colour encodes its position.
DisplayCapture frozen(double scale, QPointF origin = {}, QSizeF size = {800, 600}) {
    DisplayCapture capture;
    capture.geometry = QRectF(origin, size);
    capture.scale = scale;
    capture.pixelOrigin = origin.toPoint();
    QImage image(QSize(int(size.width() * scale), int(size.height() * scale)),
                 QImage::Format_RGB32);
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            image.setPixel(x, y, positionColor(x, y));
    image.setDevicePixelRatio(scale);
    capture.image = image;
    return capture;
}

FrozenDesktop desktop(std::vector<DisplayCapture> displays, std::vector<CapturedWindow> windows) {
    FrozenDesktop result;
    result.displays = std::move(displays);
    result.windows = std::move(windows);
    return result;
}

// "Alpha" behind, an unnamed window in front overlapping its lower right; global points.
std::vector<CapturedWindow> twoWindows(QPointF origin) {
    return {CapturedWindow{QRectF(origin + QPointF(260, 160), QSizeF(200, 150)), std::nullopt, 42u},
            CapturedWindow{QRectF(origin + QPointF(60, 60), QSizeF(300, 200)),
                           QStringLiteral("Alpha"), 41u}};
}

// A second monitor: everything the model reports is in global points.
const QPointF kOrigin(1920, 0);

TEST(SelectionModel, ADragPastTheThresholdIsARegionInGlobalPoints) {
    SelectionModel selection(frozen(1.5, kOrigin), {});
    selection.press(kOrigin + QPointF(200, 200));
    selection.move(kOrigin + QPointF(203, 204)); // exactly the threshold: still a click
    EXPECT_FALSE(selection.isDragging());
    EXPECT_FALSE(selection.sizeReadout());
    selection.move(kOrigin + QPointF(100, 150)); // up and left: still from its top-left
    EXPECT_TRUE(selection.isDragging());
    // 150 × 75 pixels at 1.5×, though 100 × 50 points may not be exact in binary.
    EXPECT_EQ(selection.sizeReadout(), QStringLiteral("150 × 75"));
    const auto result = selection.release(kOrigin + QPointF(100.0 + 1 / 3.0, 150));
    ASSERT_TRUE(result);
    EXPECT_EQ(std::get<QRectF>(*result),
              QRectF(kOrigin + QPointF(100.0 + 1 / 3.0, 150), kOrigin + QPointF(200, 200)));
    EXPECT_FALSE(selection.isPressed());
    EXPECT_FALSE(selection.isDragging());
}

TEST(SelectionModel, ClicksAndThinDragsPickTheFrontMostWindowOrNothing) {
    SelectionModel selection(desktop({frozen(1.0, kOrigin)}, twoWindows(kOrigin)),
                             QStringLiteral("Record"));
    selection.move(kOrigin + QPointF(100, 100));
    ASSERT_TRUE(selection.hoveredWindow());
    EXPECT_EQ(selection.windowLabel(*selection.hoveredWindow()),
              QStringLiteral("Record Alpha Window"));
    selection.move(kOrigin + QPointF(300, 200)); // where the two overlap: the front one
    ASSERT_TRUE(selection.hoveredWindow());
    EXPECT_EQ(selection.hoveredWindow()->windowId, 42u);
    EXPECT_EQ(selection.windowLabel(*selection.hoveredWindow()), QStringLiteral("Record Window"));

    // A drag too thin to be a region picks the window it started on.
    selection.press(kOrigin + QPointF(100, 100));
    selection.move(kOrigin + QPointF(103, 140));
    EXPECT_TRUE(selection.isDragging());
    auto result = selection.release(kOrigin + QPointF(103, 140));
    ASSERT_TRUE(result);
    EXPECT_EQ(std::get<CapturedWindow>(*result), twoWindows(kOrigin)[1]);

    // On the bare desktop the same gesture, and a click, answer nothing.
    selection.press(kOrigin + QPointF(600, 450));
    EXPECT_FALSE(selection.release(kOrigin + QPointF(603, 490)));
    selection.press(kOrigin + QPointF(600, 450));
    EXPECT_FALSE(selection.release(kOrigin + QPointF(600, 450)));
    // A release without a press is no selection either.
    EXPECT_FALSE(selection.release(kOrigin + QPointF(300, 200)));
}

TEST(SelectionModel, LoupeStaysInsideThePointersScreenAndReadsItsPixel) {
    // Two monitors side by side, the right one at 1.5×.
    SelectionModel selection(desktop({frozen(1.0), frozen(1.5, {800, 0})}, {}), {});
    selection.move({20, 300});
    EXPECT_EQ(selection.pointerDisplay(), 0);
    EXPECT_EQ(selection.loupeRect(), QRectF(QPointF(110 - 66, 300 - 66), QSizeF(132, 132)));
    selection.move({795, 598}); // the left screen's corner, next to the right screen
    EXPECT_EQ(selection.loupeRect().center(), QPointF(800 - 110, 600 - 110));
    selection.move({805, 10}); // just onto the right screen: the loupe moves over with it
    EXPECT_EQ(selection.pointerDisplay(), 1);
    EXPECT_EQ(selection.loupeRect().center(), QPointF(800 + 110, 110));

    // At 1.5× a third of a point is a pixel of its own.
    selection.move({900.0 + 2 / 3.0, 10});
    EXPECT_EQ(selection.pixelUnderPointer(), QPoint(151, 15));
    // The last column and row are still read; beyond them the pixel is clamped.
    selection.move({1600, 600});
    EXPECT_EQ(selection.pixelUnderPointer(), QPoint(1199, 899));
    EXPECT_EQ(selection.colorReadout(), QStringLiteral("#AF8343 · 1199, 899"));

    SelectionModel empty(DisplayCapture{}, {});
    EXPECT_TRUE(empty.loupeRect().isEmpty());
}

TEST(SelectionModel, SpaceMovesTheAreaShiftSquaresItArrowsLandOnExactPixels) {
    SelectionModel selection(frozen(1.5), {});
    selection.press({100, 100});
    selection.move({200, 160});
    EXPECT_EQ(selection.currentRect(), QRectF(100, 100, 100, 60));

    // Space held: the area travels with the pointer, its size kept.
    selection.setMoving(true);
    selection.move({250, 200});
    EXPECT_EQ(selection.currentRect(), QRectF(150, 140, 100, 60));
    selection.setMoving(false);
    selection.move({270, 230}); // resizing again, from where the move left the corner
    EXPECT_EQ(selection.currentRect(), QRectF(150, 140, 120, 90));

    // Shift: a square on the longer side, towards the pointer, also dragged up and left.
    selection.setSquare(true);
    EXPECT_EQ(selection.currentRect(), QRectF(150, 140, 120, 120));
    selection.move({100, 130});
    EXPECT_EQ(selection.currentRect(), QRectF(100, 90, 50, 50));
    selection.setSquare(false);
    EXPECT_EQ(selection.currentRect(), QRectF(100, 130, 50, 10));

    // An arrow moves the pointer one pixel of this 1.5× screen, and the drag with it.
    selection.move({200, 200});
    for (int i = 0; i < 3; ++i)
        selection.nudge({1, 0});
    selection.nudge({0, -10});
    EXPECT_EQ(selection.mousePoint(), QPointF(202, 200 - 10 / 1.5));
    EXPECT_EQ(selection.sizeReadout(), QStringLiteral("78 × 80")); // 52 × 53⅓ points
    const auto result = selection.release(selection.mousePoint());
    ASSERT_TRUE(result);
    EXPECT_EQ(std::get<QRectF>(*result).bottomRight(), QPointF(202, 200 - 10 / 1.5));

    // Before a drag an arrow only moves the pointer, which stops on the screen's last pixel.
    selection.move({799, 10});
    selection.nudge({10, 0});
    EXPECT_EQ(selection.mousePoint(), QPointF(800 - 1 / 1.5, 10));
    EXPECT_FALSE(selection.isPressed());
}

TEST(SelectionModel, AdjustedAreaKeepsItsHandlesUntilConfirmed) {
    SelectionModel selection(desktop({frozen(1.0)}, twoWindows({})), {}, true);
    selection.press({100, 100});
    selection.move({300, 250});
    EXPECT_FALSE(selection.release({300, 250})); // kept, not answered
    ASSERT_TRUE(selection.isAdjusting());
    EXPECT_FALSE(selection.hoveredWindow()); // no window highlight over a kept area
    ASSERT_EQ(selection.handleRects().size(), 8u);
    EXPECT_EQ(selection.handleRects()[4].center(), QPointF(300, 250));
    EXPECT_EQ(selection.sizeReadout(), QStringLiteral("200 × 150"));

    // The bottom-right handle resizes; an edge dragged past its opposite turns the area over.
    EXPECT_EQ(selection.handleAt({303, 247}), SelectionModel::Handle::BottomRight);
    selection.press({303, 247});
    selection.move({323, 267});
    EXPECT_FALSE(selection.release({323, 267}));
    EXPECT_EQ(selection.currentRect(), QRectF(100, 100, 220, 170));
    EXPECT_EQ(selection.handleAt({100, 185}), SelectionModel::Handle::Left);
    selection.press({100, 185});
    EXPECT_FALSE(selection.release({350, 185}));
    EXPECT_EQ(selection.currentRect(), QRectF(320, 100, 30, 170));

    // Inside moves it; arrows move it a pixel, or ten.
    selection.press({330, 150});
    selection.move({230, 160});
    selection.release({230, 160});
    EXPECT_EQ(selection.currentRect(), QRectF(220, 110, 30, 170));
    selection.nudge({1, 0});
    selection.nudge({0, 10});
    EXPECT_EQ(selection.currentRect(), QRectF(221, 120, 30, 170));

    // A click beside it keeps it; a new drag there replaces it.
    selection.press({600, 500});
    EXPECT_FALSE(selection.release({602, 501}));
    EXPECT_EQ(selection.currentRect(), QRectF(221, 120, 30, 170));
    selection.press({500, 400});
    selection.release({540, 450});
    EXPECT_EQ(selection.currentRect(), QRectF(500, 400, 40, 50));

    const auto confirmed = selection.confirm();
    ASSERT_TRUE(confirmed);
    EXPECT_EQ(std::get<QRectF>(*confirmed), QRectF(500, 400, 40, 50));
    // Without the setting nothing waits for a confirmation.
    SelectionModel plain(frozen(1.0), {});
    EXPECT_FALSE(plain.confirm());
}

TEST(SelectionModel, WindowLabelNamesTheTitleAndStaysClearOfTheLoupe) {
    CapturedWindow mail{QRectF(100, 100, 400, 300), QStringLiteral("Thunderbird"), 7u,
                        QStringLiteral("Inbox — Mail")};
    SelectionModel selection(desktop({frozen(1.0)}, {mail}), {});
    EXPECT_EQ(selection.windowLabel(mail), QStringLiteral("Capture \u201CInbox — Mail\u201D"));
    mail.title = QString(100, QLatin1Char('x'));
    EXPECT_EQ(selection.windowLabel(mail).size(),
              QStringLiteral("Capture \u201C\u201D").size() + 60);
    mail.title.reset();
    EXPECT_EQ(selection.windowLabel(mail), QStringLiteral("Capture Thunderbird Window"));

    // Wherever the pointer is over the window, the label is on the screen and not under the
    // loupe or its readouts.
    const QSizeF label(180, 24);
    for (double x = 100; x < 500; x += 20)
        for (double y = 100; y < 400; y += 20) {
            selection.move({x, y});
            const QRectF placed = selection.windowLabelRect(mail, label);
            EXPECT_FALSE(placed.intersects(selection.loupeZone())) << x << "," << y;
            EXPECT_TRUE(QRectF(0, 0, 800, 600).contains(placed)) << x << "," << y;
        }
    // Far from the loupe it sits in the middle of the window, as before.
    selection.move({120, 390});
    EXPECT_EQ(selection.windowLabelRect(mail, label).center(), QPointF(300, 250));
}

TEST(SelectionModel, HintShowsAtFirstThenOnlyWhileAKeyIsHeld) {
    SelectionModel selection(frozen(1.0), {}, true);
    EXPECT_FALSE(selection.hint());
    selection.setHintKeyHeld(true);
    ASSERT_TRUE(selection.hint());
    EXPECT_TRUE(selection.hint()->contains(QStringLiteral("Space")));
    selection.setHintKeyHeld(false);
    selection.setHintPinned(true);
    selection.press({10, 10});
    selection.release({100, 100});
    ASSERT_TRUE(selection.hint()); // while adjusting it explains confirming instead
    EXPECT_TRUE(selection.hint()->contains(QStringLiteral("Enter")));
}

} // namespace
} // namespace qm
