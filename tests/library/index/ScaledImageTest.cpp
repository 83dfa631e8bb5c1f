#include "library/index/ScaledImage.h"

#include "IndexTestFiles.h"

#include <QFile>
#include <QImage>
#include <QTemporaryDir>
#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <spng.h>
#include <vector>

using namespace qm;
using namespace qm::library;
using namespace qm::test;

namespace {

// The process's peak resident memory in kilobytes.
qint64 peakMemoryKb() {
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').value(0).toLongLong();
    return -1;
}

// A huge grey PNG written a row at a time, with a black band across its left tenth, so the
// test never holds it whole either.
bool writeHugePng(const QString& path, int side) {
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(
        std::fopen(QFile::encodeName(path).constData(), "wb"), &std::fclose);
    std::unique_ptr<spng_ctx, void (*)(spng_ctx*)> ctx(spng_ctx_new(SPNG_CTX_ENCODER),
                                                       &spng_ctx_free);
    if (!file || !ctx)
        return false;
    spng_set_png_file(ctx.get(), file.get());
    spng_set_option(ctx.get(), SPNG_IMG_COMPRESSION_LEVEL, 1);
    spng_ihdr ihdr{};
    ihdr.width = uint32_t(side);
    ihdr.height = uint32_t(side);
    ihdr.bit_depth = 8;
    ihdr.color_type = SPNG_COLOR_TYPE_GRAYSCALE;
    spng_set_ihdr(ctx.get(), &ihdr);
    if (spng_encode_image(ctx.get(), nullptr, 0, SPNG_FMT_PNG,
                          SPNG_ENCODE_PROGRESSIVE | SPNG_ENCODE_FINALIZE) != 0)
        return false;
    std::vector<uint8_t> row(size_t(side), 200);
    std::fill(row.begin(), row.begin() + side / 10, 0);
    for (int y = 0; y < side; ++y) {
        const int status = spng_encode_row(ctx.get(), row.data(), row.size());
        if (status != 0 && status != SPNG_EOI)
            return false;
    }
    return true;
}

TEST(ScaledImage, AHugePngIsScaledAsItIsReadWithoutHoldingItWhole) {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("huge.png"));
    ASSERT_TRUE(writeHugePng(path, 20000));
    const qint64 before = peakMemoryKb();
    const Result<QImage> image = readScaledImage(path, 2600);
    ASSERT_TRUE(image.ok()) << image.error().reason.toStdString();
    EXPECT_EQ(image->size(), QSize(2600, 2600));
    // Whole, it would take 1.6 GB as RGBA; scaled, a few rows and the 27 MB result.
    EXPECT_LT(peakMemoryKb() - before, 200 * 1024);
    // The boxes average: the band stays black, the rest grey, the edge between is one column.
    EXPECT_EQ(qGray(image->pixel(10, 1300)), 0);
    EXPECT_EQ(qGray(image->pixel(1000, 1300)), 200);
    EXPECT_EQ(qGray(image->pixel(2599, 2599)), 200);
}

TEST(ScaledImage, SmallImagesKeepTheirSizeAndLargeOnesFitTheLongerSide) {
    QTemporaryDir dir;
    QImage small(300, 120, QImage::Format_ARGB32);
    small.fill(qRgba(10, 120, 240, 128));
    const QString smallPng = dir.filePath(QStringLiteral("small.png"));
    ASSERT_TRUE(small.save(smallPng));
    const Result<QImage> same = readScaledImage(smallPng, 2600);
    ASSERT_TRUE(same.ok());
    EXPECT_EQ(same->size(), small.size());
    EXPECT_EQ(same->pixelColor(5, 5).rgba(), small.pixelColor(5, 5).rgba()); // alpha kept

    QImage wide(4000, 1000, QImage::Format_RGB32);
    wide.fill(Qt::darkGreen);
    const QString jpeg = dir.filePath(QStringLiteral("wide.jpg"));
    const QString png = dir.filePath(QStringLiteral("wide.png"));
    ASSERT_TRUE(wide.save(jpeg) && wide.save(png));
    for (const QString& path : {jpeg, png}) {
        const Result<QImage> fitted = readScaledImage(path, 2600);
        ASSERT_TRUE(fitted.ok()) << path.toStdString();
        EXPECT_EQ(fitted->size(), QSize(2600, 650)) << path.toStdString();
    }
}

TEST(ScaledImage, WhatCannotBeReadSaysWhy) {
    QTemporaryDir dir;
    const QString notes = dir.filePath(QStringLiteral("notes.png"));
    ASSERT_TRUE(writeBytes(notes, "not an image\n"));
    const Result<QImage> text = readScaledImage(notes, 2600);
    ASSERT_FALSE(text.ok());
    EXPECT_TRUE(text.error().reason.contains(QStringLiteral("notes.png")));

    // Cut short in the middle of its pixels, large enough to be scaled and small enough to not.
    for (const int side : {3000, 800}) {
        QImage image(side, side, QImage::Format_RGB32);
        for (int y = 0; y < side; ++y)
            for (int x = 0; x < side; ++x)
                image.setPixel(x, y, qRgb((x * 7) & 255, (y * 13) & 255, (x ^ y) & 255));
        QByteArray bytes;
        {
            QFile out(dir.filePath(QStringLiteral("whole.png")));
            ASSERT_TRUE(image.save(&out, "PNG"));
        }
        QFile whole(dir.filePath(QStringLiteral("whole.png")));
        ASSERT_TRUE(whole.open(QIODevice::ReadOnly));
        const QString cut = dir.filePath(QStringLiteral("cut.png"));
        ASSERT_TRUE(writeBytes(cut, whole.readAll().left(int(whole.size() * 2 / 3))));
        const Result<QImage> truncated = readScaledImage(cut, 2600);
        EXPECT_FALSE(truncated.ok()) << side;
    }

    // A BMP claiming 9000 × 9000 pixels is refused from its header alone.
    QByteArray bmp(54, '\0');
    auto put32 = [&bmp](int at, quint32 v) {
        for (int i = 0; i < 4; ++i)
            bmp[at + i] = char((v >> (8 * i)) & 0xff);
    };
    bmp[0] = 'B';
    bmp[1] = 'M';
    put32(2, 54 + 16);
    put32(10, 54);
    put32(14, 40);
    put32(18, 9000);
    put32(22, 9000);
    bmp[26] = 1;
    bmp[28] = 24;
    const QString huge = dir.filePath(QStringLiteral("huge.bmp"));
    ASSERT_TRUE(writeBytes(huge, bmp + QByteArray(16, '\0')));
    const Result<QImage> refused = readScaledImage(huge, 2600);
    ASSERT_FALSE(refused.ok());
    EXPECT_TRUE(refused.error().reason.contains(QStringLiteral("too large")));

    EXPECT_FALSE(readScaledImage(dir.filePath(QStringLiteral("gone.png")), 2600).ok());
}

} // namespace
