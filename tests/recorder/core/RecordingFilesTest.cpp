#include "recorder/core/RecordingFiles.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace qm::recorder;

namespace {

TEST(RecordingFiles, LeftoversAreTheRecordingsNoRecorderHolds) {
    QTemporaryDir dir;
    const QString older =
        inProgressPath(dir.path(), QDateTime(QDate(2026, 11, 15), QTime(20, 31, 5)));
    const QString newer =
        inProgressPath(dir.path(), QDateTime(QDate(2026, 11, 15), QTime(20, 40, 0)));
    EXPECT_EQ(QFileInfo(older).fileName(),
              QStringLiteral("Quillmark Recording 2026-11-15 at 20.31.05.partial.mov"));
    for (const QString& path :
         {older, newer, dir.filePath(QStringLiteral("Quillmark Recording x.mov"))})
        QFile(path).open(QIODevice::WriteOnly);
    QFile aged(older);
    ASSERT_TRUE(aged.open(QIODevice::ReadWrite));
    aged.setFileTime(QDateTime::currentDateTime().addSecs(-60), QFileDevice::FileModificationTime);
    aged.close();

    EXPECT_EQ(leftoverRecordings(dir.path()), (QStringList{older, newer}))
        << "oldest first, finished ones not";
    {
        // A recording still being written, by this program or another instance, is not one.
        RecordingLock writing(newer);
        ASSERT_TRUE(writing.held());
        EXPECT_EQ(leftoverRecordings(dir.path()), QStringList{older});
    }
    EXPECT_EQ(leftoverRecordings(dir.path()).size(), 2);
}

TEST(RecordingFiles, TheRecordingsFolderIsOnDiskUnderTheStateFolder) {
    const QByteArray saved = qgetenv("XDG_STATE_HOME");
    qputenv("XDG_STATE_HOME", "/somewhere/state");
    EXPECT_EQ(recordingsFolder(), QStringLiteral("/somewhere/state/Quillmark/recordings"));
    qunsetenv("XDG_STATE_HOME");
    EXPECT_EQ(recordingsFolder(),
              QDir::homePath() + QStringLiteral("/.local/state/Quillmark/recordings"));
    qputenv("XDG_STATE_HOME", saved);
}

} // namespace
