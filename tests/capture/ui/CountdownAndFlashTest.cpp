#include "OverlayTestSupport.h"
#include "TestSupport.h"
#include "capture/ui/CaptureFlash.h"
#include "capture/ui/CountdownController.h"
#include "capture/ui/CountdownView.h"
#include "platform/sound/api/SoundPlayer.h"

#include <QAbstractButton>
#include <QApplication>
#include <QLineEdit>
#include <QPixmap>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

using namespace qm;
using namespace qm::test;

namespace {

// Remembers what was played; a sound server cannot tell the test how often it rang.
class RecordingSounds final : public SoundPlayer {
public:
    void play(SystemSound sound) override { played.push_back(sound); }
    std::vector<SystemSound> played;
};

// Ticks when the test says so, so no test waits out real seconds.
class ManualTicker final : public CountdownTicker {
public:
    void start(std::function<void()> onTick) override {
        onTick_ = std::move(onTick);
        active_ = true;
    }
    void stop() override { active_ = false; }
    bool isActive() const override { return active_; }
    // One period passes; nothing happens while stopped.
    void tick() {
        if (active_) {
            const std::function<void()> onTick = onTick_;
            onTick();
        }
    }

private:
    std::function<void()> onTick_;
    bool active_ = false;
};

class CountdownTest : public ::testing::Test {
protected:
    void SetUp() override {
        screen = targetScreen();
        // Put the pointer on the target screen: panels appear on the screen under it.
        const QPoint center = toDevice(screen, QRectF(screen->geometry()).center());
        xdotool({QStringLiteral("mousemove"), QString::number(center.x()),
                 QString::number(center.y())});
        ASSERT_TRUE(waitUntil([&] { return QGuiApplication::screenAt(QCursor::pos()) == screen; }))
            << "pointer at " << QCursor::pos().x() << "," << QCursor::pos().y() << " device "
            << center.x() << "," << center.y();
    }

    std::function<void()> count(int& counter) {
        return [&counter] { ++counter; };
    }

    QScreen* screen = nullptr;
    RecordingSounds sounds;
    ManualTicker* ticker = new ManualTicker;
    CountdownController countdown{sounds, std::unique_ptr<CountdownTicker>(ticker)};
    int fired = 0;
    int cancelled = 0;
};

TEST_F(CountdownTest, TicksEverySecondWithASoundAndFiresAfterTheLast) {
    QLineEdit editor; // the user's focus must stay where it was
    editor.show();
    editor.activateWindow();
    ASSERT_TRUE(waitUntil([&] { return editor.hasFocus(); }));

    std::size_t soundsAtFire = 0;
    countdown.begin(
        3,
        [&] {
            ++fired;
            soundsAtFire = sounds.played.size();
        },
        count(cancelled));
    EXPECT_EQ(countdown.state().remaining(), 3);
    QSignalSpy ticks(&countdown.state(), &CountdownState::remainingChanged);
    ASSERT_TRUE(countdown.panel());
    ASSERT_TRUE(waitUntil([&] { return countdown.panel()->isVisible(); }));

    // Centred near the bottom of the screen under the pointer.
    const QRect visible = screen->availableGeometry();
    const QRect panel = countdown.panel()->geometry();
    EXPECT_NEAR(panel.center().x(), visible.center().x(), 1);
    EXPECT_EQ(panel.bottom() + 1, visible.bottom() + 1 - CountdownController::bottomMargin);

    ticker->tick();
    ticker->tick();
    EXPECT_EQ(fired, 0);
    EXPECT_TRUE(countdown.panel());
    ticker->tick();
    EXPECT_EQ(fired, 1);
    EXPECT_EQ(cancelled, 0);
    ASSERT_EQ(ticks.count(), 3);
    EXPECT_EQ(ticks[0][0].toInt(), 2);
    EXPECT_EQ(ticks[2][0].toInt(), 0);
    EXPECT_EQ(sounds.played, std::vector<SystemSound>(3, SystemSound::Alert));
    EXPECT_EQ(soundsAtFire, 3u); // the last tick sounds before the capture happens
    EXPECT_FALSE(countdown.isRunning());
    EXPECT_FALSE(countdown.panel());
    EXPECT_TRUE(editor.hasFocus());
}

TEST_F(CountdownTest, ZeroSecondsFiresAtTheFirstTick) {
    countdown.begin(0, count(fired), count(cancelled));
    QApplication::processEvents();
    EXPECT_EQ(fired, 0);
    ticker->tick();
    EXPECT_EQ(fired, 1);
    EXPECT_EQ(sounds.played.size(), 1u);
    EXPECT_EQ(cancelled, 0);
}

TEST_F(CountdownTest, CancelButtonInTheLastSecondNeverFires) {
    countdown.begin(2, count(fired), count(cancelled));
    ticker->tick();
    ASSERT_EQ(countdown.state().remaining(), 1);
    ASSERT_TRUE(waitUntil([&] { return countdown.panel()->isVisible(); }));

    // A real click on the panel's Cancel button.
    QAbstractButton* button = countdown.panel()->cancelButton();
    const QPoint target = toDevice(screen, button->mapToGlobal(QPointF(button->rect().center())));
    xdotool(
        {QStringLiteral("mousemove"), QString::number(target.x()), QString::number(target.y())});
    ASSERT_TRUE(waitUntil([&] { return !countdown.panel() || countdown.panel()->cancelHover(); }));
    xdotool({QStringLiteral("click"), QStringLiteral("1")});
    ASSERT_TRUE(waitUntil([&] { return cancelled > 0; }, std::chrono::seconds(5)));
    EXPECT_FALSE(countdown.isRunning());
    EXPECT_FALSE(countdown.panel());
    ticker->tick(); // the moment the countdown would have fired
    EXPECT_EQ(fired, 0);
    EXPECT_EQ(cancelled, 1);
}

TEST_F(CountdownTest, NewCountdownEndsTheRunningOneSilently) {
    int firstFired = 0;
    int firstCancelled = 0;
    countdown.begin(5, count(firstFired), count(firstCancelled));
    countdown.begin(1, count(fired), count(cancelled));
    ticker->tick();
    EXPECT_EQ(fired, 1);
    EXPECT_EQ(firstFired + firstCancelled, 0);
    QApplication::processEvents();
    const QWidgetList windows = QApplication::topLevelWidgets();
    EXPECT_EQ(
        std::count_if(windows.begin(), windows.end(),
                      [](QWidget* w) { return w->isVisible() && qobject_cast<CountdownView*>(w); }),
        0);
}

TEST_F(CountdownTest, FlashCoversTheCapturedAreaWithoutTakingInputThenGoes) {
    const QPointF origin = screen->geometry().topLeft();
    const QRectF area(origin + QPointF(100, 80), QSizeF(300, 200));
    QPointer<QWidget> flash = CaptureFlash::flash(area);
    ASSERT_TRUE(flash);
    EXPECT_EQ(flash->geometry(), area.toRect());
    EXPECT_TRUE(flash->windowFlags().testFlag(Qt::WindowTransparentForInput));
    ASSERT_TRUE(waitUntil([&] { return !flash || flash->windowHandle()->isExposed(); }));
    const QImage shown = screen->grabWindow(0).toImage();
    if (flash && flash->isVisible()) { // without a compositor the flash is white until it goes
        const double scale = screen->devicePixelRatio();
        EXPECT_EQ(shown.pixelColor(int(250 * scale), int(180 * scale)), QColor(Qt::white));
    }
    ASSERT_TRUE(waitUntil([&] { return !flash || !flash->isVisible(); }, std::chrono::seconds(3)));

    EXPECT_FALSE(CaptureFlash::flash(QRectF(origin + QPointF(10, 10), QSizeF(1, 1))));
    EXPECT_FALSE(CaptureFlash::flash(QRectF(origin + QPointF(10, 10), QSizeF(300, 1))));
    QPointer<QWidget> whole = CaptureFlash::flashScreenUnderMouse();
    ASSERT_TRUE(whole);
    EXPECT_EQ(whole->geometry(), screen->geometry());
    ASSERT_TRUE(waitUntil([&] { return !whole->isVisible(); }, std::chrono::seconds(3)));
}

} // namespace
