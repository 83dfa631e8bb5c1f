#include "platform/input/x11/X11ClickSource.h"

#include "TestSupport.h"
#include "X11TestDesktop.h"
#include "platform/input/null/NullClickSource.h"

#include <QCoreApplication>
#include <QMouseEvent>
#include <gtest/gtest.h>
#include <vector>

namespace {

using qm::platform::ClickButton;
using qm::platform::GlobalClick;

// A window of the test that counts the presses it is given.
class PressCounter final : public qm::test::ColourWindow {
public:
    PressCounter()
        : ColourWindow(Qt::darkCyan) {}
    int presses = 0; // left ones

protected:
    void mousePressEvent(QMouseEvent* event) override {
        if (event->button() == Qt::LeftButton)
            ++presses;
    }
};

bool xdotool(const QString& args) {
    return qm::test::run(QStringLiteral("xdotool"), args.split(QLatin1Char(' '))).exitCode == 0;
}

TEST(X11ClickSource, ReportsLeftAndRightClicksWherePointerIsAndLeavesThemToTheirWindow) {
    PressCounter target;
    target.setGeometry(200, 150, 300, 200);
    target.show();
    ASSERT_TRUE(qm::test::waitUntil([&] { return target.isExposed(); }));

    qm::platform::X11ClickSource source;
    std::vector<GlobalClick> clicks;
    auto watch = source.watch([&](const GlobalClick& click) { clicks.push_back(click); });
    ASSERT_TRUE(watch.ok()) << watch.error().reason.toStdString();

    ASSERT_TRUE(xdotool(QStringLiteral("mousemove 321 234 click 1")));
    ASSERT_TRUE(qm::test::waitUntil([&] { return clicks.size() == 1; }));
    EXPECT_EQ(clicks[0].position, QPoint(321, 234));
    EXPECT_EQ(clicks[0].button, ClickButton::Left);
    // The window under the pointer still got its click.
    EXPECT_TRUE(qm::test::waitUntil([&] { return target.presses == 1; }));

    // The wheel and the middle button are not clicks; the right button is. (Over our window:
    // on the bare desktop these buttons open the window manager's menus.)
    ASSERT_TRUE(xdotool(QStringLiteral("mousemove 450 300 click 4 click 2 click 3")));
    ASSERT_TRUE(qm::test::waitUntil([&] { return clicks.size() >= 2; }));
    ASSERT_TRUE(xdotool(QStringLiteral("mousemove 210 160 click 1")));
    ASSERT_TRUE(qm::test::waitUntil([&] { return clicks.size() >= 3; }));
    ASSERT_EQ(clicks.size(), 3u);
    EXPECT_EQ(clicks[1].position, QPoint(450, 300));
    EXPECT_EQ(clicks[1].button, ClickButton::Right);
    EXPECT_EQ(clicks[2].position, QPoint(210, 160));

    // Once the watch is gone nothing more arrives.
    watch.value().reset();
    ASSERT_TRUE(xdotool(QStringLiteral("mousemove 300 200 click 1")));
    ASSERT_TRUE(qm::test::waitUntil([&] { return target.presses == 3; }));
    QCoreApplication::processEvents();
    EXPECT_EQ(clicks.size(), 3u);
}

TEST(X11ClickSource, SaysWhyWithoutAServer) {
    qm::platform::X11ClickSource source(QStringLiteral(":4711"));
    auto watch = source.watch([](const GlobalClick&) {});
    ASSERT_FALSE(watch.ok());
    EXPECT_EQ(watch.error().reason, QStringLiteral("Click highlights need an X11 session"));

    qm::platform::NullClickSource none;
    EXPECT_EQ(none.watch([](const GlobalClick&) {}).error().reason,
              QStringLiteral("Click highlights need an X11 session"));
}

} // namespace
