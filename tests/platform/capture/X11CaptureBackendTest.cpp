#include "platform/capture/x11/X11CaptureBackend.h"

#include "TestSupport.h"
#include "X11TestDesktop.h"

#include <QCoreApplication>
#include <gtest/gtest.h>

namespace qm::platform {
namespace {

using test::ForeignWindow;
using test::patternColor;

class X11CaptureBackendTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(pattern.ok());
        ASSERT_TRUE(test::windowManagerRunning()) << "the desktop has no window manager";
        backend = X11CaptureBackend::connect();
        ASSERT_TRUE(backend);
    }

    QImage grab(const QRect& rect) {
        auto result = backend->grabDisplayNow(rect);
        EXPECT_TRUE(result.ok());
        return result.ok() ? result.value() : QImage();
    }

    static std::optional<ServerWindow> find(const std::vector<ServerWindow>& list,
                                            std::uint32_t client) {
        for (const auto& w : list)
            if (w.clientId == client)
                return w;
        return std::nullopt;
    }

    test::RootPattern pattern;
    std::unique_ptr<X11CaptureBackend> backend;
};

TEST_F(X11CaptureBackendTest, WindowListIsFrontMostFirstWithFramesAndNames) {
    ForeignWindow back(QStringLiteral("QmBack"), Qt::red, QStringLiteral("40x10+100+100"));
    ForeignWindow front(QStringLiteral("QmFront"), Qt::blue, QStringLiteral("40x10+600+400"));
    ASSERT_TRUE(back.ok() && front.ok());

    auto order = [&] {
        const auto list = backend->windowList();
        std::vector<std::uint32_t> clients;
        for (const auto& w : list)
            if (w.clientId == back.window() || w.clientId == front.window())
                clients.push_back(w.clientId);
        return clients;
    };
    front.activate();
    ASSERT_TRUE(test::waitUntil([&] {
        return order() == std::vector<std::uint32_t>{front.window(), back.window()};
    }));
    back.activate();
    ASSERT_TRUE(test::waitUntil([&] {
        return order() == std::vector<std::uint32_t>{back.window(), front.window()};
    }));
    EXPECT_EQ(backend->activeWindow(), back.window());

    const auto list = backend->windowList();
    const auto w = find(list, front.window());
    ASSERT_TRUE(w && w->bounds);
    EXPECT_EQ(w->layer, 0);
    EXPECT_EQ(w->pid, front.pid());
    EXPECT_EQ(w->ownerName, QStringLiteral("QmFront"));
    EXPECT_FALSE(w->alpha.has_value());
    // The frame is the window manager's, around the client, with a title bar above it.
    const QRect client = front.geometry();
    EXPECT_NE(w->id, w->clientId);
    EXPECT_TRUE(w->bounds->contains(client)) << w->bounds->x() << "," << w->bounds->y();
    EXPECT_GT(client.top() - w->bounds->top(), 10);

    // The frame's pixels on screen are the client's colour inside.
    const QImage shot = grab(*w->bounds);
    const QPoint inside = client.center() - w->bounds->topLeft();
    EXPECT_EQ(QColor(shot.pixel(inside)), QColor(Qt::blue));

    // A translucent window says how much; the caller drops the nearly invisible ones.
    test::run(QStringLiteral("xprop"),
              {QStringLiteral("-id"), QString::number(back.window()), QStringLiteral("-f"),
               QStringLiteral("_NET_WM_WINDOW_OPACITY"), QStringLiteral("32c"),
               QStringLiteral("-set"), QStringLiteral("_NET_WM_WINDOW_OPACITY"),
               QString::number(0x0ccccccc)});
    std::optional<ServerWindow> faint;
    ASSERT_TRUE(test::waitUntil([&] {
        faint = find(backend->windowList(), back.window());
        return faint && faint->alpha;
    }));
    EXPECT_NEAR(*faint->alpha, 0.05, 1e-6);
}

TEST_F(X11CaptureBackendTest, WindowUnderCompositorIsCapturedWholeEvenWhereCovered) {
    test::Compositor compositor;
    ASSERT_TRUE(compositor.ok());
    ForeignWindow below(QStringLiteral("QmHidden"), Qt::red, QStringLiteral("40x10+100+100"));
    ForeignWindow above(QStringLiteral("QmCover"), Qt::blue, QStringLiteral("40x10+200+150"));
    ASSERT_TRUE(below.ok() && above.ok());
    above.activate();
    EXPECT_TRUE(backend->compositorRunning());
    const auto w = find(backend->windowList(), below.window());
    ASSERT_TRUE(w && w->bounds);

    const QPoint covered = above.geometry().topLeft() + QPoint(5, 5) - w->bounds->topLeft();
    const QPoint clientInside = below.geometry().topLeft() + QPoint(5, 5) - w->bounds->topLeft();
    QImage image;
    ASSERT_TRUE(test::waitUntil([&] {
        auto result = backend->grabWindowNow(w->id);
        if (!result.ok())
            return false;
        image = result.value().image;
        return QColor(image.pixel(clientInside)) == QColor(Qt::red);
    }));
    EXPECT_EQ(image.size(), w->bounds->size());
    EXPECT_EQ(QColor(image.pixel(covered)), QColor(Qt::red));

    // A window that pads itself with an invisible shadow is listed and captured without it.
    test::run(QStringLiteral("xprop"),
              {QStringLiteral("-id"), QString::number(below.window()), QStringLiteral("-f"),
               QStringLiteral("_GTK_FRAME_EXTENTS"), QStringLiteral("32c"), QStringLiteral("-set"),
               QStringLiteral("_GTK_FRAME_EXTENTS"), QStringLiteral("10,12,14,16")});
    const QRect inner = w->bounds->adjusted(10, 14, -12, -16);
    ASSERT_TRUE(test::waitUntil([&] {
        const auto again = find(backend->windowList(), below.window());
        return again && again->bounds == inner;
    }));
    auto result = backend->grabWindowNow(w->id);
    ASSERT_TRUE(result.ok());
    const auto& padded = result.value();
    EXPECT_EQ(padded.pixelBounds, inner);
    EXPECT_EQ(padded.image.size(), inner.size());
    EXPECT_EQ(QColor(padded.image.pixel(covered - QPoint(10, 14))), QColor(Qt::red));
}

TEST_F(X11CaptureBackendTest, GrabsAreClippedToTheDesktopAndAnswerLater) {
    std::optional<CaptureResult<QImage>> answer;
    backend->grabDisplay(QRect(1900, 1000, 100, 100),
                         [&](const CaptureResult<QImage>& result) { answer = result; });
    EXPECT_FALSE(answer); // never inside the call
    ASSERT_TRUE(test::waitUntil([&] { return answer.has_value(); }));
    const QImage& part = answer->value();
    ASSERT_EQ(part.size(), QSize(20, 80));
    EXPECT_EQ(part.pixel(0, 0), 0xff000000u | patternColor(1900, 1000));
    EXPECT_EQ(part.pixel(19, 79), 0xff000000u | patternColor(1919, 1079));
    EXPECT_EQ(backend->grabDisplayNow(QRect(3000, 0, 10, 10)).error().error,
              CaptureError::NoDisplay);
    EXPECT_EQ(backend->grabWindowNow(0x7fffff).error().error, CaptureError::NoWindow);
}

} // namespace
} // namespace qm::platform
