#include "base/Preferences.h"

#include "TestSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <functional>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

using namespace qm;

namespace {

class PreferencesTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString path() const { return dir.filePath(QStringLiteral("Quillmark.conf")); }
    // What another program (or the next launch) finds in the file.
    QSettings file() const { return QSettings(path(), QSettings::IniFormat); }
    // The store hands its changes to its writer once the event loop turns; this also waits
    // until they are on disk.
    static void turn(IniSettingsStore& store) {
        QCoreApplication::processEvents();
        store.sync();
    }
    // The bytes in the file. (A QSettings on the same file in this process would share the
    // store's unwritten changes.)
    QByteArray onDisk() const {
        QFile f(path());
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }
};

TEST_F(PreferencesTest, FreshStoreYieldsDefaultsAndWritesThemBack) {
    IniSettingsStore store(path());
    std::vector<AppTheme> applied;
    Preferences prefs(store, [&](AppTheme t) { applied.push_back(t); });

    EXPECT_EQ(prefs.theme(), AppTheme::System);
    EXPECT_TRUE(prefs.showQuickAccessOverlay());
    EXPECT_EQ(prefs.overlayDismissSeconds(), 0);
    EXPECT_TRUE(prefs.copyToClipboardAfterCapture());
    EXPECT_FALSE(prefs.openEditorAfterCapture());
    EXPECT_TRUE(prefs.playCaptureSound());
    EXPECT_TRUE(prefs.recordSystemAudio());
    EXPECT_FALSE(prefs.recordMicrophone());
    EXPECT_TRUE(prefs.trimAfterRecording());
    EXPECT_FALSE(prefs.recordWebcam());
    EXPECT_FALSE(prefs.highlightClicks());
    EXPECT_EQ(prefs.retentionDays(), 0);
    EXPECT_TRUE(prefs.searchImageText());
    EXPECT_EQ(prefs.gifFPS(), 12.0);
    EXPECT_EQ(prefs.gifMaxDimension(), 960.0);
    EXPECT_EQ(prefs.aiModel(), QStringLiteral("claude-sonnet-5"));
    EXPECT_TRUE(prefs.automaticUpdateChecks());
    EXPECT_FALSE(prefs.lastUpdateCheck().has_value());
    EXPECT_TRUE(prefs.hotkeys().empty());
    EXPECT_EQ(prefs.outputDirectory(), QDir::homePath() + QStringLiteral("/Pictures/Quillmark"));
    EXPECT_TRUE(QDir(prefs.outputDirectory()).exists());
    EXPECT_EQ(applied, std::vector<AppTheme>{AppTheme::System});

    // Loading writes every value back, so the file holds the full set, but the output
    // folder is only stored once the user picks one.
    turn(store);
    QSettings f(path(), QSettings::IniFormat);
    EXPECT_EQ(f.value(QStringLiteral("appTheme")).toString(), QStringLiteral("system"));
    EXPECT_EQ(f.value(QStringLiteral("afterCapture.overlay")).toBool(), true);
    EXPECT_EQ(f.value(QStringLiteral("recording.microphone")).toBool(), false);
    EXPECT_EQ(f.value(QStringLiteral("gif.maxDimension")).toDouble(), 960.0);
    EXPECT_EQ(f.value(QStringLiteral("ai.model")).toString(), QStringLiteral("claude-sonnet-5"));
    EXPECT_FALSE(f.contains(Preferences::outputKey));
    EXPECT_FALSE(f.contains(QStringLiteral("updates.lastCheck")));
}

TEST_F(PreferencesTest, RegisteredDefaultsAreTheNineInOrder) {
    QStringList keys;
    for (const auto& [key, value] : Preferences::registeredDefaults())
        keys << key;
    EXPECT_EQ(keys,
              (QStringList{
                  QStringLiteral("afterCapture.overlay"), QStringLiteral("afterCapture.clipboard"),
                  QStringLiteral("afterCapture.sound"), QStringLiteral("recording.systemAudio"),
                  QStringLiteral("recording.trimWindow"), QStringLiteral("library.ocrSearch"),
                  QStringLiteral("gif.fps"), QStringLiteral("gif.maxDimension"),
                  QStringLiteral("updates.automatic")}));
}

TEST_F(PreferencesTest, ValuesSurviveARestartAndHandSetValuesInRangeAreKept) {
    // 30 days: 2,592,000,000 ms, more than a 32-bit count of milliseconds holds.
    constexpr qint64 thirtyDays = 30LL * 24 * 60 * 60;
    {
        IniSettingsStore store(path());
        Preferences prefs(store);
        QSignalSpy spy(&prefs, &Preferences::openEditorAfterCaptureChanged);
        prefs.setOpenEditorAfterCapture(true);
        EXPECT_EQ(spy.count(), 1);
        prefs.setShowQuickAccessOverlay(false);
        prefs.setRetentionDays(30);
        prefs.setAiModel(QStringLiteral("claude-opus-4-8"));
        prefs.setTheme(AppTheme::Dark);
        prefs.setOverlayDismissSeconds(thirtyDays);
    }
    file().setValue(QStringLiteral("gif.fps"), 25); // set by hand, not one of the choices
    IniSettingsStore store(path());
    Preferences prefs(store);
    EXPECT_TRUE(prefs.openEditorAfterCapture());
    EXPECT_FALSE(prefs.showQuickAccessOverlay());
    EXPECT_EQ(prefs.retentionDays(), 30);
    EXPECT_EQ(prefs.aiModel(), QStringLiteral("claude-opus-4-8"));
    EXPECT_EQ(prefs.theme(), AppTheme::Dark);
    EXPECT_EQ(prefs.gifFPS(), 25.0);
    EXPECT_EQ(prefs.overlayDismissSeconds(), thirtyDays);
    EXPECT_EQ(prefs.overlayDismissDelay().count(), 2'592'000'000LL);
}

TEST_F(PreferencesTest, ThemeStringsOnlyMatchExactly) {
    const std::pair<const char*, AppTheme> cases[] = {{"light", AppTheme::Light},
                                                      {"dark", AppTheme::Dark},
                                                      {"system", AppTheme::System},
                                                      {"Dark", AppTheme::System},
                                                      {"purple", AppTheme::System}};
    for (const auto& [raw, expected] : cases) {
        file().setValue(QStringLiteral("appTheme"), QString::fromLatin1(raw));
        IniSettingsStore store(path());
        AppTheme applied = AppTheme::Light;
        Preferences prefs(store, [&](AppTheme t) { applied = t; });
        EXPECT_EQ(prefs.theme(), expected) << raw;
        EXPECT_EQ(applied, expected) << raw;
        // The theme is written back in its canonical spelling.
        turn(store);
        // Read back by a store of its own: a QSettings here could answer from its cache.
        EXPECT_EQ(
            IniSettingsStore(path()).stringValue(QStringLiteral("appTheme")).value_or(QString()),
            rawValue(expected));
    }
}

TEST_F(PreferencesTest, HandEditedShortcutsAreReadAndUnusableOnesFallBack) {
    // Written by hand in an editor that saves Windows line ends.
    auto edit = [&](const QByteArray& lines) {
        QFile f(path());
        ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        f.write("[General]\r\n" + QByteArray(lines).replace("\n", "\r\n"));
    };
    edit("hotkeys.region=\" Ctrl+Alt+R \"\n"
         "hotkeys.window = ctrl+shift+f5\n"
         "hotkeys.fullscreen=Ctrl+Shift\n"
         "hotkeys.record=nonsense\n");
    {
        test::LogCapture log;
        IniSettingsStore store(path());
        Preferences prefs(store);
        EXPECT_EQ(prefs.hotkey(HotkeyAction::Region),
                  HotkeyCombo(Qt::ControlModifier | Qt::AltModifier | Qt::Key_R));
        EXPECT_EQ(prefs.hotkey(HotkeyAction::Window).portableText(),
                  QStringLiteral("Ctrl+Shift+F5"));
        EXPECT_EQ(prefs.hotkey(HotkeyAction::Fullscreen), defaultHotkey(HotkeyAction::Fullscreen));
        EXPECT_EQ(prefs.hotkey(HotkeyAction::Record), defaultHotkey(HotkeyAction::Record));
        EXPECT_EQ(prefs.hotkeys().size(), 2u);
        EXPECT_TRUE(log.contains(QStringLiteral(
            "Quillmark: the fullscreen shortcut \"Ctrl+Shift\" is not one key with Ctrl, Alt or "
            "Super; using Ctrl+Shift+9")))
            << log.lines().join(QLatin1Char('\n')).toStdString();
        EXPECT_TRUE(log.contains(QStringLiteral("the record shortcut \"nonsense\"")));
    }
    // An unusable value stays in the file for its owner to fix.
    EXPECT_EQ(file().value(Preferences::hotkeyKey(HotkeyAction::Record)).toString(),
              QStringLiteral("nonsense"));

    // Two chords (as a list and as one string), nothing at all, and Shift as the only modifier
    // all fall back; an unquoted comma key is still one chord.
    edit("hotkeys.region=Ctrl+A, Ctrl+B\n"
         "hotkeys.window=\"Ctrl+A, Ctrl+B\"\n"
         "hotkeys.fullscreen=\n"
         "hotkeys.record=Shift+4\n");
    {
        test::LogCapture log;
        IniSettingsStore store(path());
        Preferences prefs(store);
        EXPECT_TRUE(prefs.hotkeys().empty());
        for (HotkeyAction a : allHotkeyActions)
            EXPECT_EQ(prefs.hotkey(a), defaultHotkey(a)) << rawValue(a).toStdString();
        EXPECT_EQ(log.lines().filter(QStringLiteral("shortcut")).size(), 4)
            << log.lines().join(QLatin1Char('\n')).toStdString();
    }
    edit("hotkeys.record=Ctrl+,\n");
    IniSettingsStore store(path());
    Preferences prefs(store);
    EXPECT_EQ(prefs.hotkey(HotkeyAction::Record), HotkeyCombo(Qt::ControlModifier | Qt::Key_Comma));
}

TEST_F(PreferencesTest, SetHotkeyStoresOneReadableValueAndNotifies) {
    IniSettingsStore store(path());
    Preferences prefs(store);
    QSignalSpy changed(&prefs, &Preferences::quillmarkHotkeysChanged);
    prefs.setHotkey(HotkeyCombo(Qt::AltModifier | Qt::Key_F5), HotkeyAction::Window);
    prefs.setHotkey(HotkeyCombo(Qt::MetaModifier | Qt::ShiftModifier | Qt::Key_Space),
                    HotkeyAction::Region);
    EXPECT_EQ(changed.count(), 2);
    store.sync();

    EXPECT_EQ(file().value(QStringLiteral("hotkeys.window")).toString(), QStringLiteral("Alt+F5"));
    EXPECT_EQ(file().value(QStringLiteral("hotkeys.region")).toString(),
              QStringLiteral("Meta+Shift+Space"));
    EXPECT_FALSE(file().contains(QStringLiteral("hotkeys.fullscreen")));

    IniSettingsStore again(path());
    Preferences reloaded(again);
    EXPECT_EQ(reloaded.hotkey(HotkeyAction::Window), HotkeyCombo(Qt::AltModifier | Qt::Key_F5));
    EXPECT_EQ(reloaded.hotkey(HotkeyAction::Region),
              HotkeyCombo(Qt::MetaModifier | Qt::ShiftModifier | Qt::Key_Space));
    EXPECT_EQ(reloaded.hotkey(HotkeyAction::Record), defaultHotkey(HotkeyAction::Record));
}

TEST_F(PreferencesTest, OutputFolderIsStoredAsPathAndRecreated) {
    const QString folder = dir.filePath(QStringLiteral("shots/nested"));
    {
        IniSettingsStore store(path());
        Preferences prefs(store);
        QSignalSpy spy(&prefs, &Preferences::outputDirectoryChanged);
        ASSERT_TRUE(prefs.setOutputDirectory(folder));
        EXPECT_EQ(spy.count(), 1);
        EXPECT_TRUE(QDir(folder).exists());
    }
    EXPECT_EQ(file().value(Preferences::outputKey).toString(), folder);
    ASSERT_TRUE(QDir(dir.filePath(QStringLiteral("shots"))).removeRecursively());

    IniSettingsStore store(path());
    Preferences prefs(store);
    EXPECT_EQ(prefs.outputDirectory(), folder);
    EXPECT_TRUE(QDir(folder).exists());

    // Reset to default stores the default path explicitly.
    ASSERT_TRUE(prefs.setOutputDirectory(Preferences::defaultDirectory()));
    turn(store);
    EXPECT_EQ(file().value(Preferences::outputKey).toString(), Preferences::defaultDirectory());
}

TEST_F(PreferencesTest, HandEditedValuesThatDoNotFitReadAsTheirDefaultsAndAreLogged) {
    // Values kept: loose spellings of booleans, whole numbers written as decimals, the limits.
    // Values refused: the wrong type, out of range, not one of the choices.
    struct Case {
        const char* line;
        std::function<QVariant(const Preferences&)> read;
        QVariant expected;
        bool logged;
    };
    auto gifFps = [](const Preferences& p) { return QVariant(p.gifFPS()); };
    auto overlay = [](const Preferences& p) { return QVariant(p.showQuickAccessOverlay()); };
    auto editor = [](const Preferences& p) { return QVariant(p.openEditorAfterCapture()); };
    auto retention = [](const Preferences& p) { return QVariant(p.retentionDays()); };
    auto dismiss = [](const Preferences& p) { return QVariant(p.overlayDismissSeconds()); };
    auto size = [](const Preferences& p) { return QVariant(p.gifMaxDimension()); };
    auto model = [](const Preferences& p) { return QVariant(p.aiModel()); };
    auto theme = [](const Preferences& p) { return QVariant(rawValue(p.theme())); };
    const Case cases[] = {
        {"afterCapture.overlay=False", overlay, false, false},
        {"afterCapture.overlay=\" no \"", overlay, false, false},
        {"afterCapture.editor= YES ", editor, true, false},
        {"afterCapture.overlay=maybe", overlay, true, true},
        {"afterCapture.editor=2", editor, false, true},
        {"gif.fps=50", gifFps, 50.0, false},
        {"gif.fps=-5", gifFps, 12.0, true},
        {"gif.fps=51", gifFps, 12.0, true},
        {"gif.fps=nan", gifFps, 12.0, true},
        {"gif.maxDimension=0", size, 960.0, true},
        {"gif.maxDimension=1e400", size, 960.0, true},
        {"library.retentionDays=30.0", retention, 30, false},
        {"library.retentionDays=-1", retention, 0, true},
        {"library.retentionDays=7.5", retention, 0, true},
        {"afterCapture.overlayDismiss=-3", dismiss, qint64(0), true},
        {"afterCapture.overlayDismiss=31536001", dismiss, qint64(0), true},
        {"afterCapture.overlayDismiss=\"3, 5\"", dismiss, qint64(0), true},
        {"ai.model=claude-haiku-4-5-20251001", model, QStringLiteral("claude-haiku-4-5-20251001"),
         false},
        {"ai.model=gpt-4", model, QStringLiteral("claude-sonnet-5"), true},
        {"ai.model=claude-opus-4-8, claude-sonnet-5", model, QStringLiteral("claude-sonnet-5"),
         true},
        {"appTheme=purple", theme, QStringLiteral("system"), true},
    };
    for (const Case& c : cases) {
        // By hand: no [General] line, Windows line ends, an unrelated key that must survive.
        QFile f(path());
        ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        f.write(QByteArray("someone.else=kept\r\n") + c.line + "\r\n");
        f.close();
        test::LogCapture log;
        {
            IniSettingsStore store(path());
            Preferences prefs(store);
            EXPECT_EQ(c.read(prefs), c.expected) << c.line;
            EXPECT_TRUE(prefs.settingsProblem().isEmpty()) << "a bad value is no damaged file";
        }
        const QString key = QString::fromLatin1(c.line).section(QLatin1Char('='), 0, 0);
        const QStringList lines = log.lines().filter(QStringLiteral("the setting ") + key);
        EXPECT_EQ(lines.size(), c.logged ? 1 : 0)
            << c.line << log.lines().join(QLatin1Char('\n')).toStdString();
        // The one line names the key and the value found.
        if (c.logged && !lines.isEmpty()) {
            EXPECT_TRUE(lines.front().contains(QStringLiteral("%1 = \"").arg(key)))
                << lines.front().toStdString();
        }
        EXPECT_EQ(file().value(QStringLiteral("someone.else")).toString(), QStringLiteral("kept"));
    }
    test::LogCapture log;
    IniSettingsStore store(path());
    Preferences prefs(store);
    EXPECT_TRUE(log.lines().filter(QStringLiteral("the setting")).isEmpty())
        << "the default replaced the bad value in the file";
}

TEST_F(PreferencesTest, TheOutputFolderIsStoredAbsoluteAndARelativeOneIsRefused) {
    const QString home = QDir::homePath();
    {
        IniSettingsStore store(path());
        Preferences prefs(store);
        QSignalSpy changed(&prefs, &Preferences::outputDirectoryChanged);
        ASSERT_TRUE(prefs.setOutputDirectory(QStringLiteral("~/Shots/")));
        EXPECT_EQ(prefs.outputDirectory(), home + QStringLiteral("/Shots"));
        EXPECT_TRUE(QDir(home + QStringLiteral("/Shots")).exists());
        for (const char* refused : {"Shots", "./Shots", "../Shots", "~bob/Shots", "", "  "}) {
            const Status set = prefs.setOutputDirectory(QString::fromLatin1(refused));
            ASSERT_FALSE(set) << refused;
            EXPECT_FALSE(set.error().reason.isEmpty());
            EXPECT_EQ(prefs.outputDirectory(), home + QStringLiteral("/Shots")) << refused;
        }
        EXPECT_EQ(prefs.setOutputDirectory(QStringLiteral("Shots")).error().reason,
                  QStringLiteral("“Shots” is not a full folder path; it must start with / or ~"));
        EXPECT_EQ(changed.count(), 1);
        EXPECT_FALSE(QDir(QStringLiteral("Shots")).exists())
            << "nothing made in the current folder";
    }
    EXPECT_EQ(file().value(Preferences::outputKey).toString(), home + QStringLiteral("/Shots"));

    // By hand: "~" is the home folder; a relative folder is logged and the default used.
    const std::pair<const char*, QString> stored[] = {{"~", home},
                                                      {"~/Shots", home + QStringLiteral("/Shots")},
                                                      {"Shots", Preferences::defaultDirectory()}};
    for (const auto& [text, expected] : stored) {
        file().setValue(Preferences::outputKey, QString::fromLatin1(text));
        test::LogCapture log;
        IniSettingsStore store(path());
        Preferences prefs(store);
        EXPECT_EQ(prefs.outputDirectory(), expected) << text;
        EXPECT_EQ(log.contains(QStringLiteral("the setting outputDirectoryPath = \"Shots\"")),
                  expected == Preferences::defaultDirectory());
    }
}

TEST_F(PreferencesTest, LastUpdateCheckRules) {
    for (double stored : {0.0, -5.0}) {
        file().setValue(QStringLiteral("updates.lastCheck"), stored);
        IniSettingsStore store(path());
        Preferences prefs(store);
        EXPECT_FALSE(prefs.lastUpdateCheck().has_value()) << stored;
    }
    {
        IniSettingsStore store(path());
        Preferences prefs(store);
        prefs.setLastUpdateCheck(QDateTime::fromSecsSinceEpoch(1'800'000'000, Qt::UTC));
    }
    EXPECT_DOUBLE_EQ(file().value(QStringLiteral("updates.lastCheck")).toDouble(), 1.8e9);
    IniSettingsStore store(path());
    Preferences prefs(store);
    ASSERT_TRUE(prefs.lastUpdateCheck());
    EXPECT_EQ(prefs.lastUpdateCheck()->toSecsSinceEpoch(), 1'800'000'000);
    prefs.setLastUpdateCheck(std::nullopt);
    turn(store);
    EXPECT_FALSE(file().contains(QStringLiteral("updates.lastCheck")));
}

// Counts the times the settings file is put in place: QSettings writes a new file and links
// or renames it over the old one.
class FileWrites {
public:
    FileWrites(const QString& dir, QString name)
        : m_name(std::move(name))
        , m_fd(inotify_init1(IN_NONBLOCK)) {
        inotify_add_watch(m_fd, QFile::encodeName(dir).constData(), IN_CREATE | IN_MOVED_TO);
    }
    ~FileWrites() { close(m_fd); }
    int count() {
        alignas(inotify_event) char buffer[4096];
        for (ssize_t n; (n = read(m_fd, buffer, sizeof buffer)) > 0;)
            for (char* p = buffer; p < buffer + n;) {
                const auto* e = reinterpret_cast<const inotify_event*>(p);
                if (e->len && QFile::decodeName(e->name) == m_name)
                    ++m_count;
                p += sizeof(inotify_event) + e->len;
            }
        return m_count;
    }

private:
    QString m_name;
    int m_fd;
    int m_count = 0;
};

TEST_F(PreferencesTest, ABurstOfWritesIsOneWriteOfTheFileAndNothingIsLostAtTheEnd) {
    FileWrites writes(dir.path(), QStringLiteral("Quillmark.conf"));
    {
        IniSettingsStore store(path());
        Preferences prefs(store); // writes every setting back
        prefs.setGifFPS(15);
        prefs.setTheme(AppTheme::Dark);
        EXPECT_EQ(prefs.gifFPS(), 15.0);
        EXPECT_EQ(store.doubleValue(QStringLiteral("gif.fps")), 15.0) << "reads see the write";
        EXPECT_EQ(writes.count(), 0);
        EXPECT_FALSE(onDisk().contains("gif.fps"));

        // The write happens on the writer's thread, after the turn.
        QCoreApplication::processEvents();
        ASSERT_TRUE(test::waitUntil([&] { return store.writeCount() == 1; }));
        EXPECT_EQ(writes.count(), 1);
        EXPECT_TRUE(onDisk().contains("gif.fps=15"));
        EXPECT_TRUE(onDisk().contains("appTheme=dark"));

        turn(store); // nothing new, nothing written
        EXPECT_EQ(writes.count(), 1);
        EXPECT_EQ(store.writeCount(), 1);

        // A change just before the store goes away is not left behind.
        prefs.setRetentionDays(90);
    }
    EXPECT_EQ(writes.count(), 2);
    EXPECT_TRUE(onDisk().contains("library.retentionDays=90"));
}

TEST_F(PreferencesTest, QuittingWritesPendingChanges) {
    IniSettingsStore store(path());
    store.setValue(QStringLiteral("afterCapture.editor"), true);
    EXPECT_FALSE(onDisk().contains("afterCapture.editor"));
    // What QCoreApplication::quit() announces before the event loop stops.
    QMetaObject::invokeMethod(QCoreApplication::instance(), "aboutToQuit", Qt::DirectConnection);
    EXPECT_TRUE(onDisk().contains("afterCapture.editor=true"));
}

TEST(HotkeyComboTest, DefaultsAndKeyCaps) {
    QStringList shown;
    for (HotkeyAction a : allHotkeyActions)
        shown << defaultHotkey(a).nativeText();
    EXPECT_EQ(shown, (QStringList{QStringLiteral("Ctrl+Shift+4"), QStringLiteral("Ctrl+Shift+8"),
                                  QStringLiteral("Ctrl+Shift+9"), QStringLiteral("Ctrl+Shift+6")}));
    EXPECT_EQ(defaultHotkey(HotkeyAction::Region).keyCaps(),
              (QStringList{QStringLiteral("Ctrl"), QStringLiteral("Shift"), QStringLiteral("4")}));
    // The recorder's modifiers come with keypad and other state bits; the combo keeps the four.
    const HotkeyCombo fromKeypad(Qt::ControlModifier | Qt::KeypadModifier | Qt::Key_5);
    EXPECT_EQ(fromKeypad.portableText(), QStringLiteral("Ctrl+5"));
}

} // namespace
