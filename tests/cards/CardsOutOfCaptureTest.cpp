#include "TestSupport.h"
#include "X11TestDesktop.h"
#include "base/Preferences.h"
#include "base/SettingsStore.h"
#include "capture/core/ScreenCaptureManager.h"
#include "cards/FloatingShotManager.h"
#include "cards/FloatingShotView.h"
#include "platform/capture/x11/X11CaptureBackend.h"
#include "platform/surface/x11/X11SurfaceBackend.h"
#include "ui/FloatingWindow.h"
#include "ui/ToastCenter.h"
#include "ui/ToastView.h"

#include <QDir>
#include <QGuiApplication>
#include <QPainter>
#include <QRasterWindow>
#include <QScreen>
#include <QTemporaryDir>
#include <QThreadPool>
#include <QTimer>
#include <QWidget>
#include <gtest/gtest.h>
#include <xcb/xcb.h>

// Cards and toasts on a desktop whose background names each pixel's position, captured the
// way the capture flows do it: nothing of ours may show in the result, and everything of ours
// comes back on screen afterwards. No compositor runs, so a window taken off the screen leaves
// a hole until the program beneath redraws.

namespace qm {
namespace {

using test::patternPoint;
using test::waitUntil;

const QColor kCardColour(255, 0, 255);

using test::ColourWindow;

// Another program's window that keeps no background and redraws a while after it is told
// to, the way a busy program does: until then the screen shows whatever covered it.
class SlowWindow {
public:
    SlowWindow(const QRect& geometry, QRgb colour, std::chrono::milliseconds delay)
        : m_delay(delay) {
        m_c = xcb_connect(nullptr, nullptr);
        xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(m_c)).data;
        m_window = xcb_generate_id(m_c);
        const uint32_t values[] = {XCB_BACK_PIXMAP_NONE, XCB_EVENT_MASK_EXPOSURE};
        xcb_create_window(m_c, XCB_COPY_FROM_PARENT, m_window, screen->root,
                          std::int16_t(geometry.x()), std::int16_t(geometry.y()),
                          std::uint16_t(geometry.width()), std::uint16_t(geometry.height()), 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                          XCB_CW_BACK_PIXMAP | XCB_CW_EVENT_MASK, values);
        m_gc = xcb_generate_id(m_c);
        const uint32_t foreground[] = {colour & 0xffffff};
        xcb_create_gc(m_c, m_gc, m_window, XCB_GC_FOREGROUND, foreground);
        xcb_map_window(m_c, m_window);
        xcb_flush(m_c);
        m_size = geometry.size();
        QObject::connect(&m_poll, &QTimer::timeout, [this] { poll(); });
        m_poll.start(2);
    }
    ~SlowWindow() {
        xcb_destroy_window(m_c, m_window);
        xcb_disconnect(m_c);
    }
    std::uint32_t window() const { return m_window; }
    int redraws() const { return m_redraws; }

private:
    void poll() {
        while (xcb_generic_event_t* event = xcb_poll_for_event(m_c)) {
            if ((event->response_type & 0x7f) == XCB_EXPOSE)
                QTimer::singleShot(m_delay, &m_poll, [this] { paint(); });
            std::free(event);
        }
    }
    void paint() {
        const xcb_rectangle_t all{0, 0, std::uint16_t(m_size.width()),
                                  std::uint16_t(m_size.height())};
        xcb_poly_fill_rectangle(m_c, m_window, m_gc, 1, &all);
        xcb_flush(m_c);
        ++m_redraws;
    }

    xcb_connection_t* m_c = nullptr;
    xcb_window_t m_window = 0;
    xcb_gcontext_t m_gc = 0;
    QSize m_size;
    std::chrono::milliseconds m_delay;
    QTimer m_poll;
    int m_redraws = 0;
};

QImage solid(QColor colour) {
    QImage image(400, 300, QImage::Format_RGB32);
    image.fill(colour);
    return image;
}

// Pixels of the image that are exactly the colour.
int countColour(const QImage& image, QColor colour) {
    int found = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            found += QColor(image.pixel(x, y)) == colour;
    return found;
}

class CardsOutOfCaptureTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(pattern.ok());
        ASSERT_TRUE(surfaces) << "not on X11";
        backend = platform::X11CaptureBackend::connect();
        ASSERT_TRUE(backend);
        cache = std::make_unique<ShareableContentCache>(*backend);
        capture = std::make_unique<ScreenCaptureManager>(*backend, *cache);
        capture->keepOwnWindowsOut(*surfaces);
        ASSERT_TRUE(preferences.setOutputDirectory(dir.filePath(QStringLiteral("out"))));
        const QRect screen = QGuiApplication::primaryScreen()->geometry();
        test::run(QStringLiteral("xdotool"),
                  {QStringLiteral("mousemove"), QString::number(screen.center().x()),
                   QString::number(screen.center().y())});
    }

    void TearDown() override {
        while (!cards.items().empty())
            cards.dismiss(cards.items().front());
        QThreadPool::globalInstance()->waitForDone();
    }

    // The screen as it is, straight from the server, ours included.
    QImage screenNow() {
        const auto grabbed = backend->grabDisplayNow(QGuiApplication::primaryScreen()->geometry());
        return grabbed.ok() ? grabbed.value() : QImage();
    }
    bool showsOnScreen(QPoint at, QColor colour) {
        return waitUntil([&] { return QColor(screenNow().pixel(at)) == colour; });
    }
    QPoint centreOf(const FloatingShotManager::Item& item) {
        return item->panel->geometry().center();
    }

    template <class T>
    T await(const std::function<void(ScreenCaptureManager::Completion<T>)>& start) {
        std::optional<CaptureResult<T>> result;
        start([&](const CaptureResult<T>& r) { result = r; });
        EXPECT_TRUE(waitUntil([&] { return result.has_value(); }));
        if (!result || !result->ok()) {
            ADD_FAILURE() << "capture failed";
            return T{};
        }
        return result->value();
    }

    // Installed before any window of ours exists, as the program does.
    std::unique_ptr<platform::X11SurfaceBackend> surfaces = [] {
        auto made = platform::X11SurfaceBackend::create();
        installSurfaceBackend(made.get());
        return made;
    }();
    test::RootPattern pattern;
    std::unique_ptr<platform::X11CaptureBackend> backend;
    std::unique_ptr<ShareableContentCache> cache;
    std::unique_ptr<ScreenCaptureManager> capture;
    QTemporaryDir dir;
    IniSettingsStore store{dir.filePath(QStringLiteral("settings.conf"))};
    Preferences preferences{store};
    ToastCenter toasts;
    FloatingShotManager cards{preferences, toasts};
    QObject context;
};

TEST_F(CardsOutOfCaptureTest, FullScreenCaptureHoldsNoneOfOurCardsOrToastsWhichThenComeBack) {
    const auto first = cards.present(solid(kCardColour));
    const auto second = cards.present(solid(kCardColour));
    toasts.present(QStringLiteral("A toast that must not be captured"),
                   QStringLiteral("edit-copy"));
    ASSERT_TRUE(toasts.window());
    ASSERT_TRUE(showsOnScreen(centreOf(first), kCardColour));
    ASSERT_TRUE(showsOnScreen(centreOf(second), kCardColour));
    const QRect toast = toasts.window()->geometry();
    ASSERT_TRUE(waitUntil([&] {
        const QPoint p = toast.center();
        return patternPoint(screenNow().pixel(p)) != p;
    })) << "the toast never showed";

    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE(round);
        const QImage shot =
            await<QImage>([&](auto done) { capture->captureFullScreen(&context, done); });
        ASSERT_FALSE(shot.isNull());
        int wrong = 0;
        for (int y = 0; y < shot.height(); ++y)
            for (int x = 0; x < shot.width(); ++x)
                wrong += patternPoint(shot.pixel(x, y)) != QPoint(x, y);
        EXPECT_EQ(wrong, 0) << "pixels of ours in the capture";
        // Both cards and the toast are back on screen, in their places.
        EXPECT_TRUE(showsOnScreen(centreOf(first), kCardColour));
        EXPECT_TRUE(showsOnScreen(centreOf(second), kCardColour));
        EXPECT_TRUE(first->panel->isVisible() && second->panel->isVisible());
        EXPECT_TRUE(waitUntil([&] {
            const QPoint p = toast.center();
            return patternPoint(screenNow().pixel(p)) != p;
        })) << "the toast did not come back";
    }
}

TEST_F(CardsOutOfCaptureTest, WindowCaptureOfAWindowBehindACardIsThatWindowAlone) {
    // A window that leaves the screen as it was until it redraws: the hole our card leaves
    // shows the card itself if the grab does not wait.
    ColourWindow behind(Qt::green);
    const QRect visible = QGuiApplication::primaryScreen()->availableGeometry();
    behind.setGeometry(QRect(visible.left() + 4, visible.bottom() - 420, 520, 380));
    behind.show();
    ASSERT_TRUE(waitUntil([&] { return behind.isExposed(); }));
    const auto card = cards.present(solid(kCardColour));
    ASSERT_TRUE(showsOnScreen(centreOf(card), kCardColour));
    ASSERT_TRUE(behind.geometry().contains(centreOf(card)));

    std::optional<CapturedWindow> chosen;
    ASSERT_TRUE(waitUntil([&] {
        for (const auto& w : backend->windowList())
            if (w.clientId == behind.winId() && w.bounds)
                chosen = CapturedWindow{QRectF(*w.bounds), std::nullopt, w.id};
        return chosen.has_value();
    }));
    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE(round);
        const QImage shot =
            await<QImage>([&](auto done) { capture->captureWindow(*chosen, &context, done); });
        ASSERT_FALSE(shot.isNull());
        EXPECT_EQ(countColour(shot, kCardColour), 0) << "the card is in the capture";
        const QPoint inside = centreOf(card) - chosen->frame.topLeft().toPoint();
        EXPECT_EQ(QColor(shot.pixel(inside)), QColor(Qt::green));
        EXPECT_TRUE(showsOnScreen(centreOf(card), kCardColour));
    }
}

TEST_F(CardsOutOfCaptureTest, AWindowCapturedJustAfterOneOfOursWentAwayWaitsForItsRedraw) {
    // As after choosing a window on the selection overlay: ours has just left the screen and
    // the program beneath has not redrawn yet.
    SlowWindow slow(QRect(300, 200, 500, 400), qRgb(0, 160, 0), std::chrono::milliseconds(15));
    std::optional<CapturedWindow> chosen;
    ASSERT_TRUE(waitUntil([&] {
        for (const auto& w : backend->windowList())
            if (w.clientId == slow.window() && w.bounds)
                chosen = CapturedWindow{QRectF(*w.bounds), std::nullopt, w.id};
        return chosen.has_value() && slow.redraws() > 0;
    }));
    QWidget overlay;
    makeFloatingWindow(&overlay, PointerInput::PassThrough);
    overlay.setStyleSheet(QStringLiteral("background: #ff00ff"));
    overlay.setAutoFillBackground(true);
    // The window manager places it where it likes.
    const QRect frame = chosen->frame.toRect();
    overlay.setGeometry(frame.adjusted(-50, -50, 50, 50));
    overlay.show();
    ASSERT_TRUE(showsOnScreen(frame.center(), kCardColour));

    overlay.hide();
    surfaces->sync();
    const QImage shot =
        await<QImage>([&](auto done) { capture->captureWindow(*chosen, &context, done); });
    ASSERT_FALSE(shot.isNull());
    EXPECT_EQ(countColour(shot, kCardColour), 0) << "ours is still in the capture";
    EXPECT_EQ(QColor(shot.pixel(frame.center() - frame.topLeft())), QColor(0, 160, 0));
}

} // namespace
} // namespace qm
