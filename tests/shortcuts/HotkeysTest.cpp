#include "TestSupport.h"
#include "base/Preferences.h"
#include "platform/shortcuts/x11/X11GlobalShortcuts.h"
#include "shortcuts/ComboRecorder.h"
#include "shortcuts/HotkeyManager.h"

#include <QTemporaryDir>
#include <QTest>
#include <QWindow>
#include <gtest/gtest.h>

using namespace qm;

namespace {

void press(const QString& keys) {
    test::run(QStringLiteral("xdotool"), {QStringLiteral("key"), keys});
}

class HotkeysTest : public ::testing::Test {
protected:
    std::unique_ptr<X11GlobalShortcuts> backend = X11GlobalShortcuts::connect();
    HotkeyManager manager{*backend};
    std::vector<HotkeyAction> fired;

    void registerDefaults() {
        for (HotkeyAction a : allHotkeyActions) {
            manager.registerHotkey(defaultHotkey(a), [this, a] { fired.push_back(a); });
        }
    }
    bool waitFired(size_t count) {
        return test::waitUntil([&] { return fired.size() >= count; }, std::chrono::seconds(5));
    }
};

TEST_F(HotkeysTest, GlobalPressesReachTheirHandlersWhateverTheLockKeys) {
    ASSERT_TRUE(backend);
    registerDefaults();
    EXPECT_EQ(manager.registered(), (std::vector<std::uint32_t>{1, 2, 3, 4}));

    press(QStringLiteral("ctrl+shift+9"));
    ASSERT_TRUE(waitFired(1));
    EXPECT_EQ(fired.back(), HotkeyAction::Fullscreen);

    // Num Lock and Caps Lock add modifier bits of their own to the press.
    press(QStringLiteral("Num_Lock"));
    press(QStringLiteral("ctrl+shift+4"));
    ASSERT_TRUE(waitFired(2));
    EXPECT_EQ(fired.back(), HotkeyAction::Region);
    press(QStringLiteral("Caps_Lock"));
    press(QStringLiteral("ctrl+shift+8"));
    ASSERT_TRUE(waitFired(3));
    EXPECT_EQ(fired.back(), HotkeyAction::Window);
    press(QStringLiteral("Num_Lock"));
    press(QStringLiteral("Caps_Lock"));

    // Without the modifiers the key is left to the focused program. Presses arrive in order,
    // so once a registered one behind them has fired, they would have fired too.
    press(QStringLiteral("4"));
    press(QStringLiteral("ctrl+4"));
    press(QStringLiteral("ctrl+shift+9"));
    ASSERT_TRUE(waitFired(4));
    EXPECT_EQ(fired.size(), 4u);
    EXPECT_EQ(fired.back(), HotkeyAction::Fullscreen);

    // Registering again never reuses an id, and the old grabs are gone.
    manager.unregisterAll();
    press(QStringLiteral("ctrl+shift+6"));
    registerDefaults();
    EXPECT_EQ(manager.registered(), (std::vector<std::uint32_t>{5, 6, 7, 8}));
    press(QStringLiteral("ctrl+shift+6"));
    ASSERT_TRUE(waitFired(5));
    EXPECT_EQ(fired.size(), 5u) << "the press while nothing was registered reached no handler";
    EXPECT_EQ(fired.back(), HotkeyAction::Record);
}

TEST_F(HotkeysTest, AShortcutHeldByAnotherProgramIsLoggedAndTheOthersStillWork) {
    // Another client takes Ctrl+Shift+4 first.
    auto other = X11GlobalShortcuts::connect();
    ASSERT_EQ(other->grab(1, '4', Qt::ControlModifier | Qt::ShiftModifier), 0);

    test::LogCapture log;
    registerDefaults();
    EXPECT_EQ(manager.registered(), (std::vector<std::uint32_t>{2, 3, 4}));
    EXPECT_TRUE(log.contains(QStringLiteral("Quillmark: failed to register hotkey id=1 status=10")))
        << log.lines().join(QLatin1Char('\n')).toStdString();

    press(QStringLiteral("ctrl+shift+8"));
    ASSERT_TRUE(waitFired(1));
    EXPECT_EQ(fired.back(), HotkeyAction::Window);
}

TEST_F(HotkeysTest, TwoActionsOnTheSameShortcutAreReportedAndOnlyTheFirstRuns) {
    ASSERT_TRUE(backend);
    test::LogCapture log;
    const HotkeyCombo same = defaultHotkey(HotkeyAction::Window);
    EXPECT_TRUE(manager.registerHotkey(same, [this] { fired.push_back(HotkeyAction::Window); }));
    EXPECT_FALSE(manager.registerHotkey(same, [this] { fired.push_back(HotkeyAction::Record); }));
    EXPECT_TRUE(log.contains(QStringLiteral("Quillmark: failed to register hotkey id=2 status=10")))
        << log.lines().join(QLatin1Char('\n')).toStdString();

    press(QStringLiteral("ctrl+shift+8"));
    press(QStringLiteral("ctrl+shift+8"));
    ASSERT_TRUE(waitFired(2));
    EXPECT_EQ(fired, (std::vector<HotkeyAction>{HotkeyAction::Window, HotkeyAction::Window}));
}

class ComboRecorderTest : public HotkeysTest {
protected:
    QTemporaryDir dir;
    IniSettingsStore store{dir.filePath(QStringLiteral("q.conf"))};
    Preferences prefs{store};
    ComboRecorder recorder{prefs, manager};
    QWindow window;

    void SetUp() override {
        window.resize(200, 100);
        window.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    }
};

TEST_F(ComboRecorderTest, RecordsAComboAndIgnoresKeysThatCannotBeShortcuts) {
    registerDefaults();
    int notifications = 0;
    QObject::connect(&prefs, &Preferences::quillmarkHotkeysChanged, &prefs,
                     [&] { ++notifications; });

    recorder.begin(HotkeyAction::Window);
    EXPECT_TRUE(manager.registered().empty()) << "no global shortcut while recording";

    QTest::keyClick(&window, Qt::Key_A, Qt::ShiftModifier); // shift alone
    QTest::keyClick(&window, Qt::Key_5);                    // no modifier
    EXPECT_EQ(recorder.recordingAction(), HotkeyAction::Window);
    EXPECT_TRUE(prefs.hotkeys().empty());

    QTest::keyClick(&window, Qt::Key_F5, Qt::AltModifier);
    EXPECT_FALSE(recorder.recordingAction());
    EXPECT_EQ(prefs.hotkey(HotkeyAction::Window), HotkeyCombo(Qt::AltModifier | Qt::Key_F5));
    EXPECT_GE(notifications, 1);

    // A shifted digit is stored as the digit's key.
    recorder.begin(HotkeyAction::Record);
    QTest::keyClick(&window, Qt::Key_Dollar, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_EQ(prefs.hotkey(HotkeyAction::Record).nativeText(), QStringLiteral("Ctrl+Shift+4"));

    // A modifier pressed alone is no key of its own.
    recorder.begin(HotkeyAction::Region);
    QTest::keyClick(&window, Qt::Key_Shift, Qt::ControlModifier | Qt::ShiftModifier);
    QTest::keyClick(&window, Qt::Key_Control, Qt::ControlModifier);
    EXPECT_EQ(recorder.recordingAction(), HotkeyAction::Region);
    QTest::keyClick(&window, Qt::Key_Space, Qt::MetaModifier);
    EXPECT_EQ(prefs.hotkey(HotkeyAction::Region), HotkeyCombo(Qt::MetaModifier | Qt::Key_Space));
}

TEST_F(ComboRecorderTest, EscapeCancelsWithoutChangeAndAsksForReRegistration) {
    recorder.begin(HotkeyAction::Region);
    int notifications = 0;
    QObject::connect(&prefs, &Preferences::quillmarkHotkeysChanged, &prefs,
                     [&] { ++notifications; });
    QTest::keyClick(&window, Qt::Key_Escape);
    EXPECT_FALSE(recorder.recordingAction());
    EXPECT_TRUE(prefs.hotkeys().empty());
    EXPECT_EQ(notifications, 1);
    // Keys pass through untouched once recording is over.
    QTest::keyClick(&window, Qt::Key_F5, Qt::AltModifier);
    EXPECT_TRUE(prefs.hotkeys().empty());
}

TEST_F(HotkeysTest, NamedKeysLettersAndPunctuationAreGrabbedAsTheyAreNamed) {
    ASSERT_TRUE(backend);
    const std::pair<const char*, const char*> combos[] = {
        {"Shift+Alt+F5", "shift+alt+F5"},       {"Ctrl+Alt+Space", "ctrl+alt+space"},
        {"Ctrl+Alt+Return", "ctrl+alt+Return"}, {"Ctrl+Shift+Left", "ctrl+shift+Left"},
        {"Ctrl+Alt+R", "ctrl+alt+r"},           {"Ctrl+Alt+/", "ctrl+alt+slash"},
        {"Alt+Shift+Home", "alt+shift+Home"},   {"Ctrl+Meta+P", "ctrl+super+p"}};
    std::vector<QString> pressed;
    for (const auto& [stored, xdotool] : combos) {
        const auto combo = HotkeyCombo::fromText(QString::fromLatin1(stored));
        ASSERT_TRUE(combo) << stored;
        EXPECT_TRUE(manager.registerHotkey(*combo, [&pressed, name = QString::fromLatin1(stored)] {
            pressed.push_back(name);
        })) << stored;
    }
    for (const auto& [stored, xdotool] : combos) {
        press(QString::fromLatin1(xdotool));
        ASSERT_TRUE(test::waitUntil([&] { return !pressed.empty(); }, std::chrono::seconds(5)))
            << stored;
        EXPECT_EQ(pressed, std::vector<QString>{QString::fromLatin1(stored)});
        pressed.clear();
    }
}

} // namespace
