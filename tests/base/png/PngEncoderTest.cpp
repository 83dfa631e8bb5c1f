#include "base/png/PngEncoder.h"

#include "TestSupport.h"

#include <QRandomGenerator>
#include <gtest/gtest.h>
#include <memory>
#include <spng.h>

namespace {

using qm::png::EncodeOptions;

// Where two images first differ, or empty when every pixel matches.
QString firstDifference(const QImage& actual, const QImage& expected) {
    if (actual.size() != expected.size())
        return QStringLiteral("size %1x%2 instead of %3x%4")
            .arg(actual.width())
            .arg(actual.height())
            .arg(expected.width())
            .arg(expected.height());
    const QImage a = actual.convertToFormat(QImage::Format_ARGB32);
    const QImage e = expected.convertToFormat(QImage::Format_ARGB32);
    for (int y = 0; y < e.height(); ++y) {
        const auto* ra = reinterpret_cast<const QRgb*>(a.constScanLine(y));
        const auto* re = reinterpret_cast<const QRgb*>(e.constScanLine(y));
        for (int x = 0; x < e.width(); ++x)
            if (ra[x] != re[x])
                return QStringLiteral("pixel %1,%2 is #%3 instead of #%4")
                    .arg(x)
                    .arg(y)
                    .arg(ra[x], 8, 16, QLatin1Char('0'))
                    .arg(re[x], 8, 16, QLatin1Char('0'));
    }
    return {};
}

struct SpngDecoded {
    QImage image;
    int colorType = -1;
};

// libspng is a second reader, independent of Qt's libpng; it checks every CRC and the
// Adler-32 of the image data.
std::optional<SpngDecoded> decodeWithSpng(const QByteArray& png) {
    std::unique_ptr<spng_ctx, decltype(&spng_ctx_free)> ctx(spng_ctx_new(0), &spng_ctx_free);
    if (!ctx || spng_set_png_buffer(ctx.get(), png.constData(), std::size_t(png.size())) != 0)
        return std::nullopt;
    spng_set_image_limits(ctx.get(), 1u << 20, 1u << 20);
    spng_ihdr ihdr{};
    if (spng_get_ihdr(ctx.get(), &ihdr) != 0 || ihdr.bit_depth != 8 || ihdr.interlace_method != 0)
        return std::nullopt;
    QImage image(int(ihdr.width), int(ihdr.height), QImage::Format_RGBA8888);
    if (image.isNull() || image.bytesPerLine() != qsizetype(ihdr.width) * 4)
        return std::nullopt;
    if (spng_decode_image(ctx.get(), image.bits(), std::size_t(image.sizeInBytes()), SPNG_FMT_RGBA8,
                          0) != 0)
        return std::nullopt;
    return SpngDecoded{image, ihdr.color_type};
}

// Encodes, then proves with both readers that the file holds exactly `expected`, in RGB or
// RGBA as the source's alpha channel says.
void expectLossless(const QImage& source, const QImage& expected, const EncodeOptions& options) {
    const auto png = qm::png::encode(source, options);
    ASSERT_TRUE(png);
    const QImage viaQt = QImage::fromData(*png, "PNG");
    ASSERT_FALSE(viaQt.isNull()) << "Qt cannot read the file";
    EXPECT_EQ(firstDifference(viaQt, expected), QString()) << "read by Qt";
    const auto viaSpng = decodeWithSpng(*png);
    ASSERT_TRUE(viaSpng) << "libspng cannot read the file";
    EXPECT_EQ(firstDifference(viaSpng->image, expected), QString()) << "read by libspng";
    EXPECT_EQ(viaSpng->colorType, source.hasAlphaChannel() ? SPNG_COLOR_TYPE_TRUECOLOR_ALPHA
                                                           : SPNG_COLOR_TYPE_TRUECOLOR);
}

void expectLossless(const QImage& image, const EncodeOptions& options = {}) {
    expectLossless(image, image, options);
}

// Option sets that exercise one stripe, many joined stripes, and more threads than cores.
const std::vector<EncodeOptions> kSplits = {
    {.threads = 1}, {}, {.threads = 3, .stripeRows = 1}, {.threads = 2, .stripeRows = 5}};

QImage noise(int width, int height, QImage::Format format, quint32 seed) {
    QImage image(width, height, format);
    QRandomGenerator rng(seed);
    for (int y = 0; y < height; ++y) {
        auto* row = reinterpret_cast<quint32*>(image.scanLine(y));
        for (int x = 0; x < width; ++x)
            row[x] =
                format == QImage::Format_RGB32 ? (rng.generate() | 0xff000000u) : rng.generate();
    }
    return image;
}

TEST(PngEncoder, ScreenshotsSurviveEveryWayOfSplittingTheWork) {
    const QImage opaque = qm::test::makeScreenshotLikeImage(1920, 1080);
    const QImage translucent = qm::test::makeScreenshotLikeImage(1280, 720, true);
    for (const EncodeOptions& options : kSplits) {
        SCOPED_TRACE(testing::Message()
                     << "threads " << options.threads << " stripe rows " << options.stripeRows);
        expectLossless(opaque, options);
        expectLossless(translucent, options);
    }
    for (int level : {1, 6, 12}) {
        SCOPED_TRACE(level);
        expectLossless(opaque, {.stripeRows = 100, .level = level});
    }
}

TEST(PngEncoder, OddSizesIncludingSinglePixels) {
    for (const QSize size :
         {QSize(1, 1), QSize(1, 300), QSize(3, 7), QSize(17, 33), QSize(1001, 61), QSize(300, 1)}) {
        SCOPED_TRACE(testing::Message() << size.width() << "x" << size.height());
        QImage opaque = noise(size.width(), size.height(), QImage::Format_RGB32, 11);
        // Half the picture smooth so filters other than None win some rows.
        for (int y = 0; y < size.height() / 2; ++y)
            for (int x = 0; x < size.width(); ++x)
                opaque.setPixel(x, y, qRgb(x & 0xff, (x + y) & 0xff, 200));
        const QImage translucent = noise(size.width(), size.height(), QImage::Format_ARGB32, 12);
        for (const EncodeOptions& options : kSplits) {
            SCOPED_TRACE(options.stripeRows);
            expectLossless(opaque, options);
            expectLossless(translucent, options);
        }
    }
}

TEST(PngEncoder, AlphaKeepsTrueColoursOfTransparentAndTranslucentPixels) {
    QImage image(257, 130, QImage::Format_ARGB32);
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            // Fully transparent pixels still carry a colour that must survive.
            image.setPixel(x, y, qRgba(x & 0xff, y * 2, 255 - (x & 0xff), (x + y * 3) % 256));
    expectLossless(image, {.stripeRows = 9});

    // Premultiplied pixels are stored as the colours they stand for.
    const QImage premultiplied = image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    expectLossless(premultiplied, premultiplied.convertToFormat(QImage::Format_ARGB32), {});
    const QImage rgbaPremultiplied = image.convertToFormat(QImage::Format_RGBA8888_Premultiplied);
    expectLossless(rgbaPremultiplied, rgbaPremultiplied.convertToFormat(QImage::Format_ARGB32), {});
}

TEST(PngEncoder, EveryPixelFormatComesOutAsItsColours) {
    const QImage base = qm::test::makeScreenshotLikeImage(333, 211, true);
    for (const QImage::Format format :
         {QImage::Format_RGB888, QImage::Format_RGBX8888, QImage::Format_RGBA8888,
          QImage::Format_BGR888, QImage::Format_RGB16, QImage::Format_Grayscale8,
          QImage::Format_Indexed8, QImage::Format_Mono, QImage::Format_RGBA64}) {
        SCOPED_TRACE(int(format));
        const QImage image = base.convertToFormat(format);
        expectLossless(image, image, {.stripeRows = 13});
    }
}

TEST(PngEncoder, IncompressibleAndFlatImages) {
    // Noise makes the compressor fall back to stored blocks; flat colour gives long matches.
    const QImage opaqueNoise = noise(1500, 400, QImage::Format_RGB32, 5);
    expectLossless(opaqueNoise, {.threads = 2, .stripeRows = 37});
    const auto noisy = qm::png::encode(opaqueNoise, {.stripeRows = 37});
    ASSERT_TRUE(noisy);
    // Signature, IHDR, the first IDAT's length and type, then the zlib header: the first
    // deflate block header follows.
    const int firstBlock = 8 + 25 + 8 + 2;
    EXPECT_EQ(quint8(noisy->at(firstBlock)) >> 1 & 3, 0) << "not a stored block";
    expectLossless(noise(700, 300, QImage::Format_ARGB32, 6), {.threads = 2, .stripeRows = 37});
    QImage flat(3000, 2000, QImage::Format_RGB32);
    flat.fill(QColor(18, 52, 86));
    expectLossless(flat);
    const auto png = qm::png::encode(flat);
    ASSERT_TRUE(png);
    EXPECT_LT(png->size(), 100 * 1024);
}

TEST(PngEncoder, TallImageInManyStripes) {
    QImage tall(37, 20000, QImage::Format_RGB32);
    for (int y = 0; y < tall.height(); ++y)
        for (int x = 0; x < tall.width(); ++x)
            tall.setPixel(x, y, qRgb((x * y) & 0xff, y & 0xff, (y >> 8) & 0xff));
    expectLossless(tall);
    expectLossless(tall, {.threads = 4, .stripeRows = 3});
}

TEST(PngEncoder, NullImageGivesNothing) {
    EXPECT_FALSE(qm::png::encode(QImage()));
    EXPECT_FALSE(qm::png::encode(QImage(), {.threads = 2}));
}

} // namespace
