#include "app/RecentCaptures.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace qm;

namespace {

void touch(const QString& path, const QDateTime& modified) {
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write("x");
    f.close();
    // Closing after a write stamps the time again, so set it on a fresh, unwritten handle.
    ASSERT_TRUE(f.open(QIODevice::ReadOnly));
    ASSERT_TRUE(f.setFileTime(modified, QFileDevice::FileModificationTime));
}

TEST(RecentCaptures, FiveNewestImagesAndNeverRecordingsOrHalfWrittenFiles) {
    QTemporaryDir dir;
    const QDateTime base(QDate(2026, 11, 1), QTime(12, 0), Qt::UTC);
    for (int i = 0; i < 7; ++i)
        touch(dir.filePath(QStringLiteral("shot %1.png").arg(i)), base.addSecs(i * 60));
    touch(dir.filePath(QStringLiteral("newest.JPG")), base.addSecs(3600));
    touch(dir.filePath(QStringLiteral("recording.mov")), base.addSecs(7200));
    touch(dir.filePath(QStringLiteral("notes.txt")), base.addSecs(7200));
    // A capture still being written has no capture name yet.
    touch(dir.filePath(QStringLiteral(".Quillmark-0123456789abcdef.part")), base.addSecs(7200));
    QDir(dir.path()).mkdir(QStringLiteral("sub.png")); // a folder is no capture

    QStringList names;
    for (const QString& p : recentCaptures(dir.path()))
        names << QFileInfo(p).fileName();
    EXPECT_EQ(names, (QStringList{QStringLiteral("newest.JPG"), QStringLiteral("shot 6.png"),
                                  QStringLiteral("shot 5.png"), QStringLiteral("shot 4.png"),
                                  QStringLiteral("shot 3.png")}));
}

TEST(RecentCaptures, EmptyOrMissingFolderGivesNothing) {
    QTemporaryDir dir;
    EXPECT_TRUE(recentCaptures(dir.path()).isEmpty());
    EXPECT_TRUE(recentCaptures(dir.filePath(QStringLiteral("missing"))).isEmpty());
}

} // namespace
