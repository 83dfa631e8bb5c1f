#include "media/MovieWriter.h"

#include "MovieFixtures.h"
#include "ScratchMount.h"
#include "TestSupport.h"
#include "media/MovieBoxes.h"

#include <QFile>
#include <QTemporaryDir>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace qm::media {
namespace {

using namespace std::chrono_literals;
using test::feed;

class MovieWriterTest : public ::testing::Test {
protected:
    QString path(const QString& name) const { return m_dir.filePath(name); }

    std::unique_ptr<MovieWriter> create(const QString& name, const MovieSettings& settings) {
        auto writer = MovieWriter::create(path(name), settings);
        EXPECT_TRUE(writer.ok()) << (writer.ok() ? "" : writer.error().reason.toStdString());
        return writer.ok() ? std::move(*writer) : nullptr;
    }

    QTemporaryDir m_dir;
};

TEST_F(MovieWriterTest, RecordsScreenSystemSoundAndMicrophoneOnTracksOfTheirOwn) {
    const MovieSettings settings{.size = {320, 240}, .systemAudio = true, .microphone = true};
    auto writer = create(QStringLiteral("both.mov"), settings);
    ASSERT_TRUE(writer);
    // A tone on the system sound only: it must come out on the first sound track.
    feed(*writer, 320, 240, 0s, 3s, 1000, 0, true, true);
    EXPECT_EQ(writer->videoFramesWritten(), 90u);
    ASSERT_TRUE(writer->finish().ok());

    const QJsonArray streams = test::probeStreams(path(QStringLiteral("both.mov")));
    ASSERT_EQ(streams.size(), 3);
    const QJsonObject video = streams[0].toObject();
    EXPECT_EQ(video[QLatin1String("codec_name")].toString(), QStringLiteral("h264"));
    EXPECT_EQ(video[QLatin1String("profile")].toString(), QStringLiteral("High"));
    EXPECT_EQ(video[QLatin1String("pix_fmt")].toString(), QStringLiteral("yuv420p"));
    EXPECT_EQ(video[QLatin1String("color_space")].toString(), QStringLiteral("bt709"));
    EXPECT_EQ(video[QLatin1String("color_range")].toString(), QStringLiteral("tv"));
    EXPECT_EQ(video[QLatin1String("width")].toInt(), 320);
    EXPECT_EQ(video[QLatin1String("height")].toInt(), 240);
    EXPECT_EQ(video[QLatin1String("r_frame_rate")].toString(), QStringLiteral("30/1"));
    EXPECT_EQ(test::decodedFrames(path(QStringLiteral("both.mov"))), 90);
    for (int i : {1, 2}) {
        const QJsonObject audio = streams[i].toObject();
        EXPECT_EQ(audio[QLatin1String("codec_name")].toString(), QStringLiteral("aac"));
        EXPECT_EQ(audio[QLatin1String("sample_rate")].toString(), QStringLiteral("48000"));
        EXPECT_EQ(audio[QLatin1String("channels")].toInt(), 2);
    }
    const auto system = test::decodeAudio(path(QStringLiteral("both.mov")), 0);
    const auto microphone = test::decodeAudio(path(QStringLiteral("both.mov")), 1);
    EXPECT_NEAR(double(system.size()) / 48000, 3.0, 0.03);
    EXPECT_NEAR(double(microphone.size()) / 48000, 3.0, 0.03);
    EXPECT_GT(test::rms(system), 0.3);       // a 0.5 sine has an RMS of 0.35
    EXPECT_LT(test::rms(microphone), 0.001); // silence stays silence
}

TEST_F(MovieWriterTest, WritesAFragmentAtLeastEverySecondWhileRecording) {
    auto writer = create(QStringLiteral("open.mov"), {.size = {160, 120}, .systemAudio = true});
    ASSERT_TRUE(writer);
    feed(*writer, 160, 120, 0s, 3500ms, 1000, 0, true, false);

    // Still open: what is on disk now is what a crash would leave.
    const QByteArray name = QFile::encodeName(path(QStringLiteral("open.mov")));
    const int fd = ::open(name.constData(), O_RDONLY);
    ASSERT_GE(fd, 0);
    const FragmentedLayout layout =
        scanFragmentedMovie(fd, QFile(path(QStringLiteral("open.mov"))).size());
    ::close(fd);
    EXPECT_TRUE(layout.hasIndex);
    EXPECT_GE(layout.completeFragments, 2); // the encoder holds back a few frames
    ASSERT_TRUE(writer->finish().ok());
}

TEST_F(MovieWriterTest, SoundTracksFollowTheInputsChosen) {
    struct Case {
        MovieSettings settings;
        int audioTracks;
    };
    const Case cases[] = {
        {{.size = {640, 360}, .fps = 60}, 0},
        {{.size = {200, 100}, .microphone = true}, 1},
        {{.size = {200, 100}, .systemAudio = true}, 1},
    };
    int n = 0;
    for (const Case& c : cases) {
        const QString name = QStringLiteral("variant%1.mov").arg(n++);
        auto writer = create(name, c.settings);
        ASSERT_TRUE(writer);
        const int w = c.settings.size.width(), h = c.settings.size.height();
        feed(*writer, w, h, 0s, 1s, c.settings.systemAudio ? 1000 : 0,
             c.settings.microphone ? 1000 : 0, c.settings.systemAudio, c.settings.microphone,
             c.settings.fps);
        // The track that is not there refuses sound with a reason instead of inventing one.
        const auto sound = test::tone(1000, 480);
        if (!c.settings.microphone) {
            EXPECT_FALSE(writer->writeAudio(AudioTrack::Microphone, sound.data(), 480, 1s).ok());
        }
        ASSERT_TRUE(writer->finish().ok());

        const QJsonArray streams = test::probeStreams(path(name));
        ASSERT_EQ(streams.size(), 1 + c.audioTracks) << name.toStdString();
        const QJsonObject video = streams[0].toObject();
        EXPECT_EQ(video[QLatin1String("width")].toInt(), w);
        EXPECT_EQ(video[QLatin1String("height")].toInt(), h);
        EXPECT_EQ(video[QLatin1String("r_frame_rate")].toString(),
                  QStringLiteral("%1/1").arg(c.settings.fps));
        if (c.audioTracks == 1) {
            EXPECT_GT(test::rms(test::decodeAudio(path(name), 0)), 0.3);
        }
    }
}

TEST_F(MovieWriterTest, GapsInTheTimesLeaveNoHoleAndSoundStaysOnTime) {
    auto writer = create(QStringLiteral("gaps.mov"),
                         {.size = {160, 120}, .systemAudio = true, .microphone = true});
    ASSERT_TRUE(writer);
    // Two seconds as usual, then no frames (dropped, or a pause the caller took out badly) and
    // no system sound (a stalled sound server) until 2.5 s. The frame after the gap is the
    // 61st, a key frame, so the one before it ends a fragment with nothing after it to time it.
    // From 2.5 s the microphone comes back stamped 150 ms early, overlapping what it wrote.
    const auto silence = test::tone(0, 480);
    const auto sound = test::tone(1000, 480);
    std::int64_t slot = 0;
    for (MediaTime t = 0s; t < 3500ms; t += 10ms) {
        const bool gap = t >= 2s && t < 2500ms;
        for (; slot * 1'000'000'000ns / 30 <= t; ++slot) {
            if (gap)
                continue;
            const auto pixels = test::movingBar(160, 120, int(slot));
            ASSERT_TRUE(
                writer->writeVideo(pixels.data(), 160 * 4, slot * 1'000'000'000ns / 30).ok());
        }
        if (!gap) {
            ASSERT_TRUE(
                writer
                    ->writeAudio(AudioTrack::System, (t >= 2500ms ? sound : silence).data(), 480, t)
                    .ok());
        }
        const MediaTime micTime = t >= 2500ms ? t - 150ms : t;
        ASSERT_TRUE(writer
                        ->writeAudio(AudioTrack::Microphone,
                                     (micTime >= 3s ? sound : silence).data(), 480, micTime)
                        .ok());
    }
    // A second frame in the same frame slot is no new frame.
    const auto again = test::movingBar(160, 120, 0);
    ASSERT_TRUE(writer->writeVideo(again.data(), 160 * 4, 3480ms).ok());
    EXPECT_EQ(writer->videoFramesWritten(), 60u + 30u);
    ASSERT_TRUE(writer->finish().ok());

    // The finished movie's index tells each frame's duration (a fragment's reader guesses).
    const QString movie = path(QStringLiteral("gaps-final.mov"));
    ASSERT_TRUE(finalizeMovie(path(QStringLiteral("gaps.mov")), movie).ok());
    const auto packets = test::probePackets(movie, QStringLiteral("v:0"));
    ASSERT_EQ(packets.size(), writer->videoFramesWritten());
    for (std::size_t i = 0; i + 1 < packets.size(); ++i)
        EXPECT_NEAR(packets[i].pts + packets[i].duration, packets[i + 1].pts, 1e-5) << i;
    EXPECT_NEAR(packets[60].pts, 2.5, 1e-5);
    EXPECT_NEAR(packets.back().pts + packets.back().duration, 3.5, 1e-5);

    const auto system = test::decodeAudio(movie, 0);
    const auto microphone = test::decodeAudio(movie, 1);
    EXPECT_NEAR(test::firstSoundSeconds(system), 2.5, 0.003);
    EXPECT_NEAR(test::firstSoundSeconds(microphone), 3.0, 0.003);
    EXPECT_NEAR(double(system.size()) / 48000, 3.5, 0.03);
    EXPECT_NEAR(double(microphone.size()) / 48000, 3.35, 0.03);
}

TEST_F(MovieWriterTest, NeverReplacesAFileAndRefusesSizesTheEncoderCannotTake) {
    QFile existing(path(QStringLiteral("taken.mov")));
    ASSERT_TRUE(existing.open(QIODevice::WriteOnly));
    existing.write("keep me");
    existing.close();
    auto taken = MovieWriter::create(existing.fileName(), {.size = {160, 120}});
    ASSERT_FALSE(taken.ok());
    EXPECT_EQ(taken.error().reason, QStringLiteral("a file of that name already exists"));
    ASSERT_TRUE(existing.open(QIODevice::ReadOnly));
    EXPECT_EQ(existing.readAll(), QByteArray("keep me"));

    auto missing =
        MovieWriter::create(path(QStringLiteral("no/such/folder.mov")), {.size = {160, 120}});
    ASSERT_FALSE(missing.ok());
    EXPECT_EQ(missing.error().reason, QStringLiteral("the folder does not exist"));

    for (QSize size : {QSize(161, 120), QSize(160, 1), QSize(0, 0)}) {
        auto odd = MovieWriter::create(path(QStringLiteral("odd.mov")), {.size = size});
        EXPECT_FALSE(odd.ok()) << size.width() << "x" << size.height();
        EXPECT_FALSE(QFile::exists(path(QStringLiteral("odd.mov"))));
    }
}

TEST_F(MovieWriterTest, BitRateFollowsTheAreaUpToItsCap) {
    EXPECT_EQ(videoBitRate({1920, 1080}), 6'842'880);
    EXPECT_EQ(videoBitRate({1000, 600}), 1'980'000);
    EXPECT_EQ(videoBitRate({7680, 4320}), 40'000'000);
}

TEST_F(MovieWriterTest, AFullDiskStopsTheRecordingWithAReasonAndKeepsWhatWasWritten) {
    test::ScratchMount disk(QStringLiteral("size=512k"));
    if (!disk.ok())
        GTEST_SKIP() << "mounting a small disk needs root";
    auto writer = MovieWriter::create(disk.filePath(QStringLiteral("full.mov")),
                                      {.size = {640, 480}, .microphone = true});
    ASSERT_TRUE(writer.ok());
    Status status;
    const auto sound = test::tone(1000, 1600);
    int frame = 0;
    // Noise at 640 × 480 is about 130 kB a second: half a megabyte lasts a few seconds.
    for (; frame < 30 * 20 && status.ok(); ++frame) {
        const MediaTime t = frame * 1'000'000'000ns / 30;
        const auto pixels = test::noise(640, 480, frame);
        status = (*writer)->writeVideo(pixels.data(), 640 * 4, t);
        if (status.ok())
            status = (*writer)->writeAudio(AudioTrack::Microphone, sound.data(), 1600, t);
    }
    ASSERT_FALSE(status.ok()) << "the disk never filled";
    EXPECT_EQ(status.error().reason, QStringLiteral("the disk is full"));
    // Later calls and finishing say the same, and nothing crashes.
    const auto pixels = test::noise(640, 480, frame);
    EXPECT_EQ((*writer)->writeVideo(pixels.data(), 640 * 4, 100s).error().reason,
              QStringLiteral("the disk is full"));
    const Status finished = (*writer)->finish();
    ASSERT_FALSE(finished.ok());
    EXPECT_EQ(finished.error().reason, QStringLiteral("the disk is full"));

    // What reached the disk is a recording that can still be saved elsewhere.
    const auto summary = finalizeMovie(disk.filePath(QStringLiteral("full.mov")),
                                       path(QStringLiteral("rescued.mov")));
    ASSERT_TRUE(summary.ok()) << summary.error().reason.toStdString();
    EXPECT_GT(summary->videoFrames, 0u);
    EXPECT_EQ(test::decodedFrames(path(QStringLiteral("rescued.mov"))), int(summary->videoFrames));

    // A disk that is already full refuses at the start, and leaves no empty file behind.
    disk.fill();
    auto none = MovieWriter::create(disk.filePath(QStringLiteral("none.mov")), {.size = {64, 64}});
    ASSERT_FALSE(none.ok());
    EXPECT_EQ(none.error().reason, QStringLiteral("the disk is full"));
    EXPECT_FALSE(QFile::exists(disk.filePath(QStringLiteral("none.mov"))));
    // Nor does finishing a movie onto it.
    const auto onFullDisk = finalizeMovie(disk.filePath(QStringLiteral("full.mov")),
                                          disk.filePath(QStringLiteral("final.mov")));
    ASSERT_FALSE(onFullDisk.ok());
    EXPECT_EQ(onFullDisk.error().reason, QStringLiteral("the disk is full"));
    EXPECT_FALSE(QFile::exists(disk.filePath(QStringLiteral("final.mov"))));
}

} // namespace
} // namespace qm::media
