#include "library/catalog/Retention.h"

#include "TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTimeZone>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace qm::library;

namespace {

constexpr qint64 day = 86400;

void makeFile(const QString& path, const QDateTime& modified) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
    file.write("capture");
    file.flush();
    ASSERT_TRUE(file.setFileTime(modified, QFileDevice::FileModificationTime));
}

QStringList names(const QStringList& paths) {
    QStringList out;
    for (const QString& path : paths)
        out << QFileInfo(path).fileName();
    return out;
}

// "now" just after a daylight-saving change in a zone that has one, so counting calendar days
// instead of 86,400 s would move the boundary by an hour.
QDateTime afterClockChange() {
    return QDateTime(QDate(2026, 4, 2), QTime(12, 0), QTimeZone("Europe/Berlin"_ba));
}

} // namespace

TEST(Retention, OnlyOldFilesNamedByUsAreExpired) {
    QTemporaryDir dir;
    const QDateTime now = afterClockChange();
    makeFile(dir.filePath(u"Quillmark 2026-03-03 at 11.59.59.png"_s), now.addSecs(-30 * day - 1));
    makeFile(dir.filePath(u"Quillmark just kept.png"_s), now.addSecs(-30 * day));
    makeFile(dir.filePath(u"Quillmark 29 days 23 hours.png"_s), now.addSecs(-29 * day - 23 * 3600));
    makeFile(dir.filePath(u"Quillmark Recording old.MOV"_s), now.addSecs(-400 * day));
    makeFile(dir.filePath(u"holiday.png"_s), now.addSecs(-4000 * day));
    makeFile(dir.filePath(u"Quillmark notes.txt"_s), now.addSecs(-400 * day));
    makeFile(dir.filePath(u"quillmark lower case.png"_s), now.addSecs(-400 * day));
    makeFile(dir.filePath(u".Quillmark hidden.png"_s), now.addSecs(-400 * day));
    ASSERT_TRUE(QDir(dir.path()).mkdir(u"Quillmark folder.png"_s));
    QFile::setPermissions(dir.filePath(u"Quillmark folder.png"_s),
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);

    EXPECT_EQ(
        names(expiredCaptures(dir.path(), 30, now)),
        (QStringList{u"Quillmark 2026-03-03 at 11.59.59.png"_s, u"Quillmark Recording old.MOV"_s}));
    // The same instant told in another zone changes nothing.
    EXPECT_EQ(expiredCaptures(dir.path(), 30, now.toUTC()).size(), 2);
    EXPECT_TRUE(expiredCaptures(dir.path(), 0, now).isEmpty());
    EXPECT_TRUE(expiredCaptures(dir.path(), -5, now).isEmpty());
    EXPECT_TRUE(expiredCaptures(dir.filePath(u"missing"_s), 1, now).isEmpty());
    EXPECT_EQ(expiredCaptures(dir.path(), 1, now).size(), 4);
}

// The real Trash of the test's own home: the file leaves the folder, and the Trash knows where
// it came from and when it went.
TEST(Retention, SweepMovesExpiredCapturesToTheTrash) {
    QTemporaryDir dir;
    const QDateTime now = QDateTime::currentDateTime();
    const QString old = dir.filePath(u"Quillmark 2020-01-01 at 10.00.00.png"_s);
    makeFile(old, now.addSecs(-100 * day));
    makeFile(dir.filePath(u"Quillmark fresh.png"_s), now.addSecs(-day));
    makeFile(dir.filePath(u"holiday.png"_s), now.addSecs(-100 * day));

    qm::test::LogCapture log;
    EXPECT_EQ(sweep(dir.path(), 0, now), 0);
    EXPECT_TRUE(QFile::exists(old));
    EXPECT_EQ(sweep(dir.path(), 30, now), 1);
    EXPECT_FALSE(QFile::exists(old));
    EXPECT_TRUE(QFile::exists(dir.filePath(u"Quillmark fresh.png"_s)));
    EXPECT_TRUE(QFile::exists(dir.filePath(u"holiday.png"_s)));
    EXPECT_FALSE(log.contains(u"Quillmark retention"_s));

    const auto listed = qm::test::run(u"trash-list"_s, {});
    ASSERT_EQ(listed.exitCode, 0) << listed.err.toStdString();
    const QStringList lines = QString::fromUtf8(listed.out).split(u'\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 1) << listed.out.toStdString();
    // "YYYY-MM-DD HH:MM:SS /original/path", the date in local time.
    EXPECT_TRUE(lines[0].endsWith(u" "_s + QFileInfo(old).absoluteFilePath()))
        << lines[0].toStdString();
    const QDateTime deleted = QDateTime::fromString(lines[0].left(19), u"yyyy-MM-dd HH:mm:ss"_s);
    ASSERT_TRUE(deleted.isValid()) << lines[0].toStdString();
    EXPECT_LE(std::abs(deleted.secsTo(QDateTime::currentDateTime())), 120)
        << lines[0].toStdString();
}

TEST(Retention, AFileThatCannotBeTrashedIsLoggedAndTheRestStillGo) {
    QTemporaryDir dir;
    const QDateTime now = QDateTime::currentDateTime();
    for (const char* name : {"Quillmark a.png", "Quillmark b.png", "Quillmark c.mov"})
        makeFile(dir.filePath(QString::fromUtf8(name)), now.addSecs(-40 * day));

    QStringList tried;
    const TrashFile lockedB = [&](const QString& path) -> qm::Status {
        tried << QFileInfo(path).fileName();
        if (path.endsWith(u"b.png"_s))
            return qm::failure(u"the file is locked"_s);
        return moveToTrash(path);
    };
    qm::test::LogCapture log;
    EXPECT_EQ(sweep(dir.path(), 30, now, lockedB), 2);
    EXPECT_EQ(tried.size(), 3);
    EXPECT_TRUE(
        log.contains(u"Quillmark retention: couldn't trash Quillmark b.png: the file is locked"_s))
        << log.lines().join(u'\n').toStdString();
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{u"Quillmark b.png"_s});
}

TEST(Retention, TrashingAFileThatIsGoneSaysSo) {
    QTemporaryDir dir;
    const auto status = moveToTrash(dir.filePath(u"Quillmark gone.png"_s));
    ASSERT_FALSE(status.ok());
    EXPECT_FALSE(status.error().reason.isEmpty());
}
