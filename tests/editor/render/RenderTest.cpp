#include "base/SettingsStore.h"
#include "editor/model/EditorModel.h"
#include "editor/render/AnnotationRenderer.h"
#include "editor/render/Flatten.h"

#include <QPainter>
#include <QTemporaryDir>
#include <cmath>
#include <gtest/gtest.h>
#include <memory>

using namespace qm;

namespace {

class RenderTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(dir.isValid());
        store = std::make_unique<IniSettingsStore>(dir.filePath(QStringLiteral("q.conf")));
    }

    std::unique_ptr<EditorModel> model(const QImage& image) {
        return std::make_unique<EditorModel>(image, *store);
    }

    static QImage filled(int w, int h, QColor c) {
        QImage image(w, h, QImage::Format_RGB32);
        image.fill(c);
        return image;
    }

    QTemporaryDir dir;
    std::unique_ptr<IniSettingsStore> store;
};

double luminance(QRgb c) {
    return 0.299 * qRed(c) + 0.587 * qGreen(c) + 0.114 * qBlue(c);
}

int distance(QRgb a, QRgb b) {
    return std::abs(qRed(a) - qRed(b)) + std::abs(qGreen(a) - qGreen(b)) +
           std::abs(qBlue(a) - qBlue(b));
}

// Noise that a leaky "pixelation" could not hide: every pixel differs from its neighbours.
QImage noise(int w, int h) {
    QImage image(w, h, QImage::Format_RGB32);
    quint32 state = 12345;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            state = state * 1664525u + 1013904223u;
            image.setPixel(x, y, 0xFF000000u | (state >> 8));
        }
    return image;
}

void expectNear(QPointF a, QPointF b) {
    EXPECT_NEAR(a.x(), b.x(), 1e-9);
    EXPECT_NEAR(a.y(), b.y(), 1e-9);
}

} // namespace

TEST(ArrowPolygonTest, TaperedShaftAndCappedHead) {
    EXPECT_TRUE(AnnotationRenderer::arrowPolygon({0, 0}, {4, 0}, 4).isEmpty());
    EXPECT_TRUE(AnnotationRenderer::arrowPolygon({5, 5}, {5, 5}, 4).isEmpty());

    // Short arrow: the head takes 60 % of it.
    const auto shortArrow = AnnotationRenderer::arrowPolygon({0, 0}, {10, 0}, 4);
    ASSERT_EQ(shortArrow.size(), 7);
    const QList<QPointF> expected{{0, 0.88}, {4, 3.8},  {4, 8.8},  {10, 0},
                                  {4, -8.8}, {4, -3.8}, {0, -0.88}};
    for (int i = 0; i < 7; ++i)
        expectNear(shortArrow[i], expected[i]);

    // Width 1, pointing up (y down): minimum half-widths and head length apply.
    const auto thin = AnnotationRenderer::arrowPolygon({50, 100}, {50, 0}, 1);
    ASSERT_EQ(thin.size(), 7);
    expectNear(thin[0], {50 + 0.5, 100});
    expectNear(thin[1], {50 + 1, 10});
    expectNear(thin[2], {50 + 3, 10});
    expectNear(thin[3], {50, 0});
    expectNear(thin[6], {50 - 0.5, 100});

    // A diagonal arrow is symmetric about its axis.
    const auto diag = AnnotationRenderer::arrowPolygon({0, 0}, {30, 40}, 5);
    ASSERT_EQ(diag.size(), 7);
    for (int i = 0; i < 3; ++i) {
        const QPointF mid = (diag[i] + diag[6 - i]) / 2;
        EXPECT_NEAR(mid.x() * 40 - mid.y() * 30, 0, 1e-9); // on the axis
    }
}

TEST_F(RenderTest, PixelationRedactsOnOneGridAndLiesUnderLaterMarks) {
    const QImage base = noise(440, 220); // block size 8
    auto m = model(base);
    Annotation arrow(Annotation::Arrow{{20, 100}, {380, 100}}, QColor(0, 0, 255), 8);
    m->document().appendAnnotation(arrow);
    m->document().appendAnnotation(Annotation(Annotation::Pixelate{{0, 0, 200.5, 200}}, Qt::red));
    m->document().appendAnnotation(Annotation(Annotation::Pixelate{{196, 0, 204, 200}}, Qt::red));
    const QImage out = flatten(*m).convertToFormat(QImage::Format_RGB32);
    ASSERT_EQ(out.size(), base.size());

    EXPECT_EQ(out.pixel(200, 100), qRgb(0, 0, 255)); // the arrow is on top

    // Each 8×8 block inside the rects is one colour, the mean of the original block.
    for (int bx : {0, 3, 24}) {
        const int x0 = bx * 8, y0 = 16;
        quint64 r = 0, g = 0, b = 0;
        for (int y = y0; y < y0 + 8; ++y)
            for (int x = x0; x < x0 + 8; ++x) {
                const QRgb p = base.pixel(x, y);
                r += qRed(p), g += qGreen(p), b += qBlue(p);
                EXPECT_EQ(out.pixel(x, y), out.pixel(x0, y0));
            }
        EXPECT_LE(distance(out.pixel(x0, y0), qRgb(int(r / 64), int(g / 64), int(b / 64))), 3);
    }
    // The rects meet inside one block; both show the same block colour there.
    EXPECT_EQ(out.pixel(197, 40), out.pixel(199, 40));
    // The half pixel at the rect's edge is covered whole: no original pixel survives.
    EXPECT_NE(out.pixel(200, 40), base.pixel(200, 40));
    EXPECT_EQ(out.pixel(200, 40), out.pixel(201, 40));
    // Outside every rect the image is untouched.
    EXPECT_EQ(out.pixel(420, 40), base.pixel(420, 40));
    EXPECT_EQ(out.pixel(100, 210), base.pixel(100, 210));
}

TEST_F(RenderTest, HighlighterIsWideAndTranslucent) {
    QImage base = filled(200, 100, Qt::white);
    {
        QPainter p(&base);
        p.fillRect(QRect(100, 0, 100, 100), Qt::black); // "text" on the right half
    }
    auto m = model(base);
    m->document().appendAnnotation(
        Annotation(Annotation::Highlight{{{10, 50}, {190, 50}}}, QColor(255, 214, 10), 4));
    const QImage out = flatten(*m);
    // 3.5 × 4 = 14 pixels wide: ±6 is inside, ±9 is outside.
    const QRgb onWhite = out.pixel(50, 50);
    EXPECT_LE(distance(onWhite,
                       qRgb(255, qRound(255 * 0.58 + 214 * 0.42), qRound(255 * 0.58 + 10 * 0.42))),
              6);
    EXPECT_EQ(out.pixel(50, 56), onWhite);
    EXPECT_EQ(out.pixel(50, 59), qRgb(255, 255, 255));
    // Over black the mark is a dark yellow: what lies beneath still shows through.
    EXPECT_LE(distance(out.pixel(150, 50), qRgb(qRound(255 * 0.42), qRound(214 * 0.42), 4)), 6);

    // A stroke needs two points.
    auto dot = model(base);
    dot->document().appendAnnotation(Annotation(Annotation::Pen{{{50, 50}}}, Qt::red, 10));
    dot->document().appendAnnotation(Annotation(Annotation::Highlight{{{60, 50}}}, Qt::red, 10));
    EXPECT_EQ(flatten(*dot).convertToFormat(QImage::Format_RGB32), base);
}

TEST_F(RenderTest, ChipTextContrastsWithTheChip) {
    const auto darkestAndBrightest = [&](QColor chip) {
        auto m = model(filled(400, 200, QColor(128, 128, 128)));
        Annotation text(Annotation::Text{{40, 40, 300, 60}, QStringLiteral("Hello World"), 40},
                        chip, 4, true);
        m->document().appendAnnotation(text);
        const QImage out = flatten(*m);
        double lo = 255, hi = 0;
        for (int y = 40; y < 100; ++y)
            for (int x = 40; x < 340; ++x) {
                lo = std::min(lo, luminance(out.pixel(x, y)));
                hi = std::max(hi, luminance(out.pixel(x, y)));
            }
        // The chip reaches beyond the frame.
        EXPECT_EQ(out.pixel(35, 35), chip.rgb());
        return std::pair{lo, hi};
    };
    const auto [yellowLo, yellowHi] = darkestAndBrightest(QColor(255, 214, 10));
    EXPECT_LT(yellowLo, 40);                                // black glyphs
    EXPECT_LE(yellowHi, luminance(qRgb(255, 214, 10)) + 1); // nothing whiter than the chip
    const auto [blueLo, blueHi] = darkestAndBrightest(QColor(20, 30, 110));
    EXPECT_GT(blueHi, 215);                              // white glyphs
    EXPECT_GE(blueLo, luminance(qRgb(20, 30, 110)) - 1); // nothing darker than the chip
}

TEST_F(RenderTest, TextStaysOneLineUntilGivenAWidthThenWrapsByWordsAndGrowsDownwards) {
    Annotation::Text text{
        {10, 10, 160, 20}, QStringLiteral("several words that cannot fit on one line"), 30};
    QImage probe(10, 10, QImage::Format_ARGB32_Premultiplied);
    const QRectF line = AnnotationRenderer::textRect(text, &probe);
    EXPECT_EQ(line.topLeft(), QPointF(10, 10));
    EXPECT_GT(line.width(), 400); // as long as the words
    EXPECT_LT(line.height(), 2 * 30);

    text.wrapsAtWidth = true;
    const QRectF rect = AnnotationRenderer::textRect(text, &probe);
    EXPECT_EQ(rect.topLeft(), QPointF(10, 10));
    EXPECT_EQ(rect.width(), 160);
    EXPECT_GT(rect.height(), 3 * 30); // several lines

    auto m = model(filled(400, 400, Qt::white));
    m->document().appendAnnotation(Annotation(text, QColor(200, 0, 0)));
    const QImage out = flatten(*m);
    int redRows = 0, widest = 0;
    for (int y = 0; y < 400; ++y) {
        bool red = false;
        for (int x = 0; x < 400; ++x) {
            const QRgb p = out.pixel(x, y);
            if (qRed(p) > 150 && qGreen(p) < 80) {
                red = true;
                widest = std::max(widest, x);
            }
        }
        redRows += red;
    }
    EXPECT_GT(redRows, 60);      // glyphs on lines well below the frame's own height
    EXPECT_LT(widest, 10 + 175); // wrapped at the frame's width
}

TEST_F(RenderTest, StepBadgeAndStrokedShapes) {
    auto m = model(filled(300, 200, Qt::white));
    m->document().appendAnnotation(
        Annotation(Annotation::Step{{100, 100}, 7, 40}, QColor(0, 120, 0)));
    m->document().appendAnnotation(
        Annotation(Annotation::Rectangle{{200, 20, 80, 60}}, Qt::blue, 6));
    m->document().appendAnnotation(
        Annotation(Annotation::Line{{200, 150}, {290, 150}}, Qt::red, 6));
    const QImage out = flatten(*m);
    EXPECT_EQ(out.pixel(100 - 30, 100), qRgb(0, 120, 0));     // filled disc
    EXPECT_EQ(out.pixel(100 - 38, 100), qRgb(255, 255, 255)); // white ring
    EXPECT_EQ(out.pixel(100 - 45, 100), qRgb(255, 255, 255)); // outside
    int white = 0;
    for (int y = 85; y < 115; ++y)
        for (int x = 88; x < 112; ++x)
            white += luminance(out.pixel(x, y)) > 200;
    EXPECT_GT(white, 20); // the white numeral at the centre

    EXPECT_EQ(out.pixel(200, 50), qRgb(0, 0, 255));     // outline
    EXPECT_EQ(out.pixel(240, 50), qRgb(255, 255, 255)); // hollow
    EXPECT_EQ(out.pixel(200, 20), qRgb(0, 0, 255));     // mitred, not rounded, corner
    EXPECT_EQ(out.pixel(198, 18), qRgb(0, 0, 255));
    EXPECT_EQ(out.pixel(291, 150), qRgb(255, 0, 0)); // the round cap reaches past the end
}

TEST_F(RenderTest, CropCutsWholePixelsAndIgnoresDegenerateCrops) {
    QImage base = noise(300, 200);
    auto m = model(base);
    m->setTool(AnnotationTool::Crop);
    m->document().setCropEdit(QRectF(10.5, 20.5, 100, 50));
    m->commitCrop();
    QImage out = flatten(*m);
    ASSERT_EQ(out.size(), QSize(101, 51)); // rounded outwards
    EXPECT_EQ(out.pixel(0, 0), base.pixel(10, 20));
    EXPECT_EQ(out.pixel(100, 50), base.pixel(110, 70));

    m->setTool(AnnotationTool::Crop);
    m->document().setCropEdit(QRectF(0, 0, 300, 200));
    m->commitCrop();
    EXPECT_EQ(flatten(*m).size(), QSize(300, 200));
}

TEST_F(RenderTest, BackdropFramesTheImageWithGradientCornersAndShadow) {
    const QImage white = filled(1000, 600, Qt::white);
    BackgroundStyle style{QStringLiteral("slate"), 48, 18, true};
    const QImage withShadow = AnnotationRenderer::applyBackground(white, style);
    ASSERT_EQ(withShadow.size(), QSize(1096, 696));
    style.shadow = false;
    const QImage plain = AnnotationRenderer::applyBackground(white, style);

    // Gradient at −45°: the first colour at the top-left, the last at the bottom-right.
    const auto slate = BackgroundPreset::colorsFor(QStringLiteral("slate"));
    EXPECT_LE(distance(plain.pixel(0, 0), slate.first().rgb()), 6);
    EXPECT_LE(distance(plain.pixel(1095, 695), slate.last().rgb()), 6);
    // Lines of one colour run at 45° in pixels, whatever the aspect ratio.
    EXPECT_LE(distance(plain.pixel(600, 0), plain.pixel(0, 600)), 3);
    EXPECT_GT(distance(plain.pixel(1095, 0), plain.pixel(0, 695)), 12);

    // The image inside, the gradient behind its rounded corners.
    EXPECT_EQ(withShadow.pixel(548, 348), qRgb(255, 255, 255));
    EXPECT_EQ(withShadow.pixel(48, 348), qRgb(255, 255, 255));
    for (const QImage& img : {plain, withShadow})
        for (QPoint corner : {QPoint(49, 49), QPoint(1046, 49), QPoint(49, 646), QPoint(1046, 646)})
            EXPECT_LT(luminance(img.pixel(corner)), 120) << corner.x() << "," << corner.y();

    // The shadow falls downwards: it takes more light below the image than above it.
    // Measured on a light backdrop, where 8-bit rounding does not drown it.
    BackgroundStyle light{QStringLiteral("silver"), 48, 18, true};
    const QImage lightShadow = AnnotationRenderer::applyBackground(white, light);
    light.shadow = false;
    const QImage lightPlain = AnnotationRenderer::applyBackground(white, light);
    const auto darkening = [&](int x, int y) {
        return 1 - luminance(lightShadow.pixel(x, y)) / luminance(lightPlain.pixel(x, y));
    };
    const double below = darkening(548, 648 + 8), above = darkening(548, 48 - 8);
    EXPECT_GT(below, 0.05);
    EXPECT_GT(below, above + 0.03);
    EXPECT_LT(darkening(548, 2), 0.03); // and fades out within the padding

    // A translucent image (a window with see-through corners) takes the slow path: the
    // backdrop is painted beneath all of it, and the rounded corners still cut.
    QImage clear(1000, 600, QImage::Format_ARGB32_Premultiplied);
    clear.fill(Qt::transparent);
    const QRgb behind = AnnotationRenderer::applyBackground(clear, style).pixel(548, 348);
    clear.fill(QColor(255, 255, 255, 128));
    const QImage translucent = AnnotationRenderer::applyBackground(clear, style);
    ASSERT_EQ(translucent.size(), QSize(1096, 696));
    EXPECT_EQ(translucent.pixel(49, 49), plain.pixel(49, 49));
    EXPECT_LE(distance(translucent.pixel(548, 348),
                       qRgb((255 + qRed(behind)) / 2, (255 + qGreen(behind)) / 2,
                            (255 + qBlue(behind)) / 2)),
              6);

    // Square corners when the radius is 0.
    style.cornerRadius = 0;
    EXPECT_EQ(AnnotationRenderer::applyBackground(white, style).pixel(48, 48), qRgb(255, 255, 255));
}

TEST_F(RenderTest, FlattenAppliesCropThenBackdrop) {
    const QImage base = noise(300, 200);
    auto m = model(base);
    m->setTool(AnnotationTool::Crop);
    m->document().setCropEdit(QRectF(50, 50, 100, 100));
    m->commitCrop();
    m->backdrop().setBackground(BackgroundStyle{QStringLiteral("blue"), 20, 0, false});
    const QImage framed = flatten(*m);
    ASSERT_EQ(framed.size(), QSize(140, 140));
    for (QPoint p : {QPoint(0, 0), QPoint(99, 0), QPoint(37, 61), QPoint(99, 99)})
        EXPECT_EQ(framed.pixel(p + QPoint(20, 20)), base.pixel(p + QPoint(50, 50)));
    EXPECT_NE(framed.pixel(19, 19), base.pixel(49, 49));

    // A mark over the crop's corner stays on the image and is rounded off with it, on the
    // direct path (whole-pixel padding) and the general one (half-pixel padding) alike.
    m->document().appendAnnotation(
        Annotation(Annotation::Step{{50, 50}, 1, 30}, QColor(0, 255, 0)));
    for (double padding : {20.0, 20.5}) {
        m->backdrop().setBackground(BackgroundStyle{QStringLiteral("blue"), padding, 10, true});
        const QImage marked = flatten(*m);
        const int side = int(100 + 2 * padding);
        ASSERT_EQ(marked.size(), QSize(side, side));
        const int origin = int(std::ceil(padding));
        EXPECT_EQ(marked.pixel(origin + 16, origin + 3), qRgb(0, 255, 0)) << padding;
        EXPECT_LT(qGreen(marked.pixel(origin, origin)), 200) << padding; // rounded away
        EXPECT_LT(qGreen(marked.pixel(origin - 3, origin + 12)), 200) << padding;
        EXPECT_LT(qGreen(marked.pixel(origin + 12, origin - 3)), 200) << padding;
    }
    m->backdrop().setBackground(std::nullopt);
    EXPECT_EQ(flatten(*m).size(), QSize(100, 100));
}

TEST_F(RenderTest, ExportsReuseThePixelationSource) {
    auto m = model(filled(1100, 300, Qt::white));
    const qint64 key = m->document().pixelatedImage().cacheKey();
    m->document().appendAnnotation(Annotation(Annotation::Pixelate{{0, 0, 50, 50}}, Qt::red));
    m->document().appendAnnotation(Annotation(Annotation::Pixelate{{100, 0, 50, 50}}, Qt::red));
    flatten(*m);
    flatten(*m);
    EXPECT_EQ(m->document().pixelatedImage().cacheKey(), key);
}

TEST_F(RenderTest, CanvasPaintsTheSameMarksUnderItsZoom) {
    auto m = model(noise(200, 100));
    Annotation arrow(Annotation::Arrow{{10, 50}, {190, 50}}, QColor(0, 0, 255), 6);
    Annotation typing(Annotation::Text{{0, 0, 200, 40}, QStringLiteral("WWWW"), 30},
                      QColor(0, 255, 0));
    m->document().appendAnnotation(Annotation(Annotation::Pixelate{{0, 0, 200, 100}}, Qt::red));
    m->document().appendAnnotation(arrow);
    m->document().appendAnnotation(typing);

    QImage canvas(400, 200, QImage::Format_RGB32);
    QPainter painter(&canvas);
    painter.scale(2, 2);
    paintDocument(painter, m->document(), typing.id());
    painter.end();
    const QImage flat = flatten(*m);
    EXPECT_EQ(canvas.pixel(200, 100), qRgb(0, 0, 255));
    EXPECT_EQ(canvas.pixel(20, 160), flat.pixel(10, 80)); // same pixelation blocks
    int green = 0;
    for (int y = 0; y < 80; ++y)
        for (int x = 0; x < 400; ++x)
            green += canvas.pixel(x, y) == qRgb(0, 255, 0);
    EXPECT_EQ(green, 0); // the text being typed is left to the text field
}
