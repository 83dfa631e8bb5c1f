// Recording with the real program as a user runs it: the quillmark command starts and stops
// it, and a recording cut off by a crash is finished and saved at the next start.
#include "MovieProbe.h"
#include "RunningProgram.h"
#include "TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <csignal>
#include <gtest/gtest.h>

using namespace qm;
using namespace qm::test;

namespace {

const QString kRecordings = QDir::homePath() + QStringLiteral("/.local/state/Quillmark/recordings");

ProcessResult quillmark(const QStringList& args) {
    return run(QStringLiteral(QUILLMARK_BINARY), args);
}

QStringList movies(const QString& folder) {
    QStringList files = QDir(folder).entryList({QStringLiteral("*.mov")}, QDir::Files, QDir::Time);
    for (QString& f : files)
        f = QDir(folder).filePath(f);
    return files;
}

// How much of a recording in progress is on disk already, in seconds.
double recordedSoFar() {
    const QStringList partial = movies(kRecordings);
    if (partial.isEmpty())
        return 0;
    const std::vector<double> times = videoFrameTimes(partial.first());
    return times.empty() ? 0 : times.back();
}

void xdotool(const QStringList& args) {
    run(QStringLiteral("xdotool"), args);
}

// Our windows that cover the whole 1280×720 screen: the selection overlay.
bool overlayShown() {
    const auto found = run(QStringLiteral("xdotool"),
                           {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                            QStringLiteral("--classname"), QStringLiteral("quillmark")});
    for (const QString& id : QString::fromLatin1(found.out).split(u'\n', Qt::SkipEmptyParts))
        if (run(QStringLiteral("xdotool"), {QStringLiteral("getwindowgeometry"), id})
                .out.contains("Geometry: 1280x720"))
            return true;
    return false;
}

class Recording : public ::testing::Test {
protected:
    void SetUp() override {
        QDir(kPictures).removeRecursively();
        QDir(kRecordings).removeRecursively();
        QFile::remove(settingsPath());
        // After a recording the movie opens in the trim window.
        QSettings settings(settingsPath(), QSettings::IniFormat);
        settings.setValue(QStringLiteral("trimAfterRecording"), true);
    }
    static QString settingsPath() {
        return QDir::homePath() + QStringLiteral("/.config/quillworks/Quillmark.conf");
    }
};

TEST_F(Recording, TheCommandStartsAndStopsARecordingAndNamesTheMovie) {
    Program instance;
    ASSERT_TRUE(instance.ready()) << instance.log().toStdString();
    const auto started = quillmark({QStringLiteral("record"), QStringLiteral("screen")});
    ASSERT_EQ(started.exitCode, 0) << started.err.constData();

    // One recording at a time, and nothing else while it runs.
    const auto again = quillmark({QStringLiteral("record"), QStringLiteral("area")});
    EXPECT_EQ(again.exitCode, 1);
    EXPECT_TRUE(again.err.contains("already recording")) << again.err.constData();
    const auto capture = quillmark({QStringLiteral("capture"), QStringLiteral("fullscreen")});
    EXPECT_EQ(capture.exitCode, 1);
    EXPECT_EQ(capture.err, QByteArray("Quillmark is recording; stop the recording first.\n"));

    ASSERT_TRUE(waitUntil([] { return recordedSoFar() >= 1.0; }, std::chrono::seconds(20)));
    const auto stopped = quillmark({QStringLiteral("record"), QStringLiteral("stop")});
    ASSERT_EQ(stopped.exitCode, 0) << stopped.err.constData();
    const QString path = QString::fromLocal8Bit(stopped.out).trimmed();
    EXPECT_EQ(movies(kPictures), QStringList{path});
    EXPECT_TRUE(QFileInfo(path).fileName().startsWith(QStringLiteral("Quillmark Recording ")));
    const auto probed = probeMovie(path);
    ASSERT_TRUE(probed.has_value());
    EXPECT_GE(probed->duration, 1.0);
    EXPECT_EQ(probed->of(QStringLiteral("video")).front().width, 1280);
    EXPECT_TRUE(indexAtFront(path));
    EXPECT_TRUE(movies(kRecordings).isEmpty()) << "nothing is left behind";
    // With "trim after recording" on, the movie opens in the trim window.
    EXPECT_TRUE(waitUntil([&] {
        return run(QStringLiteral("xdotool"),
                   {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                    QStringLiteral("--name"),
                    QStringLiteral("Trim Recording — ") + QFileInfo(path).fileName()})
                   .exitCode == 0;
    }));

    const auto twice = quillmark({QStringLiteral("record"), QStringLiteral("stop")});
    EXPECT_EQ(twice.exitCode, 1);
    EXPECT_EQ(twice.err, QByteArray("Nothing is being recorded.\n"));
}

TEST_F(Recording, TheRecordShortcutRecordsAChosenAreaAndTheSameKeyStopsIt) {
    Program instance;
    ASSERT_TRUE(instance.ready()) << instance.log().toStdString();
    xdotool({QStringLiteral("key"), QStringLiteral("ctrl+shift+6")});
    ASSERT_TRUE(waitUntil(overlayShown));
    // An odd-sized area: the movie drops the last column and row.
    xdotool({QStringLiteral("mousemove"), QStringLiteral("100"), QStringLiteral("100"),
             QStringLiteral("mousedown"), QStringLiteral("1"), QStringLiteral("mousemove"),
             QStringLiteral("300"), QStringLiteral("250"), QStringLiteral("mousemove"),
             QStringLiteral("501"), QStringLiteral("401"), QStringLiteral("mouseup"),
             QStringLiteral("1")});
    // During the countdown the key does nothing; once recording, it stops.
    ASSERT_TRUE(waitUntil([] { return recordedSoFar() >= 1.0; }, std::chrono::seconds(20)));
    xdotool({QStringLiteral("key"), QStringLiteral("ctrl+shift+6")});
    ASSERT_TRUE(waitUntil([] { return movies(kPictures).size() == 1; }, std::chrono::seconds(20)))
        << instance.log().toStdString();
    const auto probed = probeMovie(movies(kPictures).first());
    ASSERT_TRUE(probed.has_value());
    const ProbedStream picture = probed->of(QStringLiteral("video")).front();
    EXPECT_EQ(QSize(picture.width, picture.height), QSize(400, 300));
}

TEST_F(Recording, ARecordingCutOffByACrashIsSavedAtTheNextStart) {
    {
        Program instance;
        ASSERT_TRUE(instance.ready()) << instance.log().toStdString();
        ASSERT_EQ(quillmark({QStringLiteral("record"), QStringLiteral("screen")}).exitCode, 0);
        ASSERT_TRUE(waitUntil([] { return recordedSoFar() >= 4.0; }, std::chrono::seconds(30)));
        ::kill(pid_t(instance.process().processId()), SIGKILL);
        instance.process().waitForFinished();
    }
    ASSERT_EQ(movies(kRecordings).size(), 1) << "the crash left the recording behind";
    Program restarted;
    ASSERT_TRUE(restarted.ready()) << restarted.log().toStdString();
    ASSERT_TRUE(waitUntil([] { return movies(kPictures).size() == 1; }, std::chrono::seconds(20)))
        << restarted.log().toStdString();
    const QString saved = movies(kPictures).first();
    const auto probed = probeMovie(saved);
    ASSERT_TRUE(probed.has_value());
    EXPECT_GE(probed->duration, 3.0);
    EXPECT_TRUE(indexAtFront(saved));
    EXPECT_TRUE(movies(kRecordings).isEmpty());
    EXPECT_TRUE(restarted.logged(QStringLiteral("cut off")));
}

TEST_F(Recording, AMovieTheSaveFolderRefusesStaysInTheRecordingsFolderAndTheMessageSaysWhere) {
    QDir().mkpath(QDir::homePath() + QStringLiteral("/Pictures"));
    QFile blocker(kPictures); // a file where the save folder should be
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    Program instance;
    ASSERT_TRUE(instance.ready()) << instance.log().toStdString();
    ASSERT_EQ(quillmark({QStringLiteral("record"), QStringLiteral("screen")}).exitCode, 0);
    ASSERT_TRUE(waitUntil([] { return recordedSoFar() >= 0.5; }, std::chrono::seconds(20)));
    const auto stopped = quillmark({QStringLiteral("record"), QStringLiteral("stop")});
    EXPECT_EQ(stopped.exitCode, 1);
    EXPECT_TRUE(stopped.err.contains("Pictures/Quillmark is a file")) << stopped.err.constData();
    EXPECT_TRUE(stopped.err.contains(".local/state/Quillmark/recordings"))
        << stopped.err.constData();
    const QStringList kept = movies(kRecordings);
    ASSERT_EQ(kept.size(), 1);
    EXPECT_TRUE(indexAtFront(kept.first()));
}

} // namespace
