#include "platform/surface/x11/X11SurfaceBackend.h"

#include "TestSupport.h"
#include "X11TestDesktop.h"

#include <QGuiApplication>
#include <QRasterWindow>
#include <QScreen>
#include <gtest/gtest.h>

namespace qm::platform {
namespace {

void xdotool(const QStringList& args) {
    const test::ProcessResult result = test::run(QStringLiteral("xdotool"), args);
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
}

TEST(X11SurfaceBackend, SeesWhetherACompositingManagerRuns) {
    auto surface = X11SurfaceBackend::create();
    ASSERT_TRUE(surface);
    EXPECT_FALSE(surface->compositingAvailable());
    {
        test::Compositor compositor;
        ASSERT_TRUE(compositor.ok());
        EXPECT_TRUE(surface->compositingAvailable());
    }
    EXPECT_TRUE(test::waitUntil([&] { return !surface->compositingAvailable(); }));
}

TEST(X11SurfaceBackend, KnowsThePointersExactPixelFromTheEventsAlone) {
    auto surface = X11SurfaceBackend::create();
    ASSERT_TRUE(surface);
    // On this 1.5× screen Qt reports whole points, so odd pixels are lost to it.
    QRasterWindow window;
    window.setFlags(Qt::FramelessWindowHint | Qt::X11BypassWindowManagerHint);
    window.setGeometry(QRect(QPoint(100, 100), QSize(400, 300)));
    window.show();
    ASSERT_TRUE(test::waitUntil([&] { return window.isExposed(); }));
    const QPoint windowPixel(150, 150); // 100 points at 1.5×
    EXPECT_FALSE(surface->lastPointerPosition(window.winId()).has_value());

    for (const QPoint inside : {QPoint(31, 47), QPoint(32, 47), QPoint(33, 48)}) {
        const QPoint target = windowPixel + inside;
        xdotool({QStringLiteral("mousemove"), QString::number(target.x()),
                 QString::number(target.y())});
        EXPECT_TRUE(test::waitUntil([&] {
            return surface->lastPointerPosition(window.winId()) == inside;
        })) << "expected "
            << inside.x() << "," << inside.y();
    }
    // Its last report was about this window, not another.
    EXPECT_FALSE(surface->lastPointerPosition(window.winId() + 1).has_value());

    // A window hidden and synced is off the screen at once.
    window.hide();
    surface->sync();
    const test::ProcessResult under =
        test::run(QStringLiteral("xdotool"), {QStringLiteral("getmouselocation")});
    EXPECT_FALSE(under.out.contains("window:" + QByteArray::number(window.winId()) + "\n"));
}

} // namespace
} // namespace qm::platform
