#include "library/model/RetentionScheduler.h"

#include "CaptureFolderTest.h"
#include "TestSupport.h"
#include "base/Preferences.h"
#include "base/SettingsStore.h"

#include <QDir>
#include <QFile>
#include <QMutex>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace qm::library;
using qm::test::waitUntil;

namespace {

class RetentionSchedulerTest : public CaptureFolderTest {
protected:
    void old(const QString& name, int days) {
        QFile file(QDir(folder).filePath(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_TRUE(file.setFileTime(QDateTime::currentDateTime().addDays(-days),
                                     QFileDevice::FileModificationTime));
    }
};

} // namespace

TEST_F(RetentionSchedulerTest, SweepsSoonAfterStartAndThenRegularly) {
    preferences.setRetentionDays(30);
    old(u"Quillmark a.png"_s, 31);
    old(u"Quillmark b.png"_s, 31);
    old(u"Quillmark c.mov"_s, 31);
    old(u"Quillmark new.png"_s, 2);
    QMutex mutex; // sweeps run on workers
    QStringList tried;
    RetentionScheduler::Timing timing{20ms, 100ms, [&](const QString& path) -> qm::Status {
                                          const QMutexLocker lock(&mutex);
                                          tried << QFileInfo(path).fileName();
                                          if (path.endsWith(u"b.png"_s))
                                              return qm::failure(u"the file is locked"_s);
                                          return moveToTrash(path);
                                      }};
    RetentionScheduler scheduler(preferences, timing);
    QSignalSpy swept(&scheduler, &RetentionScheduler::swept);
    qm::test::LogCapture log;
    scheduler.start();
    scheduler.start(); // once only: a second start adds no timer

    ASSERT_TRUE(waitUntil([&] { return swept.count() >= 1; }));
    EXPECT_EQ(swept.at(0).at(0).toInt(), 2);
    EXPECT_TRUE(
        log.contains(u"Quillmark retention: couldn't trash Quillmark b.png: the file is locked"_s));
    EXPECT_TRUE(log.contains(u"Quillmark retention: moved 2 old capture(s) to the Trash"_s))
        << log.lines().join(u'\n').toStdString();
    EXPECT_EQ(QDir(folder).entryList(QDir::Files),
              (QStringList{u"Quillmark b.png"_s, u"Quillmark new.png"_s}));

    // The repeating sweep tries the locked file again; nothing else is due.
    ASSERT_TRUE(waitUntil([&] { return swept.count() >= 3; }));
    EXPECT_EQ(swept.at(1).at(0).toInt(), 0);
    const QMutexLocker lock(&mutex);
    EXPECT_EQ(tried.count(u"Quillmark a.png"_s), 1);
    EXPECT_GE(tried.count(u"Quillmark b.png"_s), 3);
}

// Retention off: no file looked at, nothing logged. The setting is read at each sweep.
TEST_F(RetentionSchedulerTest, DoesNothingWhileRetentionIsOff) {
    preferences.setRetentionDays(0);
    old(u"Quillmark ancient.png"_s, 3000);
    int tried = 0;
    RetentionScheduler scheduler(preferences, {0ms, 1h, [&](const QString&) -> qm::Status {
                                                   ++tried;
                                                   return {};
                                               }});
    QSignalSpy swept(&scheduler, &RetentionScheduler::swept);
    qm::test::LogCapture log;
    scheduler.sweepNow();
    QCoreApplication::processEvents();
    EXPECT_EQ(swept.count(), 0);
    EXPECT_EQ(tried, 0);

    preferences.setRetentionDays(1);
    scheduler.sweepNow();
    ASSERT_TRUE(waitUntil([&] { return swept.count() == 1; }));
    EXPECT_EQ(tried, 1);
    EXPECT_FALSE(log.contains(u"couldn't"_s));
}
