#include "media/trim/TrimInPlace.h"

#include "MovieProbe.h"
#include "ScratchMount.h"
#include "TestSupport.h"
#include "TrimFixtures.h"
#include "media/MovieWriter.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>
#include <numbers>

namespace qm::media::trim {
namespace {

using namespace std::chrono_literals;

constexpr double kFps = 30.0;

class TrimInPlaceTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_FALSE(test::sharedMovie().isEmpty()) << "ffmpeg failed"; }

    // A copy of the shared movie as Clip.mov in `folder`.
    static QString copyMovie(const QString& folder, bool withSound = true) {
        const QString movie = folder + QStringLiteral("/Clip.mov");
        EXPECT_TRUE(QFile::copy(test::sharedMovie(withSound), movie));
        return movie;
    }

    QTemporaryDir m_dir;
};

// A range, and the frames (of the 30 fps source) it must come out as.
struct Cut {
    const char* name;
    double start, end;
    int firstShown, endShown; // frames a player shows: [firstShown, endShown)
    int keyFrame;             // where the copied packets begin
};

void PrintTo(const Cut& cut, std::ostream* os) {
    *os << cut.name;
}

class ExactCutTest : public TrimInPlaceTest, public ::testing::WithParamInterface<Cut> {};

TEST_P(ExactCutTest, ShowsExactlyTheRangeFromUntouchedPackets) {
    const Cut cut = GetParam();
    const QString source = test::sharedMovie();
    const QString movie = copyMovie(m_dir.path());
    ASSERT_TRUE(
        QFile::setPermissions(movie, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup));
    const QFileDevice::Permissions permissions = QFile::permissions(movie);
    std::vector<double> fractions;
    const auto summary =
        trimInPlace(movie, cut.start, cut.end, [&](double f) { fractions.push_back(f); });
    ASSERT_TRUE(summary.ok()) << summary.error().reason.toStdString();

    const int shown = cut.endShown - cut.firstShown;
    EXPECT_NEAR(summary->startSeconds, cut.firstShown / kFps, 1e-6);
    EXPECT_NEAR(summary->durationSeconds, shown / kFps, 1e-6);
    EXPECT_EQ(summary->videoFrames, std::uint64_t(shown));

    // What a player shows is the source's pictures of the range, from the first one on.
    static const QStringList sourceFrames = test::shownFrameHashes(source);
    ASSERT_EQ(sourceFrames.size(), 300);
    EXPECT_EQ(test::shownFrameHashes(movie), sourceFrames.mid(cut.firstShown, shown));
    EXPECT_NEAR(test::probedDuration(movie), shown / kFps, 1 / kFps + 1e-3);
    // Nothing re-encoded: the packets from the key frame on are the source's, byte for byte.
    static const QStringList sourcePackets = test::storedPacketHashes(source);
    EXPECT_EQ(test::storedPacketHashes(movie),
              sourcePackets.mid(cut.keyFrame, cut.endShown - cut.keyFrame));

    // The sound is the source's from the same moment, and as long as the picture.
    static const std::vector<std::int16_t> sourceSound = test::playedSound(source);
    const std::vector<std::int16_t> sound = test::playedSound(movie);
    EXPECT_NEAR(double(sound.size()) / 48000, shown / kFps, 0.03);
    const std::size_t offset = std::size_t(std::lround(cut.firstShown / kFps * 48000));
    ASSERT_GT(sourceSound.size(), offset);
    const std::size_t common = std::min(sound.size(), sourceSound.size() - offset);
    ASSERT_GT(common, 4800u);
    int worst = 0;
    for (std::size_t i = 0; i < common; ++i)
        worst = std::max(worst, std::abs(sound[i] - sourceSound[offset + i]));
    EXPECT_LE(worst, 16) << "the sound does not line up with the picture";

    EXPECT_TRUE(test::indexAtFront(movie));
    EXPECT_EQ(QFile::permissions(movie), permissions);
    EXPECT_EQ(test::folderEntries(m_dir.path()), QStringList{QStringLiteral("Clip.mov")});
    ASSERT_FALSE(fractions.empty());
    EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
    EXPECT_EQ(fractions.back(), 1.0);
}

INSTANTIATE_TEST_SUITE_P(Ranges, ExactCutTest,
                         ::testing::Values(Cut{"OnAKeyFrame", 2.0, 5.0, 60, 150, 60},
                                           Cut{"InsideAGroupOfPictures", 2.5, 5.0, 75, 150, 60},
                                           Cut{"BetweenFrames", 2.51, 4.99, 75, 150, 60},
                                           Cut{"FromTheBeginning", 0.0, 1.0, 0, 30, 0},
                                           Cut{"ToTheEnd", 8.7, 10.0, 261, 300, 240},
                                           Cut{"TheShortestAllowed", 3.0, 3.2, 90, 96, 60}),
                         [](const auto& test) { return std::string(test.param.name); });

// Also through a link, which stays a link to the trimmed movie.
TEST_F(TrimInPlaceTest, AMovieWithoutSoundKeepsItsPictureOnly) {
    const QString movie = copyMovie(m_dir.path(), false);
    const QString link = m_dir.filePath(QStringLiteral("Link.mov"));
    ASSERT_TRUE(QFile::link(movie, link));
    const auto summary = trimInPlace(link, 1.5, 3.0);
    ASSERT_TRUE(summary.ok()) << summary.error().reason.toStdString();
    EXPECT_TRUE(QFileInfo(link).isSymLink());
    EXPECT_EQ(test::shownFrameHashes(movie),
              test::shownFrameHashes(test::sharedMovie(false)).mid(45, 45));
    const auto probed = test::probeMovie(movie);
    ASSERT_TRUE(probed);
    EXPECT_TRUE(probed->of(QStringLiteral("audio")).empty());
}

TEST_F(TrimInPlaceTest, ACancelledTrimLeavesTheOriginal) {
    const QString movie = copyMovie(m_dir.path());
    const QByteArray before = test::fileBytes(movie);
    std::atomic_bool cancel{false};
    QStringList scraps; // the half-written movie, which only its owner may read
    QFileDevice::Permissions scrapPermissions;
    const auto summary = trimInPlace(
        movie, 1.0, 9.0,
        [&](double f) {
            cancel = f > 0.3;
            scraps = test::folderEntries(m_dir.path()).filter(QStringLiteral(".trimming"));
            if (!scraps.isEmpty())
                scrapPermissions = QFile::permissions(m_dir.filePath(scraps.first()));
        },
        &cancel);
    ASSERT_FALSE(summary.ok());
    EXPECT_EQ(scraps.size(), 1);
    EXPECT_EQ(scrapPermissions & 0xF0FF, QFile::ReadOwner | QFile::WriteOwner);
    EXPECT_EQ(summary.error().reason, cancelledReason());
    EXPECT_EQ(test::fileBytes(movie), before);
    EXPECT_EQ(test::folderEntries(m_dir.path()), QStringList{QStringLiteral("Clip.mov")});
}

// A crash after the new movie is written but before it takes the original's place must leave
// the original as it was. A file mounted over the movie's name makes the rename itself fail.
TEST_F(TrimInPlaceTest, AFailedReplacementLeavesTheOriginal) {
    const QString movie = copyMovie(m_dir.path());
    const QString stand = m_dir.filePath(QStringLiteral("stand-in.mov"));
    ASSERT_TRUE(QFile::copy(movie, stand));
    if (test::run(QStringLiteral("mount"), {QStringLiteral("--bind"), stand, movie}).exitCode != 0)
        GTEST_SKIP() << "bind mounts need root";
    const auto summary = trimInPlace(movie, 2.0, 5.0);
    test::run(QStringLiteral("umount"), {movie});
    ASSERT_FALSE(summary.ok());
    EXPECT_TRUE(summary.error().reason.startsWith(
        QStringLiteral("the trimmed movie could not take the original's place")))
        << summary.error().reason.toStdString();
    EXPECT_EQ(test::fileBytes(movie), test::fileBytes(test::sharedMovie()));
    EXPECT_EQ(test::folderEntries(m_dir.path()),
              (QStringList{QStringLiteral("Clip.mov"), QStringLiteral("stand-in.mov")}));
}

TEST_F(TrimInPlaceTest, AFullDiskLeavesTheOriginalAndNoScraps) {
    const qint64 size = QFileInfo(test::sharedMovie()).size();
    test::ScratchMount disk(QStringLiteral("size=%1k").arg(size / 1024 + 64));
    if (!disk.ok())
        GTEST_SKIP() << "mounting a small disk needs root";
    const QString movie = copyMovie(disk.path());
    const auto summary = trimInPlace(movie, 0.2, 9.8);
    ASSERT_FALSE(summary.ok());
    EXPECT_EQ(summary.error().reason, QStringLiteral("the disk is full"));
    EXPECT_EQ(test::fileBytes(movie), test::fileBytes(test::sharedMovie()));
    EXPECT_EQ(test::folderEntries(disk.path()), QStringList{QStringLiteral("Clip.mov")});
}

// What the recorder makes: MovieWriter's fragmented file with both sound tracks, turned into a
// finished movie. Every frame differs (a bar that moves with the frame number).
void record(const QString& fragmented, const QString& movie, int frames) {
    constexpr int kWidth = 192, kHeight = 108;
    auto writer = MovieWriter::create(
        fragmented, {.size = {kWidth, kHeight}, .systemAudio = true, .microphone = true});
    ASSERT_TRUE(writer.ok()) << writer.error().reason.toStdString();
    std::vector<float> sound(480 * 2);
    std::vector<std::uint8_t> pixels(kWidth * kHeight * 4);
    int chunk = 0;
    for (int frame = 0; frame < frames; ++frame) {
        const MediaTime at = MediaTime(std::int64_t(frame) * 1'000'000'000 / 30);
        for (; MediaTime(chunk * 10ms) <= at; ++chunk) {
            for (int i = 0; i < 480; ++i)
                sound[2 * i] = sound[2 * i + 1] =
                    0.5f *
                    float(std::sin(2 * std::numbers::pi * 440 * (chunk * 480 + i) / 48000.0));
            ASSERT_TRUE(
                (*writer)->writeAudio(AudioTrack::System, sound.data(), 480, chunk * 10ms).ok());
            ASSERT_TRUE((*writer)
                            ->writeAudio(AudioTrack::Microphone, sound.data(), 480, chunk * 10ms)
                            .ok());
        }
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x) {
                std::uint8_t* p = &pixels[std::size_t(y * kWidth + x) * 4];
                const bool bar = std::abs(x - (frame * 3) % kWidth) < 6;
                p[0] = bar ? 255 : std::uint8_t(frame);
                p[1] = bar ? 255 : std::uint8_t(y * 2);
                p[2] = bar ? 255 : std::uint8_t(x);
                p[3] = 255;
            }
        ASSERT_TRUE((*writer)->writeVideo(pixels.data(), kWidth * 4, at).ok());
    }
    ASSERT_TRUE((*writer)->finish().ok());
    const auto finished = finalizeMovie(fragmented, movie);
    ASSERT_TRUE(finished.ok()) << finished.error().reason.toStdString();
}

TEST(TrimRecordingTest, ARecordingWithTwoSoundTracksIsCutAtTheExactFrame) {
    QTemporaryDir dir;
    const QString movie = dir.filePath(QStringLiteral("Recording.mov"));
    const QString original = dir.filePath(QStringLiteral("original.mov"));
    record(dir.filePath(QStringLiteral("fragmented.mov")), movie, 180);
    ASSERT_TRUE(QFile::copy(movie, original));
    const QStringList frames = test::shownFrameHashes(original);
    ASSERT_EQ(frames.size(), 180);

    const auto summary = trimInPlace(movie, 2.5, 4.0);
    ASSERT_TRUE(summary.ok()) << summary.error().reason.toStdString();
    EXPECT_EQ(test::shownFrameHashes(movie), frames.mid(75, 45));
    const auto probed = test::probeMovie(movie);
    ASSERT_TRUE(probed);
    EXPECT_EQ(probed->of(QStringLiteral("audio")).size(), 2u);
    EXPECT_NEAR(double(test::playedSound(movie).size()) / 48000, 1.5, 0.03);
    EXPECT_TRUE(test::indexAtFront(movie));
}

} // namespace
} // namespace qm::media::trim
