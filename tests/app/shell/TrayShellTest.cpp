#include "TestSupport.h"

#include <QProcess>
#include <QRect>
#include <QTest>
#include <gtest/gtest.h>

using namespace qm;

namespace {

QStringList visibleQuillmarkWindows() {
    const auto r = test::run(QStringLiteral("xdotool"),
                             {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                              QStringLiteral("--classname"), QStringLiteral("quillmark")});
    return QString::fromLatin1(r.out).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

QRect geometryOf(const QString& window) {
    const auto r = test::run(QStringLiteral("xdotool"), {QStringLiteral("getwindowgeometry"),
                                                         QStringLiteral("--shell"), window});
    int x = 0, y = 0, w = 0, h = 0;
    for (const QString& line : QString::fromLatin1(r.out).split(QLatin1Char('\n'))) {
        const auto kv = line.split(QLatin1Char('='));
        if (kv.size() != 2)
            continue;
        const int v = kv[1].toInt();
        if (kv[0] == QLatin1String("X"))
            x = v;
        else if (kv[0] == QLatin1String("Y"))
            y = v;
        else if (kv[0] == QLatin1String("WIDTH"))
            w = v;
        else if (kv[0] == QLatin1String("HEIGHT"))
            h = v;
    }
    return {x, y, w, h};
}

void xdotool(const QStringList& args) {
    test::run(QStringLiteral("xdotool"), args);
}

// Clicks the tray icon until its menu shows: a click that lands while focus is still moving
// between windows may be taken by the window manager.
std::optional<QRect> openMenu(const QString& iconWindow) {
    const QPoint icon = geometryOf(iconWindow).center();
    for (int attempt = 0; attempt < 3; ++attempt) {
        xdotool({QStringLiteral("mousemove"), QString::number(icon.x()), QString::number(icon.y()),
                 QStringLiteral("click"), QStringLiteral("1")});
        QStringList windows;
        if (test::waitUntil([&] { return (windows = visibleQuillmarkWindows()).size() == 2; },
                            std::chrono::seconds(2))) {
            windows.removeAll(iconWindow);
            return geometryOf(windows.first());
        }
    }
    return std::nullopt;
}

void click(QPoint at) {
    xdotool({QStringLiteral("mousemove"), QString::number(at.x()), QString::number(at.y()),
             QStringLiteral("click"), QStringLiteral("1")});
}

TEST(TrayShell, LivesInTheTrayShowsAboutAndQuitsFromItsMenu) {
    QProcess app;
    app.setProcessChannelMode(QProcess::ForwardedChannels);
    app.start(QStringLiteral(QUILLMARK_BINARY), {});
    ASSERT_TRUE(app.waitForStarted());

    // The tray icon is the program's only window.
    QStringList windows;
    ASSERT_TRUE(test::waitUntil([&] { return (windows = visibleQuillmarkWindows()).size() == 1; }));
    const QString icon = windows.first();
    EXPECT_GT(geometryOf(icon).x(), 700) << "the icon sits in the tray at the top right";

    // Its menu ends with About and Quit; About opens a window and closing it keeps the program.
    auto menu = openMenu(icon);
    ASSERT_TRUE(menu);
    QTest::qWait(500); // the menu takes the keyboard once it is mapped
    xdotool({QStringLiteral("key"), QStringLiteral("Up"), QStringLiteral("Up"),
             QStringLiteral("Return")});
    QString about;
    ASSERT_TRUE(test::waitUntil([&] {
        const auto r = test::run(QStringLiteral("xdotool"),
                                 {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                  QStringLiteral("--name"), QStringLiteral("About Quillmark")});
        about = QString::fromLatin1(r.out).trimmed();
        return !about.isEmpty();
    }));
    xdotool({QStringLiteral("windowactivate"), QStringLiteral("--sync"), about,
             QStringLiteral("key"), QStringLiteral("Escape")});
    ASSERT_TRUE(test::waitUntil([&] { return visibleQuillmarkWindows().size() == 1; }));
    EXPECT_EQ(app.state(), QProcess::Running);

    // The last item quits.
    menu = openMenu(icon);
    ASSERT_TRUE(menu);
    click({menu->center().x(), menu->bottom() - 14});
    ASSERT_TRUE(test::waitUntil([&] { return app.state() == QProcess::NotRunning; }));
    EXPECT_EQ(app.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(app.exitCode(), 0);
}

} // namespace
