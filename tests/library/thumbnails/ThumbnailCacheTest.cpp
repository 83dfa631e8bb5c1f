#include "library/thumbnails/ThumbnailCache.h"

#include "TestSupport.h"
#include "library/thumbnails/ThumbnailLoader.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace qm::library {
namespace {

class ThumbnailCacheTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString root() const { return dir.filePath(QStringLiteral("cache/thumbnails")); }

    // A wide image of one colour, written as a capture would be.
    QString writeImage(const QString& name, QColor color, QSize size = {1000, 600}) {
        QImage image(size, QImage::Format_RGB32);
        image.fill(color);
        const QString path = dir.filePath(name);
        EXPECT_TRUE(image.save(path, "PNG"));
        return path;
    }
};

ino_t inodeOf(const QString& path) {
    struct stat info {};
    ::stat(QFile::encodeName(path).constData(), &info);
    return info.st_ino;
}

QByteArray md5Hex(const QByteArray& text) {
    return QCryptographicHash::hash(text, QCryptographicHash::Md5).toHex();
}

TEST_F(ThumbnailCacheTest, WritesAPrivateFreedesktopThumbnailThatOtherProgramsCanRead) {
    // A space in the name: the URI is percent-encoded before it is hashed.
    const QString path =
        writeImage(QStringLiteral("Quillmark 2026-01-02 at 10.00.00.png"), QColor(200, 30, 40));
    const ThumbnailCache cache(root());

    const Result<QImage> thumb = cache.thumbnail(path, ThumbnailCache::Size::Normal);
    ASSERT_TRUE(thumb) << thumb.error().reason.toStdString();
    EXPECT_EQ(thumb->width(), 128);
    EXPECT_NEAR(thumb->height(), 77, 1);
    EXPECT_EQ(QColor(thumb->pixel(64, 38)), QColor(200, 30, 40));

    const QByteArray uri = "file://" + QFile::encodeName(path).replace(" ", "%20");
    const QString stored = root() + u"/normal/"_s + QString::fromLatin1(md5Hex(uri)) + u".png"_s;
    EXPECT_EQ(cache.cachePath(path, ThumbnailCache::Size::Normal), stored);
    ASSERT_TRUE(QFileInfo::exists(stored));
    EXPECT_EQ(QFileInfo(stored).permissions() & 0x0777,
              QFileDevice::ReadUser | QFileDevice::WriteUser);
    EXPECT_EQ(QFileInfo(root() + u"/normal"_s).permissions() & 0x0777,
              QFileDevice::ReadUser | QFileDevice::WriteUser | QFileDevice::ExeUser);

    const QImage read(stored);
    EXPECT_EQ(read.text(u"Thumb::URI"_s).toUtf8(), uri);
    EXPECT_EQ(read.text(u"Thumb::MTime"_s).toLongLong(),
              QFileInfo(path).lastModified().toSecsSinceEpoch());
    EXPECT_EQ(read.text(u"Thumb::Size"_s).toLongLong(), QFileInfo(path).size());
    EXPECT_EQ(read.size(), thumb->size());
    // Plain text chunks, which every reader of the cache understands, even for long values.
    QFile raw(stored);
    ASSERT_TRUE(raw.open(QIODevice::ReadOnly));
    EXPECT_TRUE(raw.readAll().contains("tEXtThumb::URI\0file://"));
    // No temporary file is left behind.
    EXPECT_EQ(QDir(root() + u"/normal"_s).entryList(QDir::Files | QDir::Hidden).size(), 1);
}

TEST_F(ThumbnailCacheTest, ACurrentThumbnailIsReusedAndAChangedFileIsMadeAgain) {
    const QString path = writeImage(QStringLiteral("shot.png"), Qt::red, {600, 600});
    const ThumbnailCache cache(root());
    ASSERT_TRUE(cache.thumbnail(path, ThumbnailCache::Size::Large));
    const QString stored = cache.cachePath(path, ThumbnailCache::Size::Large);
    const QDateTime firstWrite = QFileInfo(stored).lastModified();
    const ino_t firstInode = inodeOf(stored);

    // Unchanged: served from the cache, not written again.
    ASSERT_TRUE(cache.thumbnail(path, ThumbnailCache::Size::Large));
    EXPECT_EQ(inodeOf(stored), firstInode);
    EXPECT_EQ(QFileInfo(stored).lastModified(), firstWrite);

    // The capture is edited: new pixels, a later modification time.
    writeImage(QStringLiteral("shot.png"), Qt::blue, {600, 600});
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    const QDateTime later = QDateTime::currentDateTime().addSecs(30);
    ASSERT_TRUE(file.setFileTime(later, QFileDevice::FileModificationTime));
    file.close();

    const Result<QImage> again = cache.thumbnail(path, ThumbnailCache::Size::Large);
    ASSERT_TRUE(again);
    EXPECT_EQ(QColor(again->pixel(10, 10)), QColor(Qt::blue));
    EXPECT_EQ(again->size(), QSize(256, 256));
    EXPECT_EQ(QImage(stored).text(u"Thumb::MTime"_s).toLongLong(), later.toSecsSinceEpoch());
}

TEST_F(ThumbnailCacheTest, SmallImagesKeepTheirSizeAndUnreadableFilesSayWhy) {
    const QString small = writeImage(QStringLiteral("icon.png"), Qt::green, {40, 20});
    const ThumbnailCache cache(root());
    const Result<QImage> thumb = cache.thumbnail(small, ThumbnailCache::Size::Normal);
    ASSERT_TRUE(thumb);
    EXPECT_EQ(thumb->size(), QSize(40, 20));

    const QString bogus = dir.filePath(u"notes.png"_s);
    QFile text(bogus);
    ASSERT_TRUE(text.open(QIODevice::WriteOnly));
    text.write("not a picture at all");
    text.close();
    const Result<QImage> failed = cache.thumbnail(bogus, ThumbnailCache::Size::Normal);
    ASSERT_FALSE(failed);
    EXPECT_TRUE(failed.error().reason.contains(u"notes.png"_s));
    EXPECT_FALSE(QFileInfo::exists(cache.cachePath(bogus, ThumbnailCache::Size::Normal)));

    EXPECT_FALSE(cache.thumbnail(dir.filePath(u"gone.png"_s), ThumbnailCache::Size::Normal));
}

TEST_F(ThumbnailCacheTest, AMovieShowsAnEarlyFrameAndKeepsItsLength) {
    const QString movie = dir.filePath(QStringLiteral("Quillmark Recording.mov"));
    const auto made =
        test::run(QStringLiteral("ffmpeg"), {u"-v"_s, u"error"_s, u"-f"_s, u"lavfi"_s, u"-i"_s,
                                             u"testsrc=duration=2:size=320x240:rate=30"_s,
                                             u"-pix_fmt"_s, u"yuv420p"_s, movie});
    ASSERT_EQ(made.exitCode, 0) << made.err.toStdString();
    const ThumbnailCache cache(root());
    const Result<QImage> thumb = cache.thumbnail(movie, ThumbnailCache::Size::Normal);
    ASSERT_TRUE(thumb) << thumb.error().reason.toStdString();
    EXPECT_EQ(thumb->width(), 128);
    EXPECT_NEAR(thumb->height(), 96, 1);
    EXPECT_NEAR(thumb->text(u"Thumb::Movie::Length"_s).toDouble(), 2.0, 0.1);
    // The length survives the trip through the cache file.
    const Result<QImage> cached = cache.thumbnail(movie, ThumbnailCache::Size::Normal);
    ASSERT_TRUE(cached);
    EXPECT_NEAR(cached->text(u"Thumb::Movie::Length"_s).toDouble(), 2.0, 0.1);
}

TEST_F(ThumbnailCacheTest, TheLoaderDeliversOnTheGuiThreadAndDropsWhatScrolledAway) {
    QStringList paths;
    for (int i = 0; i < 40; ++i)
        paths << writeImage(QStringLiteral("shot %1.png").arg(i), QColor(i * 6, 0, 0), {400, 300});
    const QString bogus = dir.filePath(QStringLiteral("broken.png"));
    QFile(bogus).open(QIODevice::WriteOnly);

    ThumbnailLoader loader(ThumbnailCache(root()), ThumbnailCache::Size::Normal);
    QSignalSpy ready(&loader, &ThumbnailLoader::ready);
    QHash<QString, QDateTime> dates;
    for (const QString& path : paths + QStringList{bogus})
        dates.insert(path, QFileInfo(path).lastModified());
    const auto dateOf = [&](const QString& p) { return dates.value(p); };
    for (const QString& path : paths)
        loader.request(path, dateOf(path));
    loader.request(bogus, dateOf(bogus));
    // Only the last one is still on screen.
    loader.keepOnly({paths.last(), bogus});
    ASSERT_TRUE(test::waitUntil([&] { return loader.pending() == 0; }));
    QCoreApplication::processEvents();

    // What had already started may finish; most was never made.
    EXPECT_LT(ready.count(), 12);
    const ThumbnailLoader::Thumb* last = loader.find(paths.last(), dateOf(paths.last()));
    ASSERT_NE(last, nullptr);
    EXPECT_EQ(last->image.size(), QSize(128, 96));
    EXPECT_TRUE(loader.hasFailed(bogus, dateOf(bogus)));
    EXPECT_EQ(loader.find(paths[20], dateOf(paths[20])), nullptr);
    // A dropped request can be made again once it is back on screen.
    loader.request(paths[20], dateOf(paths[20]));
    ASSERT_TRUE(test::waitUntil([&] { return loader.find(paths[20], dateOf(paths[20])); }));
}

} // namespace
} // namespace qm::library
