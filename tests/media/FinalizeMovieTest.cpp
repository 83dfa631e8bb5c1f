#include "MovieFixtures.h"
#include "TestSupport.h"
#include "media/MovieWriter.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace qm::media {
namespace {

using namespace std::chrono_literals;

class FinalizeMovieTest : public ::testing::Test {
protected:
    QString path(const QString& name) const { return m_dir.filePath(name); }

    // A recording of `seconds` with both sound tracks, finished or (finish = false) still
    // open when `whileOpen` runs.
    void record(const QString& name, MediaTime length,
                const std::function<void()>& whileOpen = {}) {
        auto writer = MovieWriter::create(
            path(name), {.size = {192, 108}, .systemAudio = true, .microphone = true});
        ASSERT_TRUE(writer.ok());
        test::feed(**writer, 192, 108, 0s, length, 1000, 2000, true, true);
        if (whileOpen)
            whileOpen();
        ASSERT_TRUE((*writer)->finish().ok());
    }

    static bool indexBeforeMedia(const QString& movie) {
        QFile file(movie);
        if (!file.open(QIODevice::ReadOnly))
            return false;
        const QByteArray bytes = file.readAll();
        const qsizetype moov = bytes.indexOf("moov"), mdat = bytes.indexOf("mdat");
        return moov >= 0 && mdat >= 0 && moov < mdat;
    }

    QTemporaryDir m_dir;
};

TEST_F(FinalizeMovieTest, AFinishedRecordingBecomesAMovieWithItsIndexInFront) {
    record(QStringLiteral("rec.mov"), 2s);
    const auto summary =
        finalizeMovie(path(QStringLiteral("rec.mov")), path(QStringLiteral("out.mov")));
    ASSERT_TRUE(summary.ok()) << summary.error().reason.toStdString();
    EXPECT_EQ(summary->videoFrames, 60u);
    EXPECT_NEAR(summary->durationSeconds, 2.0, 0.05);

    const QString out = path(QStringLiteral("out.mov"));
    EXPECT_TRUE(indexBeforeMedia(out));
    const QJsonArray streams = test::probeStreams(out);
    ASSERT_EQ(streams.size(), 3);
    EXPECT_EQ(streams[0][QLatin1String("codec_name")].toString(), QStringLiteral("h264"));
    EXPECT_EQ(streams[1][QLatin1String("codec_name")].toString(), QStringLiteral("aac"));
    EXPECT_EQ(streams[2][QLatin1String("codec_name")].toString(), QStringLiteral("aac"));
    EXPECT_EQ(test::decodedFrames(out), 60);
    // No re-encoding: the picture is the recording's, bit for bit, so the size barely moves.
    EXPECT_NEAR(double(QFile(out).size()), double(QFile(path(QStringLiteral("rec.mov"))).size()),
                0.1 * double(QFile(out).size()));
    EXPECT_GT(test::rms(test::decodeAudio(out, 0)), 0.3);

    // The output is never replaced.
    const auto again = finalizeMovie(path(QStringLiteral("rec.mov")), out);
    ASSERT_FALSE(again.ok());
    EXPECT_EQ(again.error().reason, QStringLiteral("a file of that name already exists"));
    EXPECT_EQ(test::decodedFrames(out), 60);
}

TEST_F(FinalizeMovieTest, ARecordingCutOffWhileWritingKeepsItsCompleteFragments) {
    const QString live = path(QStringLiteral("live.mov"));
    const QString copy = path(QStringLiteral("crashed.mov"));
    // The copy is what a crash or power loss at this moment would leave on disk.
    record(QStringLiteral("live.mov"), 3500ms, [&] { ASSERT_TRUE(QFile::copy(live, copy)); });

    const auto summary = finalizeMovie(copy, path(QStringLiteral("saved.mov")));
    ASSERT_TRUE(summary.ok()) << summary.error().reason.toStdString();
    // At most the last second (and the frames inside the encoder) is lost.
    EXPECT_GE(summary->durationSeconds, 2.0);
    EXPECT_LE(summary->durationSeconds, 3.5);
    EXPECT_GE(summary->videoFrames, 60u);
    EXPECT_EQ(test::decodedFrames(path(QStringLiteral("saved.mov"))), int(summary->videoFrames));
    EXPECT_EQ(test::probeStreams(path(QStringLiteral("saved.mov"))).size(), 3);
}

TEST_F(FinalizeMovieTest, AFileCutAtAnyByteKeepsWhatCameBeforeTheCut) {
    record(QStringLiteral("full.mov"), 3s);
    QFile full(path(QStringLiteral("full.mov")));
    ASSERT_TRUE(full.open(QIODevice::ReadOnly));
    const QByteArray bytes = full.readAll();

    std::uint64_t previous = 0;
    int n = 0;
    for (double share : {0.35, 0.5, 0.77, 0.999}) {
        const QString cut = path(QStringLiteral("cut%1.mov").arg(n));
        const QString out = path(QStringLiteral("out%1.mov").arg(n++));
        QFile file(cut);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes.left(qsizetype(double(bytes.size()) * share)));
        file.close();
        const auto summary = finalizeMovie(cut, out);
        ASSERT_TRUE(summary.ok()) << share << ": " << summary.error().reason.toStdString();
        EXPECT_GE(summary->videoFrames, previous) << share;
        EXPECT_LE(summary->videoFrames, 90u);
        // Every frame kept decodes: nothing of the broken fragment slipped in.
        EXPECT_EQ(test::decodedFrames(out), int(summary->videoFrames)) << share;
        previous = summary->videoFrames;
    }
    EXPECT_GE(previous, 60u);
}

TEST_F(FinalizeMovieTest, NoCompleteFrameIsAFailureThatLeavesNoFile) {
    record(QStringLiteral("full.mov"), 1s);
    QFile full(path(QStringLiteral("full.mov")));
    ASSERT_TRUE(full.open(QIODevice::ReadOnly));
    const QByteArray bytes = full.readAll();

    // Only the header; half of the header; a recording that never got a frame.
    QFile headerOnly(path(QStringLiteral("header.mov")));
    ASSERT_TRUE(headerOnly.open(QIODevice::WriteOnly));
    headerOnly.write(bytes.left(bytes.indexOf("moof") - 4));
    headerOnly.close();
    QFile half(path(QStringLiteral("half.mov")));
    ASSERT_TRUE(half.open(QIODevice::WriteOnly));
    half.write(bytes.left(bytes.indexOf("moov") + 40));
    half.close();
    {
        auto empty = MovieWriter::create(path(QStringLiteral("empty.mov")), {.size = {64, 64}});
        ASSERT_TRUE(empty.ok());
        ASSERT_TRUE((*empty)->finish().ok());
    }
    for (const char* name : {"header.mov", "half.mov", "empty.mov"}) {
        const QString out = path(QStringLiteral("out-") + QLatin1String(name));
        const auto summary = finalizeMovie(path(QLatin1String(name)), out);
        ASSERT_FALSE(summary.ok()) << name;
        EXPECT_EQ(summary.error().reason, QStringLiteral("the recording holds no complete frame"));
        EXPECT_FALSE(QFile::exists(out)) << name;
    }
    const auto missing =
        finalizeMovie(path(QStringLiteral("gone.mov")), path(QStringLiteral("x.mov")));
    ASSERT_FALSE(missing.ok());
    EXPECT_EQ(missing.error().reason,
              QStringLiteral("the recording could not be read: the file does not exist"));
}

} // namespace
} // namespace qm::media
