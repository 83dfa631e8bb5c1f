#include "media/gif/GIFExporter.h"

#include "GifFiles.h"
#include "ScratchMount.h"
#include "TestSupport.h"
#include "media/gif/GIFExportJob.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>
#include <gtest/gtest.h>
#include <numeric>

namespace qm::media {
namespace {

using test::gifFrames;
using test::readGif;

class GifExporterTest : public ::testing::Test {
protected:
    QString path(const QString& name) const { return m_dir.filePath(name); }

    // A movie of `seconds` of lavfi's moving test picture.
    QString movingMovie(const QString& name, QSize size, double seconds) {
        const QString movie = path(name);
        EXPECT_TRUE(test::makeMovie(movie, QStringLiteral("testsrc2=s=%1x%2:r=30:d=%3")
                                               .arg(size.width())
                                               .arg(size.height())
                                               .arg(seconds)));
        return movie;
    }

    Result<QString> exportTo(const QString& movie, GIFExporter::Range range,
                             GIFExporter::Output output, GIFExporter::Settings settings = {}) {
        return GIFExporter::exportRange(
            {.movie = movie, .range = range, .output = output, .settings = settings});
    }

    QStringList gifsIn(const QString& folder) const {
        return QDir(folder).entryList({QStringLiteral("*.gif")}, QDir::Files, QDir::Name);
    }

    QTemporaryDir m_dir;
};

QColor centre(const QImage& image) {
    return image.pixelColor(image.width() / 2, image.height() / 2);
}

// Red for the first second, green for the next, blue for the third; one key frame at the
// start, so a start in the middle must be decoded up to from there.
TEST_F(GifExporterTest, StartsExactlyWhereAskedAndShowsTheFrameOfEachMoment) {
    const QString movie = path(QStringLiteral("colours.mov"));
    ASSERT_TRUE(test::makeMovie(
        movie,
        QStringLiteral("color=c=red:s=160x120:r=30:d=1[a];color=c=lime:s=160x120:r=30:d=1[b];"
                       "color=c=blue:s=160x120:r=30:d=1[c];[a][b][c]concat=n=3"),
        300));
    const auto gif =
        exportTo(movie, {0.75, 1.5}, GIFExporter::ToFile{path(QStringLiteral("c.gif"))},
                 {.fps = 4, .maxDimension = 960});
    ASSERT_TRUE(gif.ok()) << gif.error().reason.toStdString();

    // Frames at 0.75, 1.0, 1.25, 1.5, 1.75 and 2.0 s: the frame that starts at 1.0 s is shown
    // at 1.0 s.
    const auto frames = gifFrames(*gif);
    ASSERT_EQ(frames.size(), 6u);
    const char expected[] = "rggggb";
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const QColor c = centre(frames[i]);
        const char seen = c.red() > 200 ? 'r' : c.green() > 200 ? 'g' : c.blue() > 200 ? 'b' : '?';
        EXPECT_EQ(seen, expected[i]) << "frame " << i;
    }
    const auto facts = readGif(*gif);
    EXPECT_EQ(facts.loopCount, 0); // forever
    EXPECT_EQ(facts.delays, std::vector<int>(6, 25));
}

// Later frames carry only what changed, over a transparent rest: drawn one over the other
// they must still be the movie's frames.
TEST_F(GifExporterTest, FramesBuiltFromChangedPartsLookLikeTheMovie) {
    const QString movie = movingMovie(QStringLiteral("moving.mov"), {320, 240}, 2);
    const auto gif = exportTo(movie, {0.5, 1.0}, GIFExporter::ToFile{path(QStringLiteral("m.gif"))},
                              {.fps = 10, .maxDimension = 960});
    ASSERT_TRUE(gif.ok()) << gif.error().reason.toStdString();
    const auto frames = gifFrames(*gif);
    const auto source = test::movieFrames(movie, 15, 3, 10, {320, 240});
    ASSERT_EQ(frames.size(), 10u);
    ASSERT_EQ(source.size(), 10u);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        EXPECT_LT(test::meanDifference(frames[i], source[i]), 6.0) << "frame " << i;
        // …and it is that frame, not a neighbour.
        if (i + 1 < source.size()) {
            EXPECT_LT(test::meanDifference(frames[i], source[i]),
                      test::meanDifference(frames[i], source[i + 1]))
                << "frame " << i;
        }
    }
}

// Smooth gradients need more colours than a GIF frame has: they are dithered, and still look
// like the movie (a palette or a remap gone wrong would not).
TEST_F(GifExporterTest, GradientsThatNeedMoreColoursStillLookLikeTheMovie) {
    const QString movie = path(QStringLiteral("gradients.mov"));
    ASSERT_TRUE(test::makeMovie(
        movie, QStringLiteral("gradients=s=320x240:r=30:speed=0.05:nb_colors=8,trim=duration=1")));
    const auto gif = exportTo(movie, {0, 1.0}, GIFExporter::ToFile{path(QStringLiteral("g.gif"))},
                              {.fps = 5, .maxDimension = 960});
    ASSERT_TRUE(gif.ok()) << gif.error().reason.toStdString();
    const auto frames = gifFrames(*gif);
    const auto source = test::movieFrames(movie, 0, 6, 5, {320, 240});
    ASSERT_EQ(frames.size(), 5u);
    ASSERT_EQ(source.size(), 5u);
    for (std::size_t i = 0; i < frames.size(); ++i)
        EXPECT_LT(test::meanDifference(frames[i], source[i]), 4.0) << "frame " << i;
}

TEST_F(GifExporterTest, AStillScreenWithALittleMovementCostsLittle) {
    const QString movie = path(QStringLiteral("still.mov"));
    ASSERT_TRUE(test::makeMovie(
        movie, QStringLiteral("testsrc2=s=320x240:r=30:d=2,trim=end_frame=1,tpad=stop=-1,"
                              "drawbox=x='20+t*60':y=100:w=16:h=16:color=black:t=fill,"
                              "trim=duration=2")));
    const auto two = exportTo(movie, {0, 0.2}, GIFExporter::ToFile{path(QStringLiteral("two.gif"))},
                              {.fps = 10, .maxDimension = 960});
    const auto twenty =
        exportTo(movie, {0, 2.0}, GIFExporter::ToFile{path(QStringLiteral("twenty.gif"))},
                 {.fps = 10, .maxDimension = 960});
    ASSERT_TRUE(two.ok() && twenty.ok());
    EXPECT_EQ(readGif(*twenty).delays.size(), 20u);
    // Eighteen more frames of a moving square cost far less than one whole picture.
    EXPECT_LT(QFile(*twenty).size(), QFile(*two).size() * 3 / 2);
    // Every frame is the movie's, up to the square's last edge.
    const auto frames = gifFrames(*twenty);
    const auto source = test::movieFrames(movie, 0, 3, 20, {320, 240});
    ASSERT_EQ(frames.size(), 20u);
    ASSERT_EQ(source.size(), 20u);
    for (std::size_t i = 0; i < frames.size(); ++i)
        EXPECT_EQ(test::pixelsOff(frames[i], source[i], 64), 0) << "frame " << i;
}

TEST_F(GifExporterTest, FrameCountAndDelaysAddUpToTheRange) {
    const QString movie = movingMovie(QStringLiteral("m.mov"), {160, 120}, 3);
    struct Case {
        double seconds, fps;
        int frames, hundredths;
    };
    // 12 fps: 8 or 9 hundredths a frame, 30 frames in exactly 2.5 s. 7 fps: 14 or 15.
    // A range shorter than two frames still makes two, each one frame long.
    for (const Case c : {Case{2.5, 12, 30, 250}, Case{1.0, 7, 7, 100}, Case{0.06, 10, 2, 20}}) {
        const QString out = path(QStringLiteral("%1-%2.gif").arg(c.seconds).arg(c.fps));
        const auto gif = exportTo(movie, {0.2, c.seconds}, GIFExporter::ToFile{out},
                                  {.fps = c.fps, .maxDimension = 960});
        ASSERT_TRUE(gif.ok()) << gif.error().reason.toStdString();
        const auto delays = readGif(out).delays;
        EXPECT_EQ(int(delays.size()), c.frames) << c.seconds << " s at " << c.fps;
        EXPECT_EQ(std::accumulate(delays.begin(), delays.end(), 0), c.hundredths);
        const int shortest = int(100 / c.fps);
        for (int delay : delays)
            EXPECT_TRUE(delay == shortest || delay == shortest + 1) << delay;
    }
    const auto tooShort =
        exportTo(movie, {1, 0.05}, GIFExporter::ToFile{path(QStringLiteral("short.gif"))});
    ASSERT_FALSE(tooShort.ok());
    EXPECT_EQ(tooShort.error().reason, GIFExporter::tooShortMessage());
    EXPECT_FALSE(QFile::exists(path(QStringLiteral("short.gif"))));
}

TEST_F(GifExporterTest, NoSideGrowsBeyondTheLimitAndSmallMoviesKeepTheirSize) {
    struct Case {
        QSize movie;
        double maxDimension;
        QSize gif;
    };
    for (const Case c : {Case{{640, 360}, 160, {160, 90}}, Case{{240, 320}, 160, {120, 160}},
                         Case{{160, 120}, 640, {160, 120}}}) {
        const QString name = QStringLiteral("%1x%2").arg(c.movie.width()).arg(c.movie.height());
        const QString movie = movingMovie(name + QStringLiteral(".mov"), c.movie, 0.5);
        const auto gif = exportTo(movie, {0, 0.3}, GIFExporter::IntoFolder{m_dir.path()},
                                  {.fps = 10, .maxDimension = c.maxDimension});
        ASSERT_TRUE(gif.ok()) << gif.error().reason.toStdString();
        EXPECT_EQ(readGif(*gif).size, c.gif) << name.toStdString();
    }
}

TEST_F(GifExporterTest, NamesAfterTheMovieWithoutReplacingAnything) {
    const QString movie = movingMovie(QStringLiteral("Clip.mov"), {160, 120}, 1);
    const QString folder = path(QStringLiteral("Captures"));
    const auto first = exportTo(movie, {0, 0.5}, GIFExporter::IntoFolder{folder});
    ASSERT_TRUE(first.ok()) << first.error().reason.toStdString();
    EXPECT_EQ(*first, QDir(folder).filePath(QStringLiteral("Clip.gif")));

    QFile taken(QDir(folder).filePath(QStringLiteral("Clip 2.gif")));
    ASSERT_TRUE(taken.open(QIODevice::WriteOnly));
    taken.write("not ours");
    taken.close();
    const auto third = exportTo(movie, {0, 0.5}, GIFExporter::IntoFolder{folder});
    ASSERT_TRUE(third.ok());
    EXPECT_EQ(*third, QDir(folder).filePath(QStringLiteral("Clip 3.gif")));
    ASSERT_TRUE(taken.open(QIODevice::ReadOnly));
    EXPECT_EQ(taken.readAll(), QByteArray("not ours"));
    taken.close();

    // An exact path that exists is refused, and the file stays as it was.
    const auto refused = exportTo(movie, {0, 0.5}, GIFExporter::ToFile{taken.fileName()});
    ASSERT_FALSE(refused.ok());
    EXPECT_TRUE(refused.error().reason.startsWith(GIFExporter::cannotCreateMessage()));
    ASSERT_TRUE(taken.open(QIODevice::ReadOnly));
    EXPECT_EQ(taken.readAll(), QByteArray("not ours"));
}

TEST_F(GifExporterTest, CancellingLeavesNoFile) {
    const QString movie = movingMovie(QStringLiteral("Clip.mov"), {160, 120}, 2);
    std::atomic<bool> cancel = false;
    int reports = 0;
    const auto result =
        GIFExporter::exportRange({.movie = movie,
                                  .range = {0, 2},
                                  .output = GIFExporter::IntoFolder{path(QStringLiteral("out"))},
                                  .settings = {.fps = 10, .maxDimension = 960},
                                  .progress =
                                      [&](double fraction) {
                                          ++reports;
                                          EXPECT_GT(fraction, 0);
                                          if (fraction >= 0.25)
                                              cancel = true;
                                      },
                                  .cancel = &cancel});
    ASSERT_FALSE(result.ok());
    EXPECT_EQ(result.error().reason, GIFExporter::cancelledMessage());
    EXPECT_EQ(reports, 5);
    EXPECT_TRUE(gifsIn(path(QStringLiteral("out"))).isEmpty());
}

TEST_F(GifExporterTest, AReadOnlyFolderSaysTheFileCouldNotBeMade) {
    test::ScratchMount disk;
    if (!disk.ok() || !disk.setReadOnly(true))
        GTEST_SKIP() << "mounting a read-only disk needs root";
    const QString movie = movingMovie(QStringLiteral("Clip.mov"), {160, 120}, 1);
    const auto result = exportTo(movie, {0, 0.5}, GIFExporter::IntoFolder{disk.path()});
    ASSERT_FALSE(result.ok());
    EXPECT_EQ(result.error().reason,
              GIFExporter::cannotCreateMessage() + QStringLiteral(": the disk is read-only"));
    EXPECT_TRUE(gifsIn(disk.path()).isEmpty());
}

TEST_F(GifExporterTest, AFileThatIsNoMovieOrHasNoPictureSaysSoAndLeavesNoFile) {
    QFile text(path(QStringLiteral("notes.mov")));
    ASSERT_TRUE(text.open(QIODevice::WriteOnly));
    text.write("shopping list\n");
    text.close();
    const QString sound = path(QStringLiteral("sound.mov"));
    ASSERT_EQ(test::run(QStringLiteral("ffmpeg"),
                        {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-f"),
                         QStringLiteral("lavfi"), QStringLiteral("-i"), QStringLiteral("sine=d=1"),
                         QStringLiteral("-c:a"), QStringLiteral("aac"), sound})
                  .exitCode,
              0);
    const QString folder = path(QStringLiteral("out"));
    const auto notMovie = exportTo(text.fileName(), {0, 1}, GIFExporter::IntoFolder{folder});
    ASSERT_FALSE(notMovie.ok());
    EXPECT_EQ(notMovie.error().reason,
              QStringLiteral("The file is not a movie Quillmark can read"));
    const auto noPicture = exportTo(sound, {0, 1}, GIFExporter::IntoFolder{folder});
    ASSERT_FALSE(noPicture.ok());
    EXPECT_EQ(noPicture.error().reason, QStringLiteral("The movie has no picture"));
    EXPECT_TRUE(gifsIn(folder).isEmpty());
    EXPECT_FALSE(GIFExporter::movieDuration(sound).ok());
}

TEST_F(GifExporterTest, WithoutAnEndTheRangeRunsToTheEndOfTheMovie) {
    const QString movie = movingMovie(QStringLiteral("Clip.mov"), {160, 120}, 2);
    const auto length = GIFExporter::movieDuration(movie);
    ASSERT_TRUE(length.ok());
    EXPECT_NEAR(*length, 2.0, 0.05);
    const auto gif =
        exportTo(movie, {0.5, std::nullopt}, GIFExporter::ToFile{path(QStringLiteral("end.gif"))},
                 {.fps = 10, .maxDimension = 960});
    ASSERT_TRUE(gif.ok()) << gif.error().reason.toStdString();
    EXPECT_EQ(readGif(*gif).delays.size(), 15u);
}

TEST_F(GifExporterTest, AJobReportsOnTheCallersThreadAndClosingItMidwayLeavesNoFile) {
    const QString movie = movingMovie(QStringLiteral("Clip.mov"), {320, 240}, 4);
    const QString folder = path(QStringLiteral("out"));
    QObject window;
    std::optional<Result<QString>> outcome;
    double lastProgress = 0;
    bool allOnMainThread = true;
    const GIFExporter::Request request{.movie = movie,
                                       .range = {0, 0.5},
                                       .output = GIFExporter::IntoFolder{folder},
                                       .settings = {.fps = 10, .maxDimension = 960}};
    {
        GIFExportJob job(
            request, &window,
            [&](double fraction) {
                allOnMainThread &= QThread::currentThread() == window.thread();
                lastProgress = std::max(lastProgress, fraction);
            },
            [&](const Result<QString>& written) {
                allOnMainThread &= QThread::currentThread() == window.thread();
                outcome = written;
            });
        ASSERT_TRUE(test::waitUntil([&] { return outcome.has_value(); }));
    }
    ASSERT_TRUE(outcome->ok());
    EXPECT_EQ(**outcome, QDir(folder).filePath(QStringLiteral("Clip.gif")));
    EXPECT_EQ(lastProgress, 1.0);
    EXPECT_TRUE(allOnMainThread);

    // The window closes while a long export runs.
    QFile::remove(**outcome);
    outcome.reset();
    bool started = false;
    {
        GIFExportJob job(
            {.movie = movie,
             .range = {0, 4},
             .output = GIFExporter::IntoFolder{folder},
             .settings = {.fps = 50, .maxDimension = 960}},
            &window, [&](double) { started = true; },
            [&](const Result<QString>& written) { outcome = written; });
        ASSERT_TRUE(test::waitUntil([&] { return started; }));
    }
    QCoreApplication::processEvents();
    EXPECT_FALSE(outcome.has_value() && outcome->ok()) << "finished before it was closed";
    EXPECT_TRUE(gifsIn(folder).isEmpty());
}

} // namespace
} // namespace qm::media
