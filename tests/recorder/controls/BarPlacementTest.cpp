#include "recorder/controls/BarPlacement.h"

#include <gtest/gtest.h>

namespace {

using qm::BarPlacement;

const QSize bar(180, 44);
const QRect left(0, 0, 1920, 1080);      // primary
const QRect right(1920, 0, 1280, 1024);  // second monitor to its right
const QRect upper(200, -900, 1600, 900); // a monitor above the primary, not at x = 0

void expectOutside(const std::optional<QRect>& placed, const QRect& area) {
    ASSERT_TRUE(placed);
    EXPECT_FALSE(placed->intersects(area.adjusted(-2, -2, 2, 2)))
        << "bar " << placed->x() << "," << placed->y() << " covers the recorded area";
}

TEST(BarPlacement, CentredBelowTheAreaWhenThereIsRoom) {
    const QRect area(400, 300, 600, 400);
    const auto placed = BarPlacement::place(area, {left, right}, bar);
    expectOutside(placed, area);
    EXPECT_EQ(placed->center().x(), area.center().x());
    EXPECT_EQ(placed->top(), area.bottom() + 1 + BarPlacement::gap);
}

TEST(BarPlacement, AboveWhenTheAreaReachesTheBottom) {
    const QRect area(400, 300, 600, 770);
    const auto placed = BarPlacement::place(area, {left, right}, bar);
    expectOutside(placed, area);
    EXPECT_EQ(placed->bottom(), area.top() - 1 - BarPlacement::gap);
    EXPECT_TRUE(left.contains(*placed));
}

TEST(BarPlacement, StaysOnTheAreasScreenNearItsEdge) {
    // An area in the right monitor's corner: the centred bar would hang over the edge.
    const QRect area(3150, 100, 40, 40);
    const auto placed = BarPlacement::place(area, {left, right}, bar);
    expectOutside(placed, area);
    EXPECT_TRUE(right.contains(*placed));
    EXPECT_EQ(placed->right(), right.right());

    // Screens with negative coordinates: the upper monitor's visible frame.
    const QRect high(300, -850, 500, 300);
    const auto onUpper = BarPlacement::place(high, {left, upper}, bar);
    expectOutside(onUpper, high);
    EXPECT_TRUE(upper.contains(*onUpper));
}

TEST(BarPlacement, AnotherMonitorWhenTheAreaFillsItsScreen) {
    const auto placed = BarPlacement::place(left, {left, right}, bar);
    expectOutside(placed, left);
    EXPECT_TRUE(right.contains(*placed));
    EXPECT_EQ(placed->center().x(), right.center().x());
    EXPECT_EQ(placed->bottom(), right.bottom() - BarPlacement::bottomMargin);

    // An area across the seam of two monitors that are both nearly full: a third one takes it.
    const QRect seam(100, 10, 3000, 1040);
    const auto third = BarPlacement::place(seam, {left, right, upper}, bar);
    expectOutside(third, seam);
    EXPECT_TRUE(upper.contains(*third));
}

TEST(BarPlacement, NothingForAWholeSingleScreen) {
    EXPECT_FALSE(BarPlacement::place(left, {left}, bar));
    // A visible frame smaller than the screen (a panel at the top) changes nothing.
    EXPECT_FALSE(BarPlacement::place(left, {QRect(0, 28, 1920, 1052)}, bar));
    // Nor an area that leaves less than the bar's height free.
    EXPECT_FALSE(BarPlacement::place(QRect(0, 30, 1920, 1030), {left}, bar));
    EXPECT_FALSE(BarPlacement::place(QRect(), {left}, bar));
}

TEST(BarPlacement, NeverOverlapsAnyArea) {
    const std::vector<QRect> screens{left, right, upper};
    for (int x = -100; x < 3200; x += 170)
        for (int y = -900; y < 1080; y += 130)
            for (QSize size : {QSize(50, 50), QSize(900, 600), QSize(1900, 1000)}) {
                const QRect area(QPoint(x, y), size);
                if (const auto placed = BarPlacement::place(area, screens, bar)) {
                    EXPECT_FALSE(placed->intersects(area.adjusted(-2, -2, 2, 2)));
                    EXPECT_TRUE(std::any_of(screens.begin(), screens.end(),
                                            [&](const QRect& s) { return s.contains(*placed); }));
                }
            }
}

} // namespace
