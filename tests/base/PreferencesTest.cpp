#include "base/Preferences.h"

#include <QDir>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace qm;

namespace {

class PreferencesTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString path() const { return dir.filePath(QStringLiteral("Quillmark.conf")); }
    // What another program (or the next launch) finds in the file.
    QSettings file() const { return QSettings(path(), QSettings::IniFormat); }
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

TEST_F(PreferencesTest, ValuesSurviveARestartAndOddValuesAreKept) {
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
        EXPECT_EQ(file().value(QStringLiteral("appTheme")).toString(), rawValue(expected));
    }
}

TEST_F(PreferencesTest, HotkeyTableSubsetsOrderAndGarbage) {
    // Only "record" stored: the other three keep their defaults.
    file().setValue(Preferences::hotkeysKey,
                    QByteArray(R"(["record",{"keyCode":96,"carbonModifiers":2048,)"
                               R"("keyDisplay":"F5"}])"));
    {
        IniSettingsStore store(path());
        Preferences prefs(store);
        EXPECT_EQ(prefs.hotkey(HotkeyAction::Record),
                  (HotkeyCombo{96, CarbonModifier::Option, QStringLiteral("F5")}));
        EXPECT_EQ(prefs.hotkey(HotkeyAction::Region),
                  (HotkeyCombo{21, 0x300, QStringLiteral("4")}));
        EXPECT_EQ(prefs.hotkey(HotkeyAction::Window).keyCode, 28u);
        EXPECT_EQ(prefs.hotkey(HotkeyAction::Fullscreen).keyCode, 25u);
    }

    const QByteArray garbage[] = {
        "not json",
        R"({"region":{"keyCode":1}})",
        R"(["region"])",
        R"(["lasso",{"keyCode":1,"carbonModifiers":256,"keyDisplay":"S"}])",
        R"(["region",{"keyCode":-1,"carbonModifiers":256,"keyDisplay":"S"}])",
        R"(["region",{"keyCode":1,"carbonModifiers":256}])",
    };
    for (const QByteArray& bytes : garbage) {
        file().setValue(Preferences::hotkeysKey, bytes);
        IniSettingsStore store(path());
        Preferences prefs(store);
        EXPECT_TRUE(prefs.hotkeys().empty()) << bytes.constData();
        EXPECT_EQ(prefs.hotkey(HotkeyAction::Region), defaultHotkey(HotkeyAction::Region));
        // Malformed data is left where it is.
        EXPECT_EQ(file().value(Preferences::hotkeysKey).toByteArray(), bytes);
    }
}

TEST_F(PreferencesTest, SetHotkeyStoresOnlyChangedActionsAndNotifies) {
    IniSettingsStore store(path());
    Preferences prefs(store);
    QSignalSpy changed(&prefs, &Preferences::quillmarkHotkeysChanged);
    prefs.setHotkey({96, CarbonModifier::Option, QStringLiteral("F5")}, HotkeyAction::Window);
    prefs.setHotkey({21, 0x300, QStringLiteral("4")}, HotkeyAction::Region);
    EXPECT_EQ(changed.count(), 2);

    const QByteArray stored = file().value(Preferences::hotkeysKey).toByteArray();
    const auto table = decodeHotkeyTable(stored);
    ASSERT_TRUE(table);
    EXPECT_EQ(table->size(), 2u);
    EXPECT_EQ(table->at(HotkeyAction::Window).keyDisplay, QStringLiteral("F5"));
    EXPECT_TRUE(stored.startsWith("[\"")); // a flat array of raw value, combo, …

    IniSettingsStore again(path());
    Preferences reloaded(again);
    EXPECT_EQ(reloaded.hotkey(HotkeyAction::Window).carbonModifiers, CarbonModifier::Option);
}

TEST_F(PreferencesTest, OutputFolderIsStoredAsPathAndRecreated) {
    const QString folder = dir.filePath(QStringLiteral("shots/nested"));
    {
        IniSettingsStore store(path());
        Preferences prefs(store);
        QSignalSpy spy(&prefs, &Preferences::outputDirectoryChanged);
        prefs.setOutputDirectory(folder);
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
    prefs.setOutputDirectory(Preferences::defaultDirectory());
    EXPECT_EQ(file().value(Preferences::outputKey).toString(), Preferences::defaultDirectory());
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
    EXPECT_FALSE(file().contains(QStringLiteral("updates.lastCheck")));
}

TEST(HotkeyComboTest, ModifierSymbolsKeepTheirOrder) {
    const HotkeyCombo all{0, 0x1000 | 0x800 | 0x200 | 0x100, QStringLiteral("4")};
    EXPECT_EQ(all.modifierSymbols(), (QStringList{QStringLiteral("⌃"), QStringLiteral("⌥"),
                                                  QStringLiteral("⇧"), QStringLiteral("⌘")}));
    EXPECT_EQ(defaultHotkey(HotkeyAction::Region).modifierSymbols(),
              (QStringList{QStringLiteral("⇧"), QStringLiteral("⌘")}));
}

} // namespace
