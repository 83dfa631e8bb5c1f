#include "editor/model/Annotation.h"

#include <gtest/gtest.h>

using namespace qm;

namespace {

Annotation make(Annotation::Shape shape) {
    return Annotation(std::move(shape), Qt::red);
}

} // namespace

TEST(AnnotationTest, BoundsGrowThinMarksAndKeepBoxedOnes) {
    // A click without drag still has a hittable box.
    EXPECT_EQ(make(Annotation::Arrow{{10, 10}, {10, 10}}).bounds(), QRectF(-2, -2, 24, 24));
    // Direction does not matter: the box spans both points.
    EXPECT_EQ(make(Annotation::Line{{100, 50}, {20, 80}}).bounds(), QRectF(8, 38, 104, 54));
    EXPECT_EQ(make(Annotation::Pen{{{5, 5}}}).bounds(), QRectF(-3, -3, 16, 16));
    EXPECT_EQ(make(Annotation::Highlight{}).bounds(), QRectF(0, 0, 0, 0));
    EXPECT_EQ(make(Annotation::Highlight{{{30, 40}, {10, 90}, {50, 60}}}).bounds(),
              QRectF(2, 32, 56, 66));
    EXPECT_EQ(make(Annotation::Step{{100, 100}, 3, 22}).bounds(), QRectF(78, 78, 44, 44));
    EXPECT_EQ(make(Annotation::Pixelate{{1, 2, 3, 4}}).bounds(), QRectF(1, 2, 3, 4));
    EXPECT_EQ(make(Annotation::Text{{5, 6, 200, 40}, QStringLiteral("hi"), 30}).bounds(),
              QRectF(5, 6, 200, 40));
}

TEST(AnnotationTest, TranslateMovesEveryCoordinateAndNothingElse) {
    Annotation text = make(Annotation::Text{{5, 6, 200, 40}, QStringLiteral("hi"), 30});
    text.translate({10, -5});
    EXPECT_EQ(text.as<Annotation::Text>()->frame, QRectF(15, 1, 200, 40));
    EXPECT_EQ(text.as<Annotation::Text>()->fontSize, 30);

    Annotation arrow = make(Annotation::Arrow{{0, 0}, {50, 20}});
    arrow.lineWidth = 6;
    arrow.translate({1, 2});
    EXPECT_EQ(arrow.as<Annotation::Arrow>()->start, QPointF(1, 2));
    EXPECT_EQ(arrow.as<Annotation::Arrow>()->end, QPointF(51, 22));
    EXPECT_EQ(arrow.lineWidth, 6);

    Annotation pen = make(Annotation::Pen{{{0, 0}, {3, 4}}});
    const Annotation before = pen; // snapshots share the points until written
    pen.translate({1, 1});
    EXPECT_EQ(pen.as<Annotation::Pen>()->points, (QList<QPointF>{{1, 1}, {4, 5}}));
    EXPECT_EQ(before.as<Annotation::Pen>()->points, (QList<QPointF>{{0, 0}, {3, 4}}));
    EXPECT_EQ(pen.id(), before.id());

    Annotation step = make(Annotation::Step{{10, 10}, 4, 22});
    step.translate({5, 5});
    EXPECT_EQ(step.as<Annotation::Step>()->center, QPointF(15, 15));
    EXPECT_EQ(step.as<Annotation::Step>()->number, 4);
    EXPECT_EQ(step.as<Annotation::Step>()->radius, 22);
}

TEST(AnnotationTest, ToolsByKeyAndByShape) {
    EXPECT_EQ(toolForKey(u"r"), AnnotationTool::Rectangle);
    EXPECT_EQ(toolForKey(u"b"), AnnotationTool::Pixelate);
    EXPECT_EQ(toolForKey(u"x"), std::nullopt);
    EXPECT_EQ(toolFromId(u"highlighter"), AnnotationTool::Highlighter);
    EXPECT_EQ(toolFromId(u"highlight"), std::nullopt);
    // Shapes name their maker, with the deliberate name mismatches.
    EXPECT_EQ(make(Annotation::Highlight{}).tool(), AnnotationTool::Highlighter);
    EXPECT_EQ(make(Annotation::Pixelate{}).tool(), AnnotationTool::Pixelate);
}

TEST(AnnotationTest, HexColoursRoundTripAndRejectMalformedText) {
    const auto orange = colorFromHexRGB(QStringLiteral("  #ff8800 \n"));
    ASSERT_TRUE(orange);
    EXPECT_EQ(*orange, QColor(255, 136, 0));
    EXPECT_EQ(hexRGB(*orange), QStringLiteral("#FF8800"));
    EXPECT_EQ(colorFromHexRGB(QStringLiteral("FF8800")), QColor(255, 136, 0));
    for (const char* bad : {"#FFF", "#FF880000", "GG0000", "##FF8800", "", "#", "#FF 800"})
        EXPECT_FALSE(colorFromHexRGB(QLatin1String(bad))) << bad;
    // Alpha is dropped; non-RGB colours are converted first.
    EXPECT_EQ(hexRGB(QColor(0, 0, 255, 10)), QStringLiteral("#0000FF"));
    EXPECT_EQ(hexRGB(QColor::fromHsv(0, 255, 255)), QStringLiteral("#FF0000"));
}

TEST(AnnotationTest, ContrastingTextColourSwitchesAboveSixTenths) {
    EXPECT_EQ(Annotation::contrastingTextColor(QColor(255, 255, 0)), QColor(Qt::black));
    EXPECT_EQ(Annotation::contrastingTextColor(QColor(255, 0, 0)), QColor(Qt::white));
    EXPECT_EQ(Annotation::contrastingTextColor(QColor::fromRgbF(0.6f, 0.6f, 0.6f)),
              QColor(Qt::white));
    EXPECT_EQ(Annotation::contrastingTextColor(QColor::fromRgbF(0.61f, 0.61f, 0.61f)),
              QColor(Qt::black));
    EXPECT_EQ(Annotation::contrastingTextColor(QColor(10, 20, 120)), QColor(Qt::white));
}

TEST(AnnotationTest, UnknownBackdropFallsBackToIndigo) {
    ASSERT_EQ(BackgroundPreset::all().size(), 8);
    EXPECT_EQ(BackgroundPreset::colorsFor(QStringLiteral("nope")),
              BackgroundPreset::colorsFor(QStringLiteral("indigo")));
    EXPECT_EQ(hexRGB(BackgroundPreset::colorsFor(QStringLiteral("slate")).last()),
              QStringLiteral("#0B1120"));
}
