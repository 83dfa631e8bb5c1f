#include "TestSupport.h"

#include <QProcess>
#include <gtest/gtest.h>

using namespace qm;

TEST(TrayShell, KeepsRunningWithoutATrayAndSaysSo) {
    QProcess app;
    app.start(QStringLiteral(QUILLMARK_BINARY), {});
    ASSERT_TRUE(app.waitForStarted());
    QByteArray log;
    ASSERT_TRUE(test::waitUntil([&] {
        log += app.readAllStandardError();
        return log.contains("no system tray is available");
    })) << log.constData();
    // Still there a moment later: nothing made it quit.
    EXPECT_FALSE(app.waitForFinished(1500));
    app.terminate();
    app.waitForFinished();
}
