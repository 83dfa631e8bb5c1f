#include "base/ImageExport.h"

#include "ScratchMount.h"
#include "TestSupport.h"
#include "base/BackgroundExport.h"
#include "base/SafeWrite.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QSet>
#include <QTemporaryDir>
#include <QThread>
#include <QTimeZone>
#include <gtest/gtest.h>
#include <thread>

using namespace qm;

namespace {

using test::ScratchMount;

QImage solid(int w, int h, QColor c) {
    QImage image(w, h, QImage::Format_RGB32);
    image.fill(c);
    return image;
}

bool samePixels(const QImage& a, const QImage& b) {
    return a.convertToFormat(QImage::Format_ARGB32) == b.convertToFormat(QImage::Format_ARGB32);
}

TEST(ImageExportNaming, TwoDigitTwentyFourHourTimestamps) {
    const QDateTime morning(QDate(2026, 1, 2), QTime(9, 5, 3), Qt::LocalTime);
    EXPECT_EQ(ImageExport::fileName(ImageExport::screenshotPrefix, QStringLiteral(".png"), morning),
              QStringLiteral("Quillmark 2026-01-02 at 09.05.03.png"));
    const QDateTime evening(QDate(2026, 11, 15), QTime(20, 31, 5), Qt::LocalTime);
    EXPECT_EQ(ImageExport::fileName(ImageExport::recordingPrefix, QStringLiteral(".mov"), evening),
              QStringLiteral("Quillmark Recording 2026-11-15 at 20.31.05.mov"));
    // A UTC time is named in local time.
    EXPECT_EQ(ImageExport::timestamp(evening.toUTC()), QStringLiteral("2026-11-15 at 20.31.05"));
}

// A small file system of its own for the test (we run as root here and in CI); nothing
// when mounting is refused.
QStringList everything(const QString& folder) {
    return QDir(folder).entryList(QDir::Files | QDir::Hidden, QDir::Name);
}

TEST(ImageExportSave, ATakenNameGetsTheNextNumberAndNothingIsReplaced) {
    QTemporaryDir dir;
    const QString folder = dir.filePath(QStringLiteral("new/folder"));
    const QString stem = QStringLiteral("Quillmark 2026-11-15 at 20.31.05");
    std::vector<QString> paths;
    for (const char* bytes : {"first", "second", "third"}) {
        const auto path =
            SafeWrite::writeNewFile(folder, stem, QStringLiteral(".png"), QByteArray(bytes));
        ASSERT_TRUE(path) << path.error().reason.toStdString();
        paths.push_back(*path);
    }
    EXPECT_EQ(everything(folder),
              (QStringList{stem + QStringLiteral(" 2.png"), stem + QStringLiteral(" 3.png"),
                           stem + QStringLiteral(".png")}))
        << "no temporary file is left behind";
    const std::vector<QByteArray> expected{"first", "second", "third"};
    for (size_t i = 0; i < paths.size(); ++i) {
        QFile file(paths[i]);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        EXPECT_EQ(file.readAll(), expected[i]);
    }

    // Screenshots saved back to back in one second keep both pictures.
    const QImage a = test::makeScreenshotLikeImage(301, 177);
    const QImage b = solid(64, 48, QColor(200, 30, 40));
    const auto savedA = ImageExport::savePNG(a, ImageExport::screenshotPrefix, folder);
    const auto savedB = ImageExport::savePNG(b, ImageExport::screenshotPrefix, folder);
    ASSERT_TRUE(savedA && savedB);
    EXPECT_NE(*savedA, *savedB);
    EXPECT_TRUE(QFileInfo(*savedB).fileName().startsWith(QStringLiteral("Quillmark 20")));
    EXPECT_TRUE(samePixels(QImage(*savedA), a));
    EXPECT_TRUE(samePixels(QImage(*savedB), b));
}

TEST(ImageExportSave, WritersRacingForOneNameEachGetTheirOwnFile) {
    QTemporaryDir dir;
    constexpr int kWriters = 8;
    std::vector<std::optional<QString>> paths(kWriters);
    {
        std::vector<std::jthread> writers;
        for (int i = 0; i < kWriters; ++i)
            writers.emplace_back([&, i] {
                const auto path = SafeWrite::writeNewFile(dir.path(), QStringLiteral("Quillmark"),
                                                          QStringLiteral(".png"),
                                                          QByteArray(100000, char('a' + i)));
                if (path)
                    paths[i] = *path;
            });
    }
    QSet<QString> distinct;
    for (int i = 0; i < kWriters; ++i) {
        ASSERT_TRUE(paths[i]);
        distinct.insert(*paths[i]);
        QFile file(*paths[i]);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        EXPECT_EQ(file.readAll(), QByteArray(100000, char('a' + i)));
    }
    EXPECT_EQ(distinct.size(), kWriters);
    EXPECT_EQ(everything(dir.path()).size(), kWriters);
}

TEST(ImageExportSave, OverwritingReplacesOnlyThatFileAndKeepsItsPermissions) {
    QTemporaryDir dir;
    const auto path =
        ImageExport::savePNG(solid(8, 8, Qt::red), ImageExport::screenshotPrefix, dir.path());
    ASSERT_TRUE(path);
    QFile::setPermissions(*path, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup);
    ASSERT_TRUE(ImageExport::overwritePNG(solid(8, 8, Qt::blue), *path).ok());
    EXPECT_TRUE(samePixels(QImage(*path), solid(8, 8, Qt::blue)));
    EXPECT_EQ(everything(dir.path()), QStringList{QFileInfo(*path).fileName()});
    EXPECT_EQ(QFile::permissions(*path) & 0x7077, // owner, group, others
              QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup);
}

TEST(ImageExportSave, AFailureSaysWhyAndIsLogged) {
    QTemporaryDir dir;
    // A regular file where the folder should be: neither mkdir nor the write can succeed.
    const QString blocker = dir.filePath(QStringLiteral("blocker"));
    QFile f(blocker);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.close();
    test::LogCapture log;
    const auto blocked = ImageExport::savePNG(solid(4, 4, Qt::red), ImageExport::screenshotPrefix,
                                              blocker + QStringLiteral("/Shots"));
    ASSERT_FALSE(blocked);
    EXPECT_EQ(blocked.error().reason, blocker + QStringLiteral(" is a file"));
    EXPECT_TRUE(log.contains(QStringLiteral("Quillmark save error: ") + blocker +
                             QStringLiteral(" is a file")));
    EXPECT_FALSE(ImageExport::savePNG(QImage(), ImageExport::screenshotPrefix, dir.path()));

    // The folder of an edited capture went away.
    const auto gone =
        ImageExport::overwritePNG(solid(4, 4, Qt::red), dir.filePath(QStringLiteral("gone/x.png")));
    ASSERT_FALSE(gone.ok());
    EXPECT_EQ(gone.error().reason,
              dir.filePath(QStringLiteral("gone")) + QStringLiteral(" does not exist"));

    // Folders in the home folder are named from there, as the user knows them.
    EXPECT_EQ(SafeWrite::describeErrno(EACCES, QDir::homePath() + QStringLiteral("/Pictures/Q")),
              QStringLiteral("Pictures/Q is read-only"));
}

TEST(ImageExportSave, AFullDiskOrAReadOnlyOneLeavesNoPartialFile) {
    ScratchMount full(QStringLiteral("size=64k"));
    if (!full.ok())
        GTEST_SKIP() << "mounting a small tmpfs was refused (needs root)";
    // Noise does not compress: far more than 64 KiB of PNG.
    QImage noise(400, 400, QImage::Format_RGB32);
    for (int y = 0; y < noise.height(); ++y)
        for (int x = 0; x < noise.width(); ++x)
            noise.setPixel(x, y, QRandomGenerator::global()->generate());
    const auto saved = ImageExport::savePNG(noise, ImageExport::screenshotPrefix, full.path());
    ASSERT_FALSE(saved);
    EXPECT_EQ(saved.error().reason, QStringLiteral("the disk is full"));
    EXPECT_TRUE(everything(full.path()).isEmpty());

    ScratchMount readOnly(QStringLiteral("size=64k,ro"));
    ASSERT_TRUE(readOnly.ok());
    const auto refused =
        ImageExport::savePNG(solid(4, 4, Qt::red), ImageExport::screenshotPrefix, readOnly.path());
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().reason, readOnly.path() + QStringLiteral(" is read-only"));
}

TEST(ImageExportSave, TemporaryPngGoesToTheTempFolder) {
    const QImage image = solid(10, 10, Qt::blue);
    const auto path = ImageExport::writeTempPNG(image, ImageExport::screenshotPrefix);
    ASSERT_TRUE(path);
    EXPECT_EQ(QFileInfo(*path).absolutePath(), QFileInfo(QDir::tempPath()).absoluteFilePath());
    EXPECT_TRUE(samePixels(QImage(*path), image));
    QFile::remove(*path);
}

TEST(ImageExportBackground, EncodesOnceAndReportsBytesThenTheFileOnThisThread) {
    QTemporaryDir dir;
    const QImage image = test::makeScreenshotLikeImage(640, 400);
    QObject context;
    std::optional<QByteArray> encoded;
    std::optional<Result<QString>> saved;
    bool encodedFirst = false;
    BackgroundExport::encodeAndSave(image, dir.path(), &context,
                                    {[&](const QByteArray& png) {
                                         EXPECT_EQ(QThread::currentThread(), context.thread());
                                         encoded = png;
                                     },
                                     [&](const Result<QString>& path) {
                                         EXPECT_EQ(QThread::currentThread(), context.thread());
                                         encodedFirst = encoded.has_value();
                                         saved = path;
                                     }});
    ASSERT_TRUE(test::waitUntil([&] { return saved.has_value(); }));
    EXPECT_TRUE(encodedFirst);
    ASSERT_TRUE(*saved);
    QFile file(saved->value());
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), *encoded) << "the file holds the very bytes the clipboard gets";
}

TEST(ImageExportClipboard, OtherProgramsReadTheExactPng) {
    const QImage image = test::makeScreenshotLikeImage(320, 200, /*withAlpha=*/true);
    ImageExport::copyToPasteboard(image);

    const auto targets =
        test::run(QStringLiteral("xclip"),
                  {QStringLiteral("-selection"), QStringLiteral("clipboard"), QStringLiteral("-t"),
                   QStringLiteral("TARGETS"), QStringLiteral("-o")});
    ASSERT_EQ(targets.exitCode, 0) << targets.err.constData();
    EXPECT_TRUE(targets.out.contains("image/png"));

    const auto png =
        test::run(QStringLiteral("xclip"),
                  {QStringLiteral("-selection"), QStringLiteral("clipboard"), QStringLiteral("-t"),
                   QStringLiteral("image/png"), QStringLiteral("-o")});
    ASSERT_EQ(png.exitCode, 0) << png.err.constData();
    EXPECT_EQ(png.out, ImageExport::pngData(image).value());
    EXPECT_TRUE(samePixels(QImage::fromData(png.out, "PNG"), image));
}

QByteArray contents(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

void put(const QString& path, const QByteArray& bytes) {
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write(bytes);
}

TEST(SafeWriteMove, AFinishedFileTakesTheNextFreeNameAndNothingIsReplaced) {
    QTemporaryDir dir;
    const QString folder = dir.filePath(QStringLiteral("out/Quillmark"));
    const QString stem = QStringLiteral("Quillmark Recording 2026-11-15 at 20.31.05");
    const QString first = dir.filePath(QStringLiteral("first.mov"));
    const QString second = dir.filePath(QStringLiteral("second.mov"));
    put(first, "one");
    put(second, "two");
    const auto a = SafeWrite::moveNewFile(first, folder, stem, QStringLiteral(".mov"));
    const auto b = SafeWrite::moveNewFile(second, folder, stem, QStringLiteral(".mov"));
    ASSERT_TRUE(a.ok() && b.ok());
    EXPECT_EQ(QFileInfo(*a).fileName(), stem + QStringLiteral(".mov"));
    EXPECT_EQ(QFileInfo(*b).fileName(), stem + QStringLiteral(" 2.mov"));
    EXPECT_EQ(contents(*a), "one");
    EXPECT_EQ(contents(*b), "two");
    EXPECT_FALSE(QFile::exists(first) || QFile::exists(second));
}

TEST(SafeWriteMove, AcrossFileSystemsTheCopyIsCompleteBeforeTheOriginalGoes) {
    ScratchMount other(QStringLiteral("size=4m"));
    if (!other.ok())
        GTEST_SKIP() << "mounting a small tmpfs was refused (needs root)";
    QTemporaryDir dir;
    const QString source = dir.filePath(QStringLiteral("movie.mov"));
    QByteArray bytes(3 * 1024 * 1024 + 17, '\0');
    for (int i = 0; i < bytes.size(); ++i)
        bytes[i] = char(i * 31);
    put(source, bytes);
    const auto moved = SafeWrite::moveNewFile(source, other.path(), QStringLiteral("movie"),
                                              QStringLiteral(".mov"));
    ASSERT_TRUE(moved.ok()) << moved.error().reason.toStdString();
    EXPECT_EQ(contents(*moved), bytes);
    EXPECT_FALSE(QFile::exists(source));

    // A folder too small for it: the original stays, the reason is the full disk, and no
    // partial copy is left behind.
    put(source, bytes + bytes);
    const auto full =
        SafeWrite::moveNewFile(source, other.path(), QStringLiteral("big"), QStringLiteral(".mov"));
    ASSERT_FALSE(full.ok());
    EXPECT_EQ(full.error().reason, QStringLiteral("the disk is full"));
    EXPECT_EQ(contents(source), bytes + bytes);
    EXPECT_EQ(QDir(other.path()).entryList(QDir::Files | QDir::Hidden).size(), 1);
}

} // namespace
