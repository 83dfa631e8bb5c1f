#include "platform/x11/X11CaptureBackend.h"

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
        backend = X11CaptureBackend::connect();
        ASSERT_TRUE(backend);
    }

    QImage grab(const QRect& rect) {
        auto result = backend->grabDisplayNow(rect);
        EXPECT_TRUE(std::holds_alternative<QImage>(result));
        return std::holds_alternative<QImage>(result) ? std::get<QImage>(result) : QImage();
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

TEST_F(X11CaptureBackendTest, GrabsExactlyThePixelsOnScreen) {
    const QImage whole = grab(QRect(0, 0, 1920, 1080));
    ASSERT_EQ(whole.size(), QSize(1920, 1080));
    EXPECT_EQ(whole.format(), QImage::Format_RGB32);
    int wrong = 0;
    for (int y = 0; y < whole.height(); ++y)
        for (int x = 0; x < whole.width(); ++x)
            wrong += whole.pixel(x, y) != (0xff000000u | patternColor(x, y));
    EXPECT_EQ(wrong, 0);

    // A rectangle off the origin, and one reaching past the desktop, which is clipped.
    const QImage part = grab(QRect(1234, 567, 101, 37));
    ASSERT_EQ(part.size(), QSize(101, 37));
    EXPECT_EQ(part.pixel(0, 0), 0xff000000u | patternColor(1234, 567));
    EXPECT_EQ(part.pixel(100, 36), 0xff000000u | patternColor(1334, 603));
    EXPECT_EQ(grab(QRect(1900, 1000, 100, 100)).size(), QSize(20, 80));
    EXPECT_TRUE(
        std::holds_alternative<CaptureFailure>(backend->grabDisplayNow(QRect(3000, 0, 10, 10))));
}

TEST_F(X11CaptureBackendTest, ListsDisplaysAndCapturableWindows) {
    ForeignWindow term(QStringLiteral("QmListed"), Qt::red, QStringLiteral("40x10+200+150"));
    ASSERT_TRUE(term.ok());
    auto result = backend->fetchContentNow();
    ASSERT_TRUE(std::holds_alternative<ShareableContent>(result));
    const auto& content = std::get<ShareableContent>(result);
    ASSERT_EQ(content.displays.size(), 1u);
    EXPECT_EQ(content.displays.front().name, QStringLiteral("screen"));
    EXPECT_EQ(content.displays.front().pixelGeometry, QRect(0, 0, 1920, 1080));
    const auto listed = find(backend->windowList(), term.window());
    ASSERT_TRUE(listed);
    EXPECT_NE(std::find(content.windows.begin(), content.windows.end(), listed->id),
              content.windows.end());
}

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
}

TEST_F(X11CaptureBackendTest, WindowOpacityIsReported) {
    ForeignWindow term(QStringLiteral("QmFaint"), Qt::green, QStringLiteral("40x10+300+300"));
    ASSERT_TRUE(term.ok());
    test::run(QStringLiteral("xprop"),
              {QStringLiteral("-id"), QString::number(term.window()), QStringLiteral("-f"),
               QStringLiteral("_NET_WM_WINDOW_OPACITY"), QStringLiteral("32c"),
               QStringLiteral("-set"), QStringLiteral("_NET_WM_WINDOW_OPACITY"),
               QString::number(0x0ccccccc)});
    ASSERT_TRUE(test::waitUntil([&] {
        const auto w = find(backend->windowList(), term.window());
        return w && w->alpha;
    }));
    EXPECT_NEAR(*find(backend->windowList(), term.window())->alpha, 0.05, 1e-6);
}

TEST_F(X11CaptureBackendTest, WindowWithoutCompositorIsWhatTheScreenShows) {
    ForeignWindow below(QStringLiteral("QmBelow"), Qt::red, QStringLiteral("40x10+100+100"));
    ForeignWindow above(QStringLiteral("QmAbove"), Qt::blue, QStringLiteral("40x10+200+150"));
    ASSERT_TRUE(below.ok() && above.ok());
    above.activate();
    ASSERT_FALSE(backend->compositorRunning());
    const auto w = find(backend->windowList(), below.window());
    ASSERT_TRUE(w && w->bounds);

    auto result = backend->grabWindowNow(w->id);
    ASSERT_TRUE(std::holds_alternative<WindowImage>(result));
    const auto& shot = std::get<WindowImage>(result);
    EXPECT_EQ(shot.pixelBounds, *w->bounds);
    EXPECT_EQ(shot.image, grab(*w->bounds));
    // The covered corner shows the window on top.
    const QPoint covered = above.geometry().topLeft() + QPoint(5, 5) - w->bounds->topLeft();
    EXPECT_EQ(QColor(shot.image.pixel(covered)), QColor(Qt::blue));

    EXPECT_EQ(std::get<CaptureFailure>(backend->grabWindowNow(0x7fffff)).error,
              CaptureError::NoWindow);
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
        if (!std::holds_alternative<WindowImage>(result))
            return false;
        image = std::get<WindowImage>(result).image;
        return QColor(image.pixel(clientInside)) == QColor(Qt::red);
    }));
    EXPECT_EQ(image.size(), w->bounds->size());
    EXPECT_EQ(QColor(image.pixel(covered)), QColor(Qt::red));
}

TEST_F(X11CaptureBackendTest, AnswersArriveLaterOnTheEventLoop) {
    bool answered = false;
    backend->grabDisplay(QRect(0, 0, 10, 10), [&](const CaptureResult<QImage>& result) {
        answered = true;
        EXPECT_TRUE(std::holds_alternative<QImage>(result));
    });
    EXPECT_FALSE(answered);
    EXPECT_TRUE(test::waitUntil([&] { return answered; }));
}

} // namespace
} // namespace qm::platform
