// "quillmark search" as a script runs it: no display, no running Quillmark, real images of
// text in the save folder, read by the real engine.
#include "IndexTestFiles.h"
#include "TestSupport.h"
#include "base/Preferences.h"
#include "base/SettingsStore.h"

#include <QDir>
#include <QFileInfo>
#include <gtest/gtest.h>

using namespace qm;
using namespace qm::test;

namespace {

ProcessResult quillmark(const QStringList& args) {
    return run(QStringLiteral(QUILLMARK_TRAY_BINARY), args, std::chrono::seconds(120));
}

TEST(SearchCommand, PrintsNameAndTextMatchesNewestFirst) {
    qunsetenv("DISPLAY");
    const QString folder = QDir::homePath() + QStringLiteral("/Pictures/Quillmark");
    ASSERT_TRUE(QDir().mkpath(folder));
    const QString older = folder + QStringLiteral("/Quillmark 2026-01-01 at 10.00.00.png");
    const QString newer = folder + QStringLiteral("/Quillmark 2026-01-02 at 09.30.00.png");
    const QString other = folder + QStringLiteral("/Holiday.png");
    const QString movie = folder + QStringLiteral("/Invoice walkthrough.mov");
    ASSERT_TRUE(writeTextImage(
        older, {QStringLiteral("INVOICE 2291"), QStringLiteral("Total due: 148.20 EUR")}));
    ASSERT_TRUE(writeTextImage(newer, {QStringLiteral("The invoice reminder was sent")}));
    ASSERT_TRUE(writeTextImage(other, {QStringLiteral("Backup completed without warnings")}));
    ASSERT_TRUE(writeBytes(movie, "not really a movie"));
    ASSERT_TRUE(shiftModified(movie, -300) && shiftModified(older, -200) &&
                shiftModified(other, -100));

    const ProcessResult found = quillmark({QStringLiteral("search"), QStringLiteral("Invoice")});
    EXPECT_EQ(found.exitCode, 0) << found.err.toStdString();
    EXPECT_EQ(QString::fromLocal8Bit(found.out),
              QStringList({newer, older, movie}).join(QLatin1Char('\n')) + QLatin1Char('\n'));
    EXPECT_TRUE(found.err.contains("Reading text in images… 3 of 3")) << found.err.toStdString();
    EXPECT_TRUE(QFileInfo::exists(qEnvironmentVariable("XDG_DATA_HOME") +
                                  QStringLiteral("/Quillmark/ocr-index.json")));

    // Known images are not read again; a search with no match prints nothing and says so by
    // its status.
    const ProcessResult none =
        quillmark({QStringLiteral("search"), QStringLiteral("nothing looks like this")});
    EXPECT_EQ(none.exitCode, 1);
    EXPECT_TRUE(none.out.isEmpty());
    EXPECT_FALSE(none.err.contains("Reading text")) << none.err.toStdString();

    const ProcessResult byText = quillmark({QStringLiteral("search"), QStringLiteral("backup")});
    EXPECT_EQ(QString::fromLocal8Bit(byText.out), other + QLatin1Char('\n'));

    // With text search turned off, only names count.
    {
        IniSettingsStore store;
        Preferences preferences(store);
        preferences.setSearchImageText(false);
    }
    const ProcessResult namesOnly =
        quillmark({QStringLiteral("search"), QStringLiteral("invoice")});
    EXPECT_EQ(QString::fromLocal8Bit(namesOnly.out), movie + QLatin1Char('\n'));
}

} // namespace
