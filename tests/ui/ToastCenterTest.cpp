#include "ui/ToastCenter.h"

#include "TestSupport.h"
#include "ui/Brand.h"
#include "ui/ToastView.h"
#include "platform/desktop/Notifications.h"

#include <QApplication>
#include <QGuiApplication>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPointer>
#include <QProcess>
#include <QScreen>
#include <QTest>
#include <QVBoxLayout>
#include <QWindow>
#include <cmath>
#include <gtest/gtest.h>

using namespace qm;
using namespace qm::test;

namespace {

QPoint toDevice(QScreen* screen, QPointF global) {
    // On X11 Qt keeps each screen's top-left in device pixels and scales only within it.
    const QPointF origin = screen->geometry().topLeft();
    const QPointF device = origin + (global - origin) * screen->devicePixelRatio();
    return {int(std::lround(device.x())), int(std::lround(device.y()))};
}

void xdotool(const QStringList& args) {
    ASSERT_EQ(run(QStringLiteral("xdotool"), args).exitCode, 0) << args.join(u' ').toStdString();
}

// A window that counts the presses it receives.
class ClickTarget final : public QWidget {
public:
    int presses = 0;

protected:
    void mousePressEvent(QMouseEvent*) override { ++presses; }
};

class ToastCenterTest : public ::testing::Test {
protected:
    void SetUp() override {
        screen = QGuiApplication::screens().constLast();
        const QPoint center = toDevice(screen, QRectF(screen->geometry()).center());
        xdotool({QStringLiteral("mousemove"), QString::number(center.x()),
                 QString::number(center.y())});
        ASSERT_TRUE(waitUntil([&] { return QGuiApplication::screenAt(QCursor::pos()) == screen; }));
    }

    bool showing(ToastView* toast) const {
        return toast && toast->isVisible() && toast->windowHandle()->isExposed();
    }

    QScreen* screen = nullptr;
    ToastCenter toasts;
};

TEST_F(ToastCenterTest, SitsCentredAboveTheBottomOfTheScreenUnderThePointer) {
    toasts.present(QStringLiteral("Copied"), QStringLiteral("edit-copy"),
                   ToastCenter::Style::Plain);
    QPointer<ToastView> toast = toasts.window();
    ASSERT_TRUE(waitUntil([&] { return showing(toast); }));
    EXPECT_EQ(toast->screen(), screen);
    const QRect visible = screen->availableGeometry();
    const QRect frame = toast->geometry();
    EXPECT_NEAR(frame.center().x(), visible.center().x(), 1);
    EXPECT_EQ(frame.bottom() + 1, visible.bottom() + 1 - ToastCenter::bottomMargin);
    EXPECT_EQ(toast->text(), QStringLiteral("Copied"));
    EXPECT_EQ(toast->size(), toast->sizeHint());
}

TEST_F(ToastCenterTest, NewToastReplacesTheCurrentOneAtOnceAndKeepsItsOwnTime) {
    using namespace std::chrono_literals;
    ToastCenter quick(nullptr, 600ms);
    quick.present(QStringLiteral("Copied"), QStringLiteral("edit-copy"), ToastCenter::Style::Plain);
    QPointer<ToastView> first = quick.window();
    ASSERT_TRUE(waitUntil([&] { return showing(first); }));
    ASSERT_TRUE(waitUntil([&] { return quick.timeLeft() < 300ms; }));

    quick.present(QStringLiteral("Saved to Quillmark"), QStringLiteral("document-save"),
                  ToastCenter::Style::Accent);
    // Gone before the event loop ran once: no fade for a replaced toast.
    EXPECT_TRUE(!first || !first->isVisible());
    QPointer<ToastView> second = quick.window();
    ASSERT_TRUE(second);
    EXPECT_EQ(second->text(), QStringLiteral("Saved to Quillmark"));
    EXPECT_EQ(second->tint(), Brand::yellow());
    EXPECT_GT(quick.timeLeft(), 500ms) << "the new toast starts its own time";
    ASSERT_TRUE(waitUntil([&] { return showing(second); }));

    // When the first toast's time has run out, the second is still there.
    ASSERT_TRUE(waitUntil([&] { return quick.timeLeft() < 300ms; }));
    EXPECT_EQ(quick.window(), second.data());
    EXPECT_TRUE(second && second->isVisible());
    const QWidgetList windows = QApplication::topLevelWidgets();
    EXPECT_EQ(
        std::count_if(windows.begin(), windows.end(),
                      [](QWidget* w) { return w->isVisible() && qobject_cast<ToastView*>(w); }),
        1);

    // And then it fades away by itself.
    ASSERT_TRUE(waitUntil([&] { return !second; }, std::chrono::seconds(5)));
    EXPECT_FALSE(quick.window());
}

TEST_F(ToastCenterTest, NeverTakesFocusNorClicks) {
    // The user works in a window that lies under where toasts appear.
    ClickTarget below;
    auto* layout = new QVBoxLayout(&below);
    auto* editor = new QLineEdit(&below);
    layout->addWidget(editor);
    layout->addStretch();
    below.setGeometry(screen->availableGeometry().adjusted(40, 40, -40, -10));
    below.show();
    below.activateWindow();
    ASSERT_TRUE(waitUntil([&] { return editor->hasFocus(); }));
    const QString focused = QString::number(below.winId());
    ASSERT_TRUE(waitUntil([&] {
        return run(QStringLiteral("xdotool"), {QStringLiteral("getwindowfocus")}).out.trimmed() ==
               focused.toLatin1();
    }));

    toasts.present(QStringLiteral("Moved to Trash"), QStringLiteral("user-trash"),
                   ToastCenter::Style::Error);
    QPointer<ToastView> toast = toasts.window();
    ASSERT_TRUE(waitUntil([&] { return showing(toast); }));
    const QPoint toastCenter = toast->geometry().center();
    ASSERT_TRUE(below.frameGeometry().contains(toastCenter));
    QApplication::processEvents();

    EXPECT_TRUE(editor->hasFocus());
    EXPECT_EQ(QGuiApplication::focusWindow(), below.windowHandle());
    EXPECT_EQ(run(QStringLiteral("xdotool"), {QStringLiteral("getwindowfocus")}).out.trimmed(),
              focused.toLatin1());

    // A click on the toast lands in the window below it.
    const QPoint device = toDevice(screen, toastCenter);
    xdotool({QStringLiteral("mousemove"), QString::number(device.x()), QString::number(device.y()),
             QStringLiteral("click"), QStringLiteral("1")});
    EXPECT_TRUE(waitUntil([&] { return below.presses == 1; }));
    EXPECT_TRUE(toast && toast->isVisible());
}

TEST_F(ToastCenterTest, AToastWithActionsTakesClicksOnItsBodyAndItsButton) {
    for (const bool onButton : {false, true}) {
        int clicked = 0;
        int buttonPressed = 0;
        toasts.present(QStringLiteral("Not saved: the disk is full"),
                       QStringLiteral("dialog-warning"), ToastCenter::Style::Error,
                       {[&] { ++clicked; }, QStringLiteral("Save As…"), [&] { ++buttonPressed; }});
        QPointer<ToastView> toast = toasts.window();
        ASSERT_TRUE(waitUntil([&] { return showing(toast); }));
        EXPECT_EQ(toast->buttonLabel(), QStringLiteral("Save As…"));
        // Twice as long as a plain toast, so there is time to reach it.
        EXPECT_GT(toasts.timeLeft(), ToastCenter::holdTime);
        const QPointF local = onButton ? toast->buttonRect().center()
                                       : QPointF(toast->height() / 2.0, toast->height() / 2.0);
        const QPoint device = toDevice(screen, toast->mapToGlobal(local));
        xdotool({QStringLiteral("mousemove"), QString::number(device.x()),
                 QString::number(device.y()), QStringLiteral("click"), QStringLiteral("1")});
        ASSERT_TRUE(waitUntil([&] { return clicked + buttonPressed == 1; }));
        EXPECT_EQ(buttonPressed, onButton ? 1 : 0);
        // Its job done, the toast goes.
        EXPECT_TRUE(waitUntil([&] { return !toast; }, std::chrono::seconds(3)));
    }
}

// With the desktop's own notification server (dunst here) running.
TEST_F(ToastCenterTest, ResultsCanGoToTheDesktopsNotificationsInstead) {
    QProcess server;
    server.start(QStringLiteral("dunst"), {});
    ASSERT_TRUE(server.waitForStarted()) << "dunst is missing (scripts/setup.sh installs it)";
    DesktopNotifications notifications;
    ASSERT_TRUE(waitUntil([&] { return notifications.available(); }));
    toasts.sendResultsTo(&notifications);

    int saveAs = 0;
    toasts.presentNotSaved(QStringLiteral("the disk is full"), [&] { ++saveAs; });
    EXPECT_FALSE(toasts.window());
    auto shown = [] {
        return run(QStringLiteral("dunstctl"), {QStringLiteral("count"), QStringLiteral("displayed")})
            .out.trimmed();
    };
    ASSERT_TRUE(waitUntil([&] { return shown() == "1"; }));
    // Its default action is what the toast's button did.
    run(QStringLiteral("dunstctl"), {QStringLiteral("action"), QStringLiteral("0")});
    EXPECT_TRUE(waitUntil([&] { return saveAs == 1; }));

    toasts.sendResultsTo(nullptr);
    toasts.presentNotSaved(QStringLiteral("the disk is full"));
    EXPECT_TRUE(toasts.window());
    server.terminate();
    server.waitForFinished();
}

TEST_F(ToastCenterTest, DismissFadesTheToastOut) {
    toasts.present(QStringLiteral("Reply copied"), QStringLiteral("no-such-icon"),
                   ToastCenter::Style::Plain);
    QPointer<ToastView> toast = toasts.window();
    ASSERT_TRUE(waitUntil([&] { return showing(toast); }));
    toasts.dismiss(toast);
    EXPECT_TRUE(toast); // fading, not yet gone
    ASSERT_TRUE(waitUntil([&] { return !toast; }, std::chrono::seconds(3)));
    EXPECT_FALSE(toasts.window());
}

} // namespace
