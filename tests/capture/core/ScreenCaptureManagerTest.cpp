#include "capture/core/ScreenCaptureManager.h"

#include "TestSupport.h"
#include "X11TestDesktop.h"
#include "capture/core/FrozenDesktop.h"
#include "platform/capture/null/NullCaptureBackend.h"
#include "platform/capture/x11/X11CaptureBackend.h"

#include <QCursor>
#include <QGuiApplication>
#include <QPainter>
#include <QRasterWindow>
#include <QRegularExpression>
#include <QScreen>
#include <cmath>
#include <gtest/gtest.h>

// Runs on a private X server, once per display layout and scale (see CMakeLists.txt): the
// desktop background names each pixel's own position, so every frozen or cropped pixel can
// be traced to the exact desktop pixel it came from.

namespace qm {
namespace {

using test::ForeignWindow;
using test::patternPoint;

using test::ColourWindow;

// The monitors as the X server declares them: name → desktop pixel rectangle.
std::map<QString, QRect> serverMonitors() {
    const auto listed = test::run(QStringLiteral("xrandr"), {QStringLiteral("--listmonitors")});
    static const QRegularExpression line(
        QStringLiteral(R"(\d+: [+*]*(\S+) (\d+)/\d+x(\d+)/\d+\+(\d+)\+(\d+))"));
    std::map<QString, QRect> monitors;
    for (const QString& text : QString::fromLocal8Bit(listed.out).split(QLatin1Char('\n'))) {
        const auto m = line.match(text);
        if (m.hasMatch())
            monitors[m.captured(1)] = QRect(m.captured(4).toInt(), m.captured(5).toInt(),
                                            m.captured(2).toInt(), m.captured(3).toInt());
    }
    return monitors;
}

class ScreenCaptureManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(pattern.ok());
        ASSERT_TRUE(test::windowManagerRunning()) << "the desktop has no window manager";
        backend = platform::X11CaptureBackend::connect();
        ASSERT_TRUE(backend) << "the X display could not be opened";
        cache = std::make_unique<ShareableContentCache>(*backend);
        manager = std::make_unique<ScreenCaptureManager>(*backend, *cache);
        monitors = serverMonitors();
        ASSERT_EQ(monitors.size(), std::size_t(QGuiApplication::screens().size()));
        // The layout under test really is the one declared, or the checks prove little.
        const QString factors = qEnvironmentVariable("QT_SCREEN_SCALE_FACTORS");
        for (const QString& entry : factors.split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
            const QStringList pair = entry.split(QLatin1Char('='));
            const auto screens = QGuiApplication::screens();
            const auto named = std::find_if(screens.begin(), screens.end(),
                                            [&](QScreen* s) { return s->name() == pair.value(0); });
            ASSERT_NE(named, screens.end()) << entry.toStdString();
            EXPECT_EQ((*named)->devicePixelRatio(), pair.value(1).toDouble());
        }
    }

    template <class T>
    static T await(const std::function<void(ScreenCaptureManager::Completion<T>)>& start) {
        std::optional<CaptureResult<T>> result;
        start([&](const CaptureResult<T>& r) { result = r; });
        EXPECT_TRUE(test::waitUntil([&] { return result.has_value(); }));
        if (!result || !result->ok()) {
            ADD_FAILURE() << "capture failed";
            return T{};
        }
        return result->value();
    }

    DisplayCapture freeze(QScreen* screen) {
        return await<DisplayCapture>([&](auto done) { manager->capture(screen, &context, done); });
    }

    // The desktop pixel that the screen's top-left corner shows.
    QPoint pixelOrigin(const QScreen* screen) { return monitors.at(screen->name()).topLeft(); }

    // Logical rectangle of a desktop pixel rectangle on `screen`, from the server's monitor
    // layout and Qt's placement of the screen.
    QRectF toPoints(const QScreen* screen, const QRect& pixels) {
        const double s = screen->devicePixelRatio();
        const QPoint o = pixelOrigin(screen);
        return QRectF(screen->geometry().x() + (pixels.x() - o.x()) / s,
                      screen->geometry().y() + (pixels.y() - o.y()) / s, pixels.width() / s,
                      pixels.height() / s);
    }

    // Counts the pixels of `image` that do not show the desktop pixel `origin` + their position.
    static int misplaced(const QImage& image, QPoint origin, QRect skip = {}) {
        int wrong = 0;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                if (!skip.contains(x, y))
                    wrong += patternPoint(image.pixel(x, y)) != origin + QPoint(x, y);
        return wrong;
    }

    // A desktop pixel position on `screen`, offset from its top-left corner, for xterm.
    QString placeOn(const QScreen* screen, int dx, int dy, const char* size = "30x8") {
        const QPoint p = pixelOrigin(screen) + QPoint(dx, dy);
        return QStringLiteral("%1+%2+%3").arg(QLatin1String(size)).arg(p.x()).arg(p.y());
    }

    test::RootPattern pattern;
    std::unique_ptr<platform::ScreenCaptureBackend> backend;
    std::unique_ptr<ShareableContentCache> cache;
    std::unique_ptr<ScreenCaptureManager> manager;
    std::map<QString, QRect> monitors;
    QObject context;
};

TEST_F(ScreenCaptureManagerTest, FrozenScreenHoldsEveryPixelOfItsMonitor) {
    test::LogCapture log;
    for (QScreen* screen : QGuiApplication::screens()) {
        SCOPED_TRACE(screen->name().toStdString());
        const DisplayCapture frozen = freeze(screen);
        EXPECT_EQ(frozen.screen, screen);
        EXPECT_EQ(frozen.scale, screen->devicePixelRatio());
        EXPECT_EQ(frozen.image.devicePixelRatio(), screen->devicePixelRatio());
        EXPECT_EQ(frozen.image.size(), monitors.at(screen->name()).size());
        EXPECT_EQ(frozen.geometry.topLeft(), QPointF(screen->geometry().topLeft()));
        EXPECT_NEAR(frozen.pointSize().width(), screen->geometry().width(), 1.0);
        EXPECT_EQ(misplaced(frozen.image, pixelOrigin(screen)), 0);
        // The loupe's colour readout is the pixel's own.
        const QPoint last(frozen.image.width() - 1, frozen.image.height() - 1);
        EXPECT_EQ(frozen.color(last.x(), last.y())->rgb(), frozen.image.pixel(last));
        EXPECT_FALSE(frozen.color(frozen.image.width(), 0));
    }
    static const QRegularExpression timing(
        QStringLiteral(R"(^Quillmark freeze timing: content \d+ ms, screenshot \d+ ms$)"));
    EXPECT_EQ(log.lines().filter(timing).size(), QGuiApplication::screens().size());
}

TEST_F(ScreenCaptureManagerTest, CropsAreTheExactPixelsUnderTheSelection) {
    for (QScreen* screen : QGuiApplication::screens()) {
        SCOPED_TRACE(screen->name().toStdString());
        const DisplayCapture frozen = freeze(screen);
        const double s = frozen.scale;
        const QRectF g = frozen.geometry;
        const QPoint origin = pixelOrigin(screen);
        const QRectF selections[] = {
            QRectF(g.x() + 10.3, g.y() + 20.7, 100.2, 50.5),
            QRectF(g.x() + 1, g.y() + 1, 1, 1),
            QRectF(g.x() + 333, g.y() + 111, 64, 48),
            QRectF(g.right() - 5, g.bottom() - 5, 20, 20), // partly outside: clipped
            QRectF(g.x() - 30, g.y() - 30, 40, 40),
            g,
        };
        for (const QRectF& r : selections) {
            SCOPED_TRACE(QStringLiteral("%1,%2 %3x%4")
                             .arg(r.x())
                             .arg(r.y())
                             .arg(r.width())
                             .arg(r.height())
                             .toStdString());
            const auto image = ScreenCaptureManager::crop(frozen, r);
            ASSERT_TRUE(image);
            EXPECT_EQ(image->devicePixelRatio(), s);
            // Every pixel the selection touches, and no other.
            const QRectF wanted((r.x() - g.x()) * s, (r.y() - g.y()) * s, r.width() * s,
                                r.height() * s);
            const QRectF onScreen = wanted & QRectF(QPointF(), QSizeF(frozen.image.size()));
            const QPoint first = patternPoint(image->pixel(0, 0)) - origin;
            EXPECT_EQ(first.x(), int(std::floor(onScreen.left() + 1e-9)));
            EXPECT_EQ(first.y(), int(std::floor(onScreen.top() + 1e-9)));
            EXPECT_EQ(first.x() + image->width(), int(std::ceil(onScreen.right() - 1e-9)));
            EXPECT_EQ(first.y() + image->height(), int(std::ceil(onScreen.bottom() - 1e-9)));
            EXPECT_EQ(misplaced(*image, origin + first), 0);
        }
        EXPECT_FALSE(ScreenCaptureManager::crop(frozen, QRectF(g.right() + 1, g.y(), 50, 50)));
        EXPECT_FALSE(ScreenCaptureManager::crop(frozen, QRectF(g.x(), g.bottom() + 0.5, 9, 9)));
    }
}

TEST_F(ScreenCaptureManagerTest, WindowListIsFrontMostFirstWithoutOursOrTinyOnes) {
    QScreen* screen = QGuiApplication::screens().last();
    ColourWindow own(Qt::green);
    own.setGeometry(QRect(screen->geometry().topLeft() + QPoint(20, 300), QSize(120, 90)));
    own.show();
    ASSERT_TRUE(test::waitUntil([&] { return own.isExposed(); }));
    ForeignWindow back(QStringLiteral("QmBack"), Qt::red, placeOn(screen, 40, 60));
    ForeignWindow front(QStringLiteral("QmFront"), Qt::blue, placeOn(screen, 420, 80));
    ForeignWindow tiny(QStringLiteral("QmTiny"), Qt::yellow, placeOn(screen, 300, 400, "1x1"));
    ASSERT_TRUE(back.ok() && front.ok() && tiny.ok());
    front.activate();
    // A title in UTF-8, as toolkits set it; the window label shows it.
    const QString title = QStringLiteral("Inbox — Mail");
    test::run(QStringLiteral("xprop"),
              {QStringLiteral("-id"), QString::number(front.window()), QStringLiteral("-f"),
               QStringLiteral("_NET_WM_NAME"), QStringLiteral("8u"), QStringLiteral("-set"),
               QStringLiteral("_NET_WM_NAME"), title});

    DisplayCapture frozen;
    auto names = [&] {
        std::vector<QString> result;
        for (const auto& w : frozen.windows)
            result.push_back(w.appName.value_or(QString()));
        return result;
    };
    // Own windows appear in the list only once mapped; wait for the picture to show it.
    ASSERT_TRUE(test::waitUntil([&] {
        frozen = freeze(screen);
        const auto inside =
            ScreenCaptureManager::crop(frozen, QRectF(own.geometry()).adjusted(2, 2, -2, -2));
        return inside &&
               QColor(inside->pixel(inside->width() / 2, inside->height() / 2)) ==
                   QColor(Qt::green) &&
               names() ==
                   std::vector<QString>{QStringLiteral("QmFront"), QStringLiteral("QmBack")} &&
               frozen.windows.front().title == title;
    })) << names().size();

    // What Qt drew is in the frozen picture, pixel for pixel.
    const auto drawn =
        ScreenCaptureManager::crop(frozen, QRectF(own.geometry()).adjusted(1, 1, -1, -1));
    ASSERT_TRUE(drawn);
    int notGreen = 0;
    for (int y = 0; y < drawn->height(); ++y)
        for (int x = 0; x < drawn->width(); ++x)
            notGreen += QColor(drawn->pixel(x, y)) != QColor(Qt::green);
    EXPECT_EQ(notGreen, 0);

    // Frames are the window manager's, decorations included, in the screen's points; a crop
    // of a frame shows the window.
    const CapturedWindow& listed = frozen.windows.front();
    const QRectF client = toPoints(screen, front.geometry());
    EXPECT_TRUE(listed.frame.contains(client));
    EXPECT_GT(listed.frame.height(), client.height());
    ASSERT_TRUE(listed.windowId);
    const auto framed = ScreenCaptureManager::crop(frozen, listed.frame);
    ASSERT_TRUE(framed);
    const QPointF centre = (client.center() - listed.frame.topLeft()) * frozen.scale;
    EXPECT_EQ(QColor(framed->pixel(centre.toPoint())), QColor(Qt::blue));
    // The frame maps back onto whole pixels: cropping it takes exactly the frame.
    EXPECT_EQ(QSizeF(framed->size()), listed.frame.size() * frozen.scale);
}

TEST_F(ScreenCaptureManagerTest, WindowsAreCapturedOnTheirOwnAtTheirScreensScale) {
    QScreen* screen = QGuiApplication::screens().last();
    ForeignWindow first(QStringLiteral("QmFirst"), Qt::red, placeOn(screen, 40, 60));
    ForeignWindow second(QStringLiteral("QmSecond"), Qt::blue, placeOn(screen, 420, 80));
    ASSERT_TRUE(first.ok() && second.ok());
    second.activate();
    const DisplayCapture frozen = freeze(screen);
    ASSERT_EQ(frozen.windows.size(), 2u);

    const CapturedWindow& window = frozen.windows.at(1); // QmFirst, behind
    ASSERT_EQ(window.appName, QStringLiteral("QmFirst"));
    const QImage live =
        await<QImage>([&](auto done) { manager->captureWindow(window, &context, done); });
    EXPECT_EQ(live.devicePixelRatio(), screen->devicePixelRatio());
    EXPECT_EQ(live, *ScreenCaptureManager::crop(frozen, window.frame));

    CapturedWindow unknown = window;
    unknown.windowId.reset();
    std::optional<CaptureResult<QImage>> none;
    manager->captureWindow(unknown, &context, [&](const auto& r) { none = r; });
    ASSERT_TRUE(test::waitUntil([&] { return none.has_value(); }));
    EXPECT_EQ(none->error().error, CaptureError::NoWindow);

    // The focused window is the front window.
    first.activate();
    const QImage front =
        await<QImage>([&](auto done) { manager->captureFrontWindow(&context, done); });
    EXPECT_EQ(front.devicePixelRatio(), screen->devicePixelRatio());
    EXPECT_EQ(QColor(front.pixel(front.width() / 2, front.height() / 2)), QColor(Qt::red));
}

TEST_F(ScreenCaptureManagerTest, ActiveDisplayIsTheOneUnderThePointer) {
    for (QScreen* screen : QGuiApplication::screens()) {
        SCOPED_TRACE(screen->name().toStdString());
        const QPoint centre = monitors.at(screen->name()).center();
        test::run(QStringLiteral("xdotool"),
                  {QStringLiteral("mousemove"), QString::number(centre.x()),
                   QString::number(centre.y())});
        ASSERT_TRUE(
            test::waitUntil([&] { return QGuiApplication::screenAt(QCursor::pos()) == screen; }));
        const DisplayCapture frozen = await<DisplayCapture>(
            [&](auto done) { manager->captureActiveDisplay(&context, done); });
        EXPECT_EQ(frozen.screen, screen);
        const QImage full =
            await<QImage>([&](auto done) { manager->captureFullScreen(&context, done); });
        EXPECT_EQ(full.size(), monitors.at(screen->name()).size());
        EXPECT_EQ(full.devicePixelRatio(), screen->devicePixelRatio());
        EXPECT_EQ(misplaced(full, pixelOrigin(screen)), 0);
    }
}

TEST_F(ScreenCaptureManagerTest, ASelectionAcrossMonitorsHoldsEachMonitorsOwnPixels) {
    const FrozenDesktop desktop =
        await<FrozenDesktop>([&](auto done) { manager->captureDesktop(&context, done); });
    const auto screens = QGuiApplication::screens();
    ASSERT_EQ(desktop.displays.size(), std::size_t(screens.size()));
    for (const DisplayCapture& display : desktop.displays) {
        ASSERT_TRUE(display.screen);
        EXPECT_EQ(display.pixelOrigin, pixelOrigin(display.screen));
        EXPECT_EQ(misplaced(display.image, display.pixelOrigin), 0);
    }

    // Where the test itself expects each screen's pixels of a selection: on the desktop.
    const auto expectedPieces = [&](const QRectF& r) {
        std::vector<QRect> pieces;
        for (QScreen* screen : screens) {
            const QRectF part = r & QRectF(screen->geometry());
            if (part.isEmpty())
                continue;
            const double s = screen->devicePixelRatio();
            const QPointF g = screen->geometry().topLeft();
            const QPoint o = pixelOrigin(screen);
            const int x0 = int(std::floor((part.left() - g.x()) * s + 1e-9));
            const int y0 = int(std::floor((part.top() - g.y()) * s + 1e-9));
            const int x1 = int(std::ceil((part.right() - g.x()) * s - 1e-9));
            const int y1 = int(std::ceil((part.bottom() - g.y()) * s - 1e-9));
            pieces.push_back(QRect(o + QPoint(x0, y0), o + QPoint(x1 - 1, y1 - 1)));
        }
        return pieces;
    };
    const QRectF first = screens.first()->geometry();
    const QRectF last = screens.last()->geometry();
    // From the first screen onto the last: through the middle of both, and along the bottom
    // of the shorter one, where part of the area lies on no monitor.
    const QRectF selections[] = {
        QRectF(QPointF(first.right() - 120.5, last.top() + 300),
               QPointF(last.left() + 80.25, last.top() + 400)),
        QRectF(QPointF(first.right() - 50, last.bottom() - 30),
               QPointF(last.left() + 50, std::min(first.bottom(), last.bottom() + 40))),
        QRectF(first.topLeft() + QPointF(10.3, 20.7), QSizeF(100.2, 50.5)),
    };
    for (const QRectF& r : selections) {
        SCOPED_TRACE(QStringLiteral("%1,%2 %3x%4")
                         .arg(r.x())
                         .arg(r.y())
                         .arg(r.width())
                         .arg(r.height())
                         .toStdString());
        const std::vector<QRect> pieces = expectedPieces(r);
        ASSERT_FALSE(pieces.empty());
        QRect bounds;
        for (const QRect& piece : pieces)
            bounds |= piece;
        const auto image = ScreenCaptureManager::crop(desktop, r);
        ASSERT_TRUE(image);
        ASSERT_EQ(image->size(), bounds.size());
        int wrong = 0;
        for (int y = 0; y < image->height(); ++y)
            for (int x = 0; x < image->width(); ++x) {
                const QPoint onDesktop = bounds.topLeft() + QPoint(x, y);
                const bool shown = std::any_of(pieces.begin(), pieces.end(), [&](const QRect& p) {
                    return p.contains(onDesktop);
                });
                const QRgb pixel = image->pixel(x, y);
                wrong += shown ? qAlpha(pixel) != 255 || patternPoint(pixel) != onDesktop
                               : qAlpha(pixel) != 0;
            }
        EXPECT_EQ(wrong, 0);
    }
}

TEST_F(ScreenCaptureManagerTest, UnavailableCaptureSaysWhy) {
    platform::NullCaptureBackend null(
        QStringLiteral("Screen capture on Wayland is not supported yet."));
    ShareableContentCache nullCache(null);
    ScreenCaptureManager nullManager(null, nullCache);
    std::optional<CaptureResult<DisplayCapture>> result;
    nullManager.captureActiveDisplay(&context, [&](const auto& r) { result = r; });
    ASSERT_TRUE(test::waitUntil([&] { return result.has_value(); }));
    const auto& failure = result->error();
    EXPECT_EQ(failure.error, CaptureError::CaptureFailed);
    EXPECT_EQ(failure.reason, null.unavailableReason());
}

} // namespace
} // namespace qm
