#include "capture/core/CaptureGeometry.h"

#include <gtest/gtest.h>

namespace qm {
namespace {

using platform::ServerWindow;

ServerWindow window(std::uint32_t id, QRect bounds) {
    ServerWindow w;
    w.id = id;
    w.clientId = id + 1;
    w.layer = 0;
    w.pid = 100 + id;
    w.bounds = bounds;
    w.ownerName = QStringLiteral("App %1").arg(id);
    return w;
}

std::vector<std::uint32_t> ids(const std::vector<CapturedWindow>& windows) {
    std::vector<std::uint32_t> result;
    for (const auto& w : windows)
        result.push_back(w.windowId.value_or(0));
    return result;
}

TEST(CaptureGeometry, OffersOrdinaryVisibleForeignWindowsLargerThan40Points) {
    std::vector<ServerWindow> list;
    list.push_back(window(1, QRect(0, 0, 41, 41)));
    list.push_back(window(2, QRect(0, 0, 40, 200))); // too narrow
    list.push_back(window(3, QRect(0, 0, 200, 40))); // too low
    auto dock = window(4, QRect(0, 0, 300, 300));
    dock.layer = 20;
    list.push_back(dock);
    auto noLayer = window(5, QRect(0, 0, 300, 300));
    noLayer.layer.reset();
    list.push_back(noLayer);
    auto faint = window(6, QRect(0, 0, 300, 300));
    faint.alpha = 0.05;
    list.push_back(faint);
    auto barelyVisible = window(7, QRect(0, 0, 300, 300));
    barelyVisible.alpha = 0.06;
    list.push_back(barelyVisible);
    auto ours = window(8, QRect(0, 0, 300, 300));
    ours.pid = 42;
    list.push_back(ours);
    auto noBounds = window(9, QRect());
    noBounds.bounds.reset();
    list.push_back(noBounds);
    auto anonymous = window(10, QRect(0, 0, 300, 300));
    anonymous.pid.reset();
    list.push_back(anonymous);
    list.push_back(window(11, QRect(0, 0, 300, 300))); // not capturable on its own

    const platform::ShareableContent content{{}, {1, 7, 10, 2}};
    const auto offered = onScreenWindows(list, 42, content, PixelMapping{{}, {}, 1.0});
    EXPECT_EQ(ids(offered), (std::vector<std::uint32_t>{1, 7, 10, 0}));
    EXPECT_EQ(offered.front().appName, QStringLiteral("App 1"));

    // At scale 2 the 40-point limit is 80 pixels.
    const auto hidpi =
        onScreenWindows({window(1, QRect(0, 0, 80, 500)), window(2, QRect(0, 0, 82, 82))}, 42,
                        content, PixelMapping{{}, {}, 2.0});
    EXPECT_EQ(ids(hidpi), (std::vector<std::uint32_t>{2}));
}

TEST(CaptureGeometry, DisplayIsMatchedByNameElseTheFirst) {
    const platform::ShareableContent content{{{QStringLiteral("qm0"), QRect(0, 0, 1920, 1080)},
                                              {QStringLiteral("qm1"), QRect(1920, 0, 1280, 1024)}},
                                             {}};
    EXPECT_EQ(displayFor(QStringLiteral("qm1"), content)->pixelGeometry.x(), 1920);
    EXPECT_EQ(displayFor(QStringLiteral("HDMI-9"), content)->name, QStringLiteral("qm0"));
    EXPECT_FALSE(displayFor(QStringLiteral("qm0"), platform::ShareableContent{}));
}

TEST(CaptureGeometry, CropRoundsOutwardsToWholePixelsAndClips) {
    const QRectF screen(100, 50, 1280, 720); // 1920 × 1080 pixels at 1.5
    const QSize pixels(1920, 1080);
    auto crop = [&](QRectF r, double scale = 1.5) { return cropPixels(screen, scale, pixels, r); };

    // Whole pixels stay exactly as they are, even where points × 1.5 is a hair off.
    EXPECT_EQ(crop(QRectF(100 + 10.0 / 1.5 * 3, 50 + 2, 0.1 * 30, 0.7 * 3)), QRect(30, 3, 5, 4));
    EXPECT_EQ(crop(QRectF(100 + 1, 50 + 1, 1, 1)), QRect(1, 1, 2, 2)); // 1.5…3 → 1…3
    EXPECT_EQ(crop(QRectF(100, 50, 1280, 720)), QRect(0, 0, 1920, 1080));
    EXPECT_EQ(crop(QRectF(110, 60, 2, 2), 2.0), QRect(20, 20, 4, 4));
    // Partly outside: clipped to the picture.
    EXPECT_EQ(crop(QRectF(0, 0, 110, 60)), QRect(0, 0, 15, 15));
    EXPECT_EQ(crop(QRectF(1300, 700, 500, 500)), QRect(1800, 975, 120, 105));
    // Wholly outside, or nothing left: no crop.
    EXPECT_FALSE(crop(QRectF(1380, 50, 50, 50)));
    EXPECT_FALSE(crop(QRectF(0, 0, 100, 50)));
    EXPECT_FALSE(crop(QRectF(200, 200, 0, 10)));
}

} // namespace
} // namespace qm
