#include "RunningProgram.h"
#include "TestSupport.h"

#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QProcessEnvironment>
#include <QSettings>
#include <csignal>
#include <gtest/gtest.h>

using namespace qm;
using namespace qm::test;

namespace {

const QStringList kFullScreen{QStringLiteral("capture"), QStringLiteral("fullscreen")};

// Runs the command with some variables removed from its environment.
ProcessResult runWithout(const QStringList& unset, const QStringList& args,
                         const QStringList& set = {}) {
    QStringList env{QStringLiteral("env")};
    for (const QString& name : unset)
        env << QStringLiteral("-u") << name;
    env << set << QStringLiteral(QUILLMARK_BINARY) << args;
    return run(env.takeFirst(), env);
}

class CommandLine : public ::testing::Test {
protected:
    void SetUp() override {
        QDir(kPictures).removeRecursively();
        QFile::remove(settingsPath());
    }
    static QString settingsPath() {
        return QDir::homePath() + QStringLiteral("/.config/quillworks/Quillmark.conf");
    }
};

TEST_F(CommandLine, HelpAndVersionNeedNoDisplayAndMistakesSayWhich) {
    const QStringList noDisplay{QStringLiteral("DISPLAY"), QStringLiteral("WAYLAND_DISPLAY")};
    const auto help = runWithout(noDisplay, {QStringLiteral("--help")});
    EXPECT_EQ(help.exitCode, 0) << help.err.constData();
    EXPECT_TRUE(help.out.startsWith("Usage: quillmark"));
    const auto version = runWithout(noDisplay, {QStringLiteral("--version")});
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_EQ(version.out, QByteArray("quillmark " QUILLMARK_VERSION "\n"));

    // Without a display a capture says what is missing; nothing aborts.
    const auto blind = runWithout(noDisplay, kFullScreen);
    EXPECT_EQ(blind.exitCode, 1);
    EXPECT_EQ(blind.err, QByteArray("no display: set DISPLAY (or WAYLAND_DISPLAY)\n"));

    for (const char* delay : {" 5", "+3", "5s", "-1", "3601"}) {
        const auto wrong =
            run(QStringLiteral(QUILLMARK_BINARY),
                kFullScreen + QStringList{QStringLiteral("--delay"), QString::fromLatin1(delay)});
        EXPECT_EQ(wrong.exitCode, 2) << delay;
        EXPECT_EQ(wrong.err.count('\n'), 1) << wrong.err.constData();
        EXPECT_TRUE(wrong.err.contains(QByteArray("\"") + delay + "\"")) << wrong.err.constData();
    }
    EXPECT_TRUE(captures().isEmpty());
}

TEST_F(CommandLine, ACaptureReportsItsFileAndARequestGivenUpOnIsNeverCarriedOut) {
    Program instance;
    ASSERT_TRUE(instance.ready()) << instance.log().toStdString();

    // The command waits for the file and names it.
    const auto first = run(QStringLiteral(QUILLMARK_BINARY), kFullScreen);
    ASSERT_EQ(first.exitCode, 0) << first.err.constData();
    const QString path = QString::fromLocal8Bit(first.out).trimmed();
    EXPECT_EQ(captures(), QStringList{path});
    EXPECT_FALSE(QImage(path).isNull());

    // A stopped instance is named, and the request it could not take in time is dropped when
    // it wakes up: the next request is the only one that captures.
    const qint64 pid = instance.process().processId();
    ASSERT_EQ(::kill(pid_t(pid), SIGSTOP), 0);
    const auto stuck = runWithout({}, kFullScreen, {QStringLiteral("QUILLMARK_TIMEOUT_MS=300")});
    ::kill(pid_t(pid), SIGCONT);
    EXPECT_EQ(stuck.exitCode, 1);
    EXPECT_EQ(QString::fromLocal8Bit(stuck.err).trimmed(),
              QStringLiteral("Quillmark (pid %1) is not responding.").arg(pid));
    const auto next = run(QStringLiteral(QUILLMARK_BINARY), kFullScreen);
    ASSERT_EQ(next.exitCode, 0) << next.err.constData();
    EXPECT_EQ(captures().size(), 2);
    EXPECT_TRUE(instance.log().contains(QStringLiteral("after its caller gave up")));
}

TEST_F(CommandLine, ACaptureThatCannotBeSavedSaysWhyAndStaysOnTheClipboard) {
    // A file where the save folder should be.
    QDir().mkpath(QDir::homePath() + QStringLiteral("/Pictures"));
    QFile blocker(kPictures);
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    {
        QSettings settings(settingsPath(), QSettings::IniFormat);
        settings.setValue(QStringLiteral("outputDirectoryPath"), kPictures);
    }
    Program instance;
    ASSERT_TRUE(instance.ready()) << instance.log().toStdString();

    const auto refused = run(QStringLiteral(QUILLMARK_BINARY), kFullScreen);
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(refused.err, QByteArray("Not saved: Pictures/Quillmark is a file\n"));
    EXPECT_TRUE(refused.out.isEmpty());
    // Nothing half-written next to the blocker, and the capture is on the clipboard.
    EXPECT_EQ(
        QDir(QDir::homePath() + QStringLiteral("/Pictures")).entryList(QDir::Files | QDir::Hidden),
        QStringList{QStringLiteral("Quillmark")});
    const auto pasted =
        run(QStringLiteral("xclip"),
            {QStringLiteral("-selection"), QStringLiteral("clipboard"), QStringLiteral("-t"),
             QStringLiteral("image/png"), QStringLiteral("-o")});
    EXPECT_FALSE(QImage::fromData(pasted.out, "PNG").isNull());
}

} // namespace
