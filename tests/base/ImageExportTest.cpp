#include "base/ImageExport.h"

#include "TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTimeZone>
#include <gtest/gtest.h>

using namespace qm;

namespace {

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

TEST(ImageExportSave, WritesCompleteFilesAndReplacesWithinTheSameSecond) {
    QTemporaryDir dir;
    const QString folder = dir.filePath(QStringLiteral("new/folder"));
    const QImage first = test::makeScreenshotLikeImage(301, 177);
    const QImage second = solid(64, 48, QColor(200, 30, 40));

    // Two saves in the same second share a name; retry if a second boundary falls between.
    std::optional<QString> a, b;
    for (int attempt = 0; attempt < 5 && (!a || a != b); ++attempt) {
        a = ImageExport::savePNG(first, ImageExport::screenshotPrefix, folder);
        b = ImageExport::savePNG(second, ImageExport::screenshotPrefix, folder);
        ASSERT_TRUE(a && b);
        if (a != b) {
            QFile::remove(*a);
            QFile::remove(*b);
        }
    }
    ASSERT_EQ(a, b);
    EXPECT_TRUE(QFileInfo(*b).fileName().startsWith(QStringLiteral("Quillmark 20")));
    EXPECT_TRUE(b->endsWith(QStringLiteral(".png")));
    // Only the final file is left: no temporary siblings, and it holds the second image.
    EXPECT_EQ(QDir(folder).entryList(QDir::Files | QDir::Hidden),
              QStringList{QFileInfo(*b).fileName()});
    EXPECT_TRUE(samePixels(QImage(*b), second));
}

TEST(ImageExportSave, FailureIsLoggedAndReturnsNothing) {
    QTemporaryDir dir;
    // A regular file where the folder should be: neither mkdir nor the write can succeed.
    const QString blocker = dir.filePath(QStringLiteral("blocker"));
    QFile f(blocker);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.close();
    test::LogCapture log;
    EXPECT_FALSE(
        ImageExport::savePNG(solid(4, 4, Qt::red), ImageExport::screenshotPrefix, blocker));
    EXPECT_TRUE(log.contains(QStringLiteral("Quillmark save error: ")));
    EXPECT_FALSE(ImageExport::savePNG(QImage(), ImageExport::screenshotPrefix, dir.path()));
}

TEST(ImageExportSave, TemporaryPngGoesToTheTempFolder) {
    const QImage image = solid(10, 10, Qt::blue);
    const auto path = ImageExport::writeTempPNG(image, ImageExport::screenshotPrefix);
    ASSERT_TRUE(path);
    EXPECT_EQ(QFileInfo(*path).absolutePath(), QFileInfo(QDir::tempPath()).absoluteFilePath());
    EXPECT_TRUE(samePixels(QImage(*path), image));
    QFile::remove(*path);
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

TEST(ImageExportRecording, MovesIntoTheFolderReplacingAnOlderFile) {
    QTemporaryDir dir;
    const QString name = QStringLiteral("Quillmark Recording 2026-11-15 at 20.31.05.mov");
    const QString temp = dir.filePath(name);
    const QString folder = dir.filePath(QStringLiteral("out"));
    QDir().mkpath(folder);
    for (const auto& [path, bytes] : {std::pair{temp, QByteArray("new")},
                                      std::pair{QDir(folder).filePath(name), QByteArray("old")}}) {
        QFile f(path);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(bytes);
    }
    const QString result = ImageExport::moveFinishedRecording(temp, folder);
    EXPECT_EQ(result, QDir(folder).filePath(name));
    QFile moved(result);
    ASSERT_TRUE(moved.open(QIODevice::ReadOnly));
    EXPECT_EQ(moved.readAll(), QByteArray("new"));
    EXPECT_FALSE(QFile::exists(temp));
}

TEST(ImageExportRecording, FailedMoveKeepsTheTemporaryFile) {
    QTemporaryDir dir;
    const QString temp = dir.filePath(QStringLiteral("rec.mov"));
    QFile(temp).open(QIODevice::WriteOnly);
    const QString blocker = dir.filePath(QStringLiteral("blocker"));
    QFile(blocker).open(QIODevice::WriteOnly);
    test::LogCapture log;
    EXPECT_EQ(ImageExport::moveFinishedRecording(temp, blocker), temp);
    EXPECT_TRUE(QFile::exists(temp));
    EXPECT_TRUE(log.contains(QStringLiteral("Quillmark recording move failed, keeping temp: ")));
}

} // namespace
