#include "base/LargeImage.h"

#include <gtest/gtest.h>

using namespace qm;

namespace {

TEST(LargeImage, AScreenSizedImageIsAnOrdinaryImageToItsUsers) {
    QImage image = makeLargeImage(3840, 2160, QImage::Format_RGB32);
    ASSERT_FALSE(image.isNull());
    EXPECT_EQ(image.size(), QSize(3840, 2160));
    EXPECT_EQ(image.bytesPerLine(), 3840 * 4);
    image.fill(Qt::red);
    image.setPixel(3839, 2159, qRgb(0, 0, 255));
    // A copy shares until written; writing it leaves the original alone.
    QImage copy = image;
    copy.setPixel(0, 0, qRgb(0, 255, 0));
    EXPECT_EQ(image.pixel(0, 0), qRgb(255, 0, 0));
    EXPECT_EQ(image.pixel(3839, 2159), qRgb(0, 0, 255));
    EXPECT_EQ(copy.pixel(0, 0), qRgb(0, 255, 0));
    // Odd widths keep Qt's row alignment.
    EXPECT_EQ(makeLargeImage(4001, 1001, QImage::Format_RGB888).bytesPerLine(), 12004);
    EXPECT_TRUE(makeLargeImage(0, 10, QImage::Format_RGB32).isNull());
}

TEST(LargeImage, TheReserveNeverHandsOutOneBufferTwice) {
    ImageReserve reserve;
    reserve.prepare(1920, 1080, QImage::Format_RGB32);
    std::vector<QImage> taken;
    for (int i = 0; i < 4; ++i) {
        taken.push_back(reserve.take(1920, 1080, QImage::Format_RGB32));
        ASSERT_EQ(taken.back().size(), QSize(1920, 1080));
        taken.back().fill(QColor(i, 0, 0));
    }
    for (std::size_t i = 0; i < taken.size(); ++i) {
        EXPECT_EQ(qRed(taken[i].pixel(10, 10)), int(i));
        for (std::size_t j = i + 1; j < taken.size(); ++j)
            EXPECT_NE(taken[i].constBits(), taken[j].constBits());
    }
    // Another shape is served at once, in its own format.
    const QImage other = reserve.take(640, 480, QImage::Format_ARGB32_Premultiplied);
    EXPECT_EQ(other.size(), QSize(640, 480));
    EXPECT_EQ(other.format(), QImage::Format_ARGB32_Premultiplied);
}

} // namespace
