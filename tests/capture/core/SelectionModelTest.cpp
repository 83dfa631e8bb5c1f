#include "capture/core/SelectionModel.h"

#include <gtest/gtest.h>

namespace qm {
namespace {

// A frozen screen at `origin` whose every pixel's colour encodes its position.
DisplayCapture frozen(double scale, QPointF origin = {}, std::vector<CapturedWindow> windows = {}) {
    DisplayCapture capture;
    capture.geometry = QRectF(origin, QSizeF(800, 600));
    capture.scale = scale;
    QImage image(QSize(int(800 * scale), int(600 * scale)), QImage::Format_RGB32);
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            image.setPixel(x, y, qRgb(x & 0xff, y & 0xff, (x >> 8) << 4 | (y >> 8)));
    image.setDevicePixelRatio(scale);
    capture.image = image;
    capture.windows = std::move(windows);
    return capture;
}

// "Alpha" behind, an unnamed window in front overlapping its lower right; global points.
std::vector<CapturedWindow> twoWindows(QPointF origin) {
    return {CapturedWindow{QRectF(origin + QPointF(260, 160), QSizeF(200, 150)), std::nullopt, 42u},
            CapturedWindow{QRectF(origin + QPointF(60, 60), QSizeF(300, 200)),
                           QStringLiteral("Alpha"), 41u}};
}

TEST(SelectionModel, ADragPastTheThresholdIsARegionInGlobalPoints) {
    const QPointF origin(1920, 0); // a second monitor: results are global, the view is local
    SelectionModel selection(frozen(1.5, origin), {});
    selection.press({200, 200});
    selection.move({203, 204}); // exactly the threshold: still a click
    EXPECT_FALSE(selection.isDragging());
    EXPECT_FALSE(selection.sizeReadout());
    selection.move({100, 150}); // up and left: the rectangle still starts at its top-left
    EXPECT_TRUE(selection.isDragging());
    // 150 × 75 pixels at 1.5×, though 100 × 50 points may not be exact in binary.
    EXPECT_EQ(selection.sizeReadout(), QStringLiteral("150 × 75"));
    const auto result = selection.release({100.0 + 1 / 3.0, 150});
    ASSERT_TRUE(result);
    EXPECT_EQ(std::get<QRectF>(*result),
              QRectF(origin + QPointF(100.0 + 1 / 3.0, 150), QPointF(origin + QPointF(200, 200))));
    EXPECT_FALSE(selection.isPressed());
    EXPECT_FALSE(selection.isDragging());
}

TEST(SelectionModel, ClicksAndThinDragsPickTheFrontMostWindowOrNothing) {
    const QPointF origin(1920, 0);
    SelectionModel selection(frozen(1.0, origin, twoWindows(origin)), QStringLiteral("Record"));
    selection.move({100, 100});
    ASSERT_TRUE(selection.hoveredWindow());
    EXPECT_EQ(selection.windowLabel(*selection.hoveredWindow()),
              QStringLiteral("Record Alpha Window"));
    selection.move({300, 200}); // where the two overlap: the front one
    ASSERT_TRUE(selection.hoveredWindow());
    EXPECT_EQ(selection.hoveredWindow()->windowId, 42u);
    EXPECT_EQ(selection.windowLabel(*selection.hoveredWindow()), QStringLiteral("Record Window"));

    // A drag too thin to be a region picks the window it started on.
    selection.press({100, 100});
    selection.move({103, 140});
    EXPECT_TRUE(selection.isDragging());
    auto result = selection.release({103, 140});
    ASSERT_TRUE(result);
    EXPECT_EQ(std::get<CapturedWindow>(*result), twoWindows(origin)[1]);

    // On the bare desktop the same gesture, and a click, answer nothing.
    selection.press({600, 450});
    EXPECT_FALSE(selection.release({603, 490}));
    selection.press({600, 450});
    EXPECT_FALSE(selection.release({600, 450}));
    // A release without a press is no selection either.
    EXPECT_FALSE(selection.release({300, 200}));
}

TEST(SelectionModel, LoupeStaysInsideTheViewAndReadsThePixelUnderThePointer) {
    SelectionModel selection(frozen(1.5), {});
    selection.move({20, 300});
    EXPECT_EQ(selection.loupeRect(), QRectF(QPointF(110 - 66, 300 - 66), QSizeF(132, 132)));
    selection.move({795, 598});
    EXPECT_EQ(selection.loupeRect().center(), QPointF(800 - 110, 600 - 110));

    // At 1.5× a third of a point is a pixel of its own.
    selection.move({100.0 + 2 / 3.0, 10});
    EXPECT_EQ(selection.pixelUnderPointer(), QPoint(151, 15));
    // The last column and row are still read; beyond them the pixel is clamped.
    selection.move({800, 600});
    EXPECT_EQ(selection.pixelUnderPointer(), QPoint(1199, 899));
    EXPECT_EQ(selection.colorReadout(), QStringLiteral("#AF8343 · 1199, 899"));

    SelectionModel empty(DisplayCapture{}, {});
    EXPECT_TRUE(empty.loupeRect().isEmpty());
}

} // namespace
} // namespace qm
