#include "TestSupport.h"
#include "library/catalog/CaptureEntry.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace qm::library;

namespace {

void touch(const QString& path, const QDateTime& modified, const QByteArray& content = {}) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
    file.write(content);
    file.flush();
    ASSERT_TRUE(file.setFileTime(modified, QFileDevice::FileModificationTime));
}

void image(const QString& path, QSize size, const char* format, const QDateTime& modified) {
    QImage picture(size, QImage::Format_RGB32);
    picture.fill(Qt::darkCyan);
    ASSERT_TRUE(picture.save(path, format));
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    ASSERT_TRUE(file.setFileTime(modified, QFileDevice::FileModificationTime));
}

} // namespace

// Only the captures directly in the folder count: kinds by extension whatever its case, no
// hidden files, no folders even with a capture's name, nothing from sub-folders.
TEST(CaptureList, ListsCapturesOfTheFolderOnlyNewestFirst) {
    QTemporaryDir dir;
    const QDateTime base = QDateTime(QDate(2026, 3, 29), QTime(1, 30), Qt::LocalTime);
    image(dir.filePath(u"a.PNG"_s), {3, 2}, "PNG", base);
    touch(dir.filePath(u"b.mov"_s), base.addSecs(60));
    touch(dir.filePath(u"c.txt"_s), base.addSecs(120));
    image(dir.filePath(u".d.png"_s), {4, 4}, "PNG", base.addSecs(180));
    ASSERT_TRUE(QDir(dir.path()).mkdir(u"e.png"_s));
    image(dir.filePath(u"e.png/inner.png"_s), {4, 4}, "PNG", base.addSecs(240));
    image(dir.filePath(u"photo.JPEG"_s), {17, 9}, "JPEG", base.addSecs(-60));
    touch(dir.filePath(u"broken.png"_s), base.addSecs(-120), "not an image at all");
    touch(dir.filePath(u"clip.M4V"_s), base.addSecs(-180));

    const auto entries = scanCaptures(dir.path());
    const std::vector<CaptureEntry> expected = {
        {dir.filePath(u"b.mov"_s), MediaKind::Videos, base.addSecs(60), 0, 0},
        {dir.filePath(u"a.PNG"_s), MediaKind::Images, base, 3, 2},
        {dir.filePath(u"photo.JPEG"_s), MediaKind::Images, base.addSecs(-60), 17, 9},
        {dir.filePath(u"broken.png"_s), MediaKind::Images, base.addSecs(-120), 0, 0},
        {dir.filePath(u"clip.M4V"_s), MediaKind::Videos, base.addSecs(-180), 0, 0},
    };
    ASSERT_EQ(entries.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(entries[i].path, expected[i].path) << i;
        EXPECT_EQ(entries[i].kind, expected[i].kind) << i;
        // The same instant, whatever zone the file system reports it in.
        EXPECT_EQ(entries[i].date.toSecsSinceEpoch(), expected[i].date.toSecsSinceEpoch()) << i;
        EXPECT_EQ(entries[i].pixelWidth, expected[i].pixelWidth) << i;
        EXPECT_EQ(entries[i].pixelHeight, expected[i].pixelHeight) << i;
    }
}

TEST(CaptureList, AFolderThatCannotBeListedIsEmpty) {
    QTemporaryDir dir;
    EXPECT_TRUE(scanCaptures(dir.filePath(u"missing"_s)).empty());
    EXPECT_TRUE(scanCaptures(QString()).empty());
    // A file where the folder should be.
    QFile file(dir.filePath(u"plain.png"_s));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.close();
    EXPECT_TRUE(scanCaptures(file.fileName()).empty());
}

// A truncated or lying PNG header must not produce a size.
TEST(CaptureList, ImageSizesComeFromSoundHeadersOnly) {
    QTemporaryDir dir;
    const QDateTime when = QDateTime::currentDateTime();
    QByteArray png("\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR\0\0\x01\x00\0\0\0\x80", 24);
    touch(dir.filePath(u"header.png"_s), when, png);
    touch(dir.filePath(u"short.png"_s), when.addSecs(-1), png.left(20));
    QByteArray huge = png;
    huge[16] = char(0x80); // width beyond any int
    touch(dir.filePath(u"huge.png"_s), when.addSecs(-2), huge);

    const auto entries = scanCaptures(dir.path());
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(QSize(entries[0].pixelWidth, entries[0].pixelHeight), QSize(256, 128));
    EXPECT_EQ(QSize(entries[1].pixelWidth, entries[1].pixelHeight), QSize(0, 0));
    EXPECT_EQ(QSize(entries[2].pixelWidth, entries[2].pixelHeight), QSize(0, 0));
}
