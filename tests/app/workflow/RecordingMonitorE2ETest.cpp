// A recording whose monitor is unplugged stops by itself, keeps what it recorded and says why.
#include "MovieProbe.h"
#include "RunningProgram.h"
#include "TestSupport.h"

#include <QDir>
#include <gtest/gtest.h>

using namespace qm;
using namespace qm::test;

namespace {

TEST(RecordingMonitor, UnpluggingTheRecordedMonitorEndsTheRecordingAndKeepsTheMovie) {
    const QString recordings =
        QDir::homePath() + QStringLiteral("/.local/state/Quillmark/recordings");
    Program instance;
    ASSERT_TRUE(instance.ready()) << instance.log().toStdString();
    // The screen under the pointer is the one recorded: the second monitor.
    run(QStringLiteral("xdotool"),
        {QStringLiteral("mousemove"), QStringLiteral("2400"), QStringLiteral("500")});
    const auto started =
        run(QStringLiteral(QUILLMARK_BINARY), {QStringLiteral("record"), QStringLiteral("screen")});
    ASSERT_EQ(started.exitCode, 0) << started.err.constData();
    ASSERT_TRUE(waitUntil(
        [&] {
            const QStringList partial =
                QDir(recordings).entryList({QStringLiteral("*.mov")}, QDir::Files);
            return !partial.isEmpty() &&
                   !videoFrameTimes(QDir(recordings).filePath(partial.first())).empty();
        },
        std::chrono::seconds(20)));

    ASSERT_EQ(run(QStringLiteral("xrandr"), {QStringLiteral("--delmonitor"), QStringLiteral("qm1")})
                  .exitCode,
              0);
    ASSERT_TRUE(instance.logged(QStringLiteral("The screen being recorded was disconnected")));
    ASSERT_TRUE(
        waitUntil([] { return !QDir(kPictures).entryList({QStringLiteral("*.mov")}).isEmpty(); },
                  std::chrono::seconds(20)));
    const QString movie =
        QDir(kPictures).filePath(QDir(kPictures).entryList({QStringLiteral("*.mov")}).first());
    const auto probed = probeMovie(movie);
    ASSERT_TRUE(probed.has_value());
    EXPECT_EQ(probed->of(QStringLiteral("video")).front().width, 1280);
    EXPECT_EQ(instance.log().count(QStringLiteral("Recording stopped by itself")), 1);

    // It is over: stopping now says so.
    const auto stop =
        run(QStringLiteral(QUILLMARK_BINARY), {QStringLiteral("record"), QStringLiteral("stop")});
    EXPECT_EQ(stop.exitCode, 1);
}

} // namespace
