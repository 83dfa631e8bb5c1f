#include "media/player/MovieDecoder.h"

#include "CodedMovie.h"
#include "TestSupport.h"
#include "media/player/Thumbnails.h"

#include <QFile>
#include <QTemporaryDir>
#include <cmath>
#include <gtest/gtest.h>

namespace qm::media::player {
namespace {

class MovieDecoderTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_dir = new QTemporaryDir;
        s_movie = s_dir->filePath(QStringLiteral("coded.mov"));
        ASSERT_TRUE(test::makeCodedMovie(s_movie, 3));
    }
    static void TearDownTestSuite() { delete s_dir; }

    std::unique_ptr<MovieDecoder> open() {
        auto decoder = MovieDecoder::open(s_movie);
        EXPECT_TRUE(decoder.ok());
        return decoder.ok() ? std::move(*decoder) : nullptr;
    }

    static inline QTemporaryDir* s_dir = nullptr;
    static inline QString s_movie;
};

TEST_F(MovieDecoderTest, ReadsLengthRateAndSize) {
    auto decoder = open();
    ASSERT_TRUE(decoder);
    EXPECT_NEAR(decoder->duration(), 3.0, 0.001);
    EXPECT_DOUBLE_EQ(decoder->frameRate(), 30);
    EXPECT_EQ(decoder->frameSize(), QSize(64, 48));
}

// Forward and backward, across the key frame at 2 s, just before and just on a frame's start:
// the answer is always the frame on screen at that moment, never its neighbour.
TEST_F(MovieDecoderTest, EverySeekLandsOnTheFrameOnScreenAtThatTime) {
    auto decoder = open();
    ASSERT_TRUE(decoder);
    const double times[] = {2.0,  1.999, 2.001, 2.5, 0.5, 1.0 / 30, 1.0 / 30 - 0.001,
                            2.95, 1.98,  1.99,  0.0, 2.0, 2.0,      2.0 + 1.0 / 30,
                            0.7,  0.71,  0.74,  1.5, 1.4, 2.9999};
    for (double t : times) {
        auto frame = decoder->frameAt(t);
        ASSERT_TRUE(frame.ok()) << t;
        const int expected = static_cast<int>(std::floor(t * 30 + 1e-6));
        EXPECT_EQ(test::codedFrameNumber(frame->image), expected) << "at " << t;
        EXPECT_NEAR(frame->time, expected / 30.0, 1e-6) << "at " << t;
    }
}

TEST_F(MovieDecoderTest, TimesOutsideTheMovieShowItsFirstOrLastFrame) {
    auto decoder = open();
    ASSERT_TRUE(decoder);
    auto before = decoder->frameAt(-3);
    ASSERT_TRUE(before.ok());
    EXPECT_EQ(test::codedFrameNumber(before->image), 0);
    auto after = decoder->frameAt(60);
    ASSERT_TRUE(after.ok());
    EXPECT_EQ(test::codedFrameNumber(after->image), 89);
    // And the end really is the end for a player reading on.
    EXPECT_FALSE(decoder->nextFrame().ok());
}

TEST_F(MovieDecoderTest, PlaysOnFrameByFrameFromASeek) {
    auto decoder = open();
    ASSERT_TRUE(decoder);
    ASSERT_TRUE(decoder->frameAt(1.95).ok()); // frame 58, two before the key frame
    for (int expected = 59; expected < 64; ++expected) {
        auto frame = decoder->nextFrame();
        ASSERT_TRUE(frame.ok());
        EXPECT_EQ(test::codedFrameNumber(frame->image), expected);
    }
}

TEST_F(MovieDecoderTest, ScalesToTheAskedHeightKeepingTheShape) {
    auto decoder = open();
    ASSERT_TRUE(decoder);
    auto frame = decoder->frameAt(1.0, 120);
    ASSERT_TRUE(frame.ok());
    EXPECT_EQ(frame->image.size(), QSize(160, 120));
    EXPECT_EQ(test::codedFrameNumber(frame->image), 30);
}

TEST_F(MovieDecoderTest, AFileThatIsNoMovieSaysWhy) {
    const QString path = s_dir->filePath(QStringLiteral("notes.mov"));
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("these are not pictures");
    file.close();
    auto decoder = MovieDecoder::open(path);
    ASSERT_FALSE(decoder.ok());
    EXPECT_TRUE(decoder.error().reason.startsWith(QStringLiteral("Could not open the movie: ")));
    EXPECT_FALSE(MovieDecoder::open(s_dir->filePath(QStringLiteral("gone.mov"))).ok());
}

TEST_F(MovieDecoderTest, FilmstripIsFourteenFramesFromTheMiddleOfEachSlice) {
    std::vector<QImage> strip;
    bool done = false;
    QObject context;
    ThumbnailMaker maker(
        s_movie, 3.0, &context, [&](QImage image) { strip.push_back(std::move(image)); },
        [&] { done = true; });
    ASSERT_TRUE(test::waitUntil([&] { return done; }));
    ASSERT_EQ(strip.size(), 14u);
    const auto times = thumbnailTimes(3.0);
    for (std::size_t i = 0; i < strip.size(); ++i) {
        EXPECT_EQ(strip[i].height(), 120);
        EXPECT_EQ(test::codedFrameNumber(strip[i]), static_cast<int>(std::floor(times[i] * 30)))
            << "thumbnail " << i;
    }
    EXPECT_TRUE(thumbnailTimes(0).empty());
}

} // namespace
} // namespace qm::media::player
