// The quillmark command on movie files: trimming in place and GIFs, with no display and no
// running Quillmark, as a script would run them.
#include "MovieProbe.h"
#include "TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace qm;
using namespace qm::test;

namespace {

const QString kPictures = QDir::homePath() + QStringLiteral("/Pictures/Quillmark");

ProcessResult quillmark(const QStringList& args) {
    return run(QStringLiteral(QUILLMARK_BINARY), args, std::chrono::seconds(60));
}

// Six seconds of a moving test picture and a tone, a key frame every two seconds.
QString makeMovie(const QTemporaryDir& dir, const QString& name = QStringLiteral("Clip.mov")) {
    const QString path = dir.filePath(name);
    run(QStringLiteral("ffmpeg"), {QStringLiteral("-v"),
                                   QStringLiteral("error"),
                                   QStringLiteral("-f"),
                                   QStringLiteral("lavfi"),
                                   QStringLiteral("-i"),
                                   QStringLiteral("testsrc2=size=320x240:rate=30"),
                                   QStringLiteral("-f"),
                                   QStringLiteral("lavfi"),
                                   QStringLiteral("-i"),
                                   QStringLiteral("sine=frequency=440:sample_rate=48000"),
                                   QStringLiteral("-t"),
                                   QStringLiteral("6"),
                                   QStringLiteral("-c:v"),
                                   QStringLiteral("libx264"),
                                   QStringLiteral("-g"),
                                   QStringLiteral("60"),
                                   QStringLiteral("-bf"),
                                   QStringLiteral("0"),
                                   QStringLiteral("-pix_fmt"),
                                   QStringLiteral("yuv420p"),
                                   QStringLiteral("-c:a"),
                                   QStringLiteral("aac"),
                                   QStringLiteral("-movflags"),
                                   QStringLiteral("+faststart"),
                                   path});
    return path;
}

QByteArray bytes(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

TEST(FileCommands, TrimCutsTheMovieInPlaceWithoutADisplayOrARunningQuillmark) {
    qunsetenv("DISPLAY");
    QTemporaryDir dir;
    const QString movie = makeMovie(dir);
    const auto trimmed =
        quillmark({QStringLiteral("trim"), movie, QStringLiteral("--from"), QStringLiteral("2"),
                   QStringLiteral("--to"), QStringLiteral("5")});
    ASSERT_EQ(trimmed.exitCode, 0) << trimmed.err.constData();
    EXPECT_EQ(QString::fromLocal8Bit(trimmed.out).trimmed(), movie);
    EXPECT_TRUE(trimmed.err.contains("Trimming"));
    const auto probed = probeMovie(movie);
    ASSERT_TRUE(probed.has_value());
    EXPECT_NEAR(probed->duration, 3.0, 0.05);

    // Bad input says why and leaves the file as it was.
    QFile notMovie(dir.filePath(QStringLiteral("notes.mov")));
    ASSERT_TRUE(notMovie.open(QIODevice::WriteOnly));
    notMovie.write("these are not pictures");
    notMovie.close();
    const auto refused =
        quillmark({QStringLiteral("trim"), notMovie.fileName(), QStringLiteral("--from"),
                   QStringLiteral("0"), QStringLiteral("--to"), QStringLiteral("1")});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_TRUE(refused.err.startsWith("Could not trim: ")) << refused.err.constData();
    EXPECT_EQ(refused.err.count('\n'), 1);
    EXPECT_EQ(bytes(notMovie.fileName()), QByteArray("these are not pictures"));
    const auto missing = quillmark(
        {QStringLiteral("trim"), dir.filePath(QStringLiteral("gone.mov")), QStringLiteral("--from"),
         QStringLiteral("0"), QStringLiteral("--to"), QStringLiteral("1")});
    EXPECT_EQ(missing.exitCode, 1);
    const auto mistake =
        quillmark({QStringLiteral("trim"), movie, QStringLiteral("--from"), QStringLiteral("3")});
    EXPECT_EQ(mistake.exitCode, 2);
}

TEST(FileCommands, AGifIsNamedAfterTheMovieInTheSaveFolderAndNeverReplacesOne) {
    qunsetenv("DISPLAY");
    QTemporaryDir dir;
    const QString movie = makeMovie(dir);
    QStringList written;
    for (int i = 0; i < 2; ++i) {
        const auto gif =
            quillmark({QStringLiteral("gif"), movie, QStringLiteral("--from"), QStringLiteral("1"),
                       QStringLiteral("--to"), QStringLiteral("3"), QStringLiteral("--fps"),
                       QStringLiteral("10"), QStringLiteral("--max-size"), QStringLiteral("160")});
        ASSERT_EQ(gif.exitCode, 0) << gif.err.constData();
        written << QString::fromLocal8Bit(gif.out).trimmed();
    }
    EXPECT_EQ(written, (QStringList{QDir(kPictures).filePath(QStringLiteral("Clip.gif")),
                                    QDir(kPictures).filePath(QStringLiteral("Clip 2.gif"))}));
    const auto probed = probeMovie(written.first());
    ASSERT_TRUE(probed.has_value());
    ASSERT_EQ(probed->of(QStringLiteral("video")).size(), 1u);
    const ProbedStream picture = probed->of(QStringLiteral("video")).front();
    EXPECT_EQ(picture.codec, QStringLiteral("gif"));
    EXPECT_EQ(QSize(picture.width, picture.height), QSize(160, 120));
    EXPECT_NEAR(probed->duration, 2.0, 0.05);

    // An explicit name that is taken is not replaced.
    const auto taken =
        quillmark({QStringLiteral("gif"), movie, QStringLiteral("-o"), written.first()});
    EXPECT_EQ(taken.exitCode, 1);
    EXPECT_TRUE(taken.err.startsWith("Couldn't create the GIF file")) << taken.err.constData();
    EXPECT_EQ(taken.err.count('\n'), 1);
}

} // namespace
