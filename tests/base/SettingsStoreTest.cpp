#include "base/SettingsStore.h"

#include "ScratchMount.h"
#include "TestSupport.h"
#include "base/Preferences.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace qm;

namespace {

using test::ScratchMount;

QByteArray contents(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

void put(const QString& path, const QByteArray& bytes) {
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.write(bytes);
}

// The store hands its changes to its writer once the event loop turns; this also waits until
// they are on disk.
void turn(IniSettingsStore& store) {
    QCoreApplication::processEvents();
    store.sync();
}

// A small file system of its own that can be made read-only (we run as root here and in CI,
// and root writes into any folder whatever its mode); not mounted when refused.
class SettingsStoreTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString path() const { return dir.filePath(QStringLiteral("Quillmark.conf")); }
    QStringList setAside() const {
        return QDir(dir.path())
            .entryList({QStringLiteral("Quillmark.conf.bad-*")}, QDir::Files, QDir::Name);
    }
};

TEST_F(SettingsStoreTest, ADamagedFileIsKeptAsideTheDefaultsApplyAndTheUserIsToldOnce) {
    // A broken section header, and what a crash can leave behind.
    const QByteArray damaged[] = {QByteArray("[General\nafterCapture.editor=true\ngif.fps=20\n"),
                                  QByteArray("\0\0\0\0\xff\xfe garbage", 14)};
    for (const QByteArray& bytes : damaged) {
        put(path(), bytes);
        IniSettingsStore store(path());
        Preferences prefs(store);
        EXPECT_FALSE(prefs.openEditorAfterCapture());
        EXPECT_EQ(prefs.gifFPS(), 12.0);
        QSignalSpy told(&prefs, &Preferences::settingsProblemReported);
        turn(store);
        // The defaults are in the new file; the old one is there, untouched.
        EXPECT_TRUE(contents(path()).contains("gif.fps=12"));
        ASSERT_FALSE(setAside().isEmpty());
        const QString kept = setAside().back();
        EXPECT_EQ(contents(dir.filePath(kept)), bytes);
        EXPECT_EQ(prefs.settingsProblem(),
                  QStringLiteral("Your settings file could not be used because it is damaged, so "
                                 "Quillmark started with the default settings; the old file was "
                                 "kept as “%1”.")
                      .arg(kept));
        EXPECT_EQ(told.count(), 0) << "the problem found at start is told once, not again";
    }
    // Two in the same second get two names; neither replaces the other.
    const QStringList kept = setAside();
    ASSERT_EQ(kept.size(), 2);
    static const QRegularExpression name(QStringLiteral(R"(^Quillmark\.conf\.bad-\d{8}-\d{6}$)"));
    EXPECT_TRUE(name.match(kept.front()).hasMatch()) << kept.front().toStdString();

    // The next start finds the good file and has nothing to tell.
    IniSettingsStore store(path());
    Preferences prefs(store);
    EXPECT_TRUE(prefs.settingsProblem().isEmpty());
    EXPECT_EQ(setAside().size(), 2);
}

TEST_F(SettingsStoreTest, AFolderWhereTheFileShouldBeIsReportedOnceAndNothingIsLostAfterwards) {
    ASSERT_TRUE(QDir().mkpath(path()));
    IniSettingsStore store(path());
    Preferences prefs(store);
    QSignalSpy told(&prefs, &Preferences::settingsProblemReported);
    EXPECT_TRUE(prefs.settingsProblem().isEmpty()) << "a folder is no damaged file";
    turn(store);
    ASSERT_EQ(told.count(), 1);
    EXPECT_EQ(told.front().front().toString(),
              QStringLiteral("Your settings could not be saved: a folder is in the way of the "
                             "settings file “Quillmark.conf”."));
    prefs.setGifFPS(20);
    turn(store);
    prefs.setTheme(AppTheme::Dark);
    turn(store);
    EXPECT_EQ(told.count(), 1);
    EXPECT_EQ(store.writeCount(), 0);
    EXPECT_TRUE(QFileInfo(path()).isDir()) << "the folder is not ours to remove";

    // Once the folder is gone, the next change writes everything, the earlier ones too.
    ASSERT_TRUE(QDir(path()).removeRecursively());
    prefs.setRecordMicrophone(true);
    turn(store);
    EXPECT_EQ(store.writeCount(), 1);
    const QSettings file(path(), QSettings::IniFormat);
    EXPECT_EQ(file.value(QStringLiteral("gif.fps")).toDouble(), 20.0);
    EXPECT_EQ(file.value(QStringLiteral("appTheme")).toString(), QStringLiteral("dark"));
    EXPECT_EQ(file.value(QStringLiteral("recording.microphone")).toBool(), true);
}

TEST_F(SettingsStoreTest,
       AReadOnlyConfigFolderIsReportedOnceAndADamagedFileInItIsNeverWrittenOver) {
    ScratchMount folder;
    if (!folder.ok())
        GTEST_SKIP() << "mounting a small tmpfs was refused (needs root)";
    const QString file = folder.filePath(QStringLiteral("Quillmark.conf"));
    auto makeReadOnly = [&](bool readOnly) { return folder.setReadOnly(readOnly); };
    const QString why = folder.path() + QStringLiteral(" is read-only");

    put(file, "[General]\ngif.fps=20\n");
    ASSERT_TRUE(makeReadOnly(true));
    {
        IniSettingsStore store(file);
        Preferences prefs(store);
        EXPECT_EQ(prefs.gifFPS(), 20.0) << "a file that cannot be written is still read";
        QSignalSpy told(&prefs, &Preferences::settingsProblemReported);
        turn(store);
        prefs.setGifFPS(8);
        turn(store);
        ASSERT_EQ(told.count(), 1);
        EXPECT_EQ(told.front().front().toString(),
                  QStringLiteral("Your settings could not be saved: %1.").arg(why));
        EXPECT_EQ(prefs.settingsProblem(), told.front().front().toString());
    }
    EXPECT_EQ(contents(file), "[General]\ngif.fps=20\n");

    // A damaged file that cannot be set aside may be the user's only copy: it stays as it is.
    ASSERT_TRUE(makeReadOnly(false));
    put(file, "[General\ngif.fps=20\n");
    ASSERT_TRUE(makeReadOnly(true));
    {
        IniSettingsStore store(file);
        Preferences prefs(store);
        EXPECT_EQ(prefs.gifFPS(), 12.0);
        EXPECT_EQ(prefs.settingsProblem(),
                  QStringLiteral("Your settings file “Quillmark.conf” could not be used because "
                                 "it is damaged, and it could not be set aside (%1), so Quillmark "
                                 "uses the default settings and will not save changes to them.")
                      .arg(why));
        QSignalSpy told(&prefs, &Preferences::settingsProblemReported);
        ASSERT_TRUE(makeReadOnly(false));
        prefs.setGifFPS(15);
        turn(store);
        EXPECT_EQ(told.count(), 0);
        EXPECT_EQ(store.writeCount(), 0);
    }
    EXPECT_EQ(contents(file), "[General\ngif.fps=20\n");
}

TEST_F(SettingsStoreTest, EveryValueReadsBackAsWrittenByQSettingsAndByTheNextStart) {
    QByteArray allBytes;
    for (int b = 0; b < 256; ++b)
        allBytes.append(char(b));
    const QVariantMap values{
        {QStringLiteral("hotkeys.record"), QStringLiteral("Ctrl+,")},
        {QStringLiteral("text.spaces"), QStringLiteral("  padded ; with = signs  ")},
        {QStringLiteral("text.at"), QStringLiteral("@ByteArray(not data)")},
        {QStringLiteral("text.escapes"), QStringLiteral("a \"quoted\" back\\slash\nnew\tline")},
        {QStringLiteral("text.control"), QStringLiteral("\x01"
                                                        "abc\x7f"
                                                        "F")},
        {QStringLiteral("text.unicode"), QStringLiteral("Bildschirmfotos – 画面")},
        {QStringLiteral("text.empty"), QString()},
        {QStringLiteral("data.bytes"), allBytes},
        {QStringLiteral("number.big"), qint64(5'000'000'000)},
        {QStringLiteral("number.negative"), -42},
        {QStringLiteral("number.fraction"), 0.1},
        {QStringLiteral("flag.on"), true},
        {QStringLiteral("list.two"), QStringList{QStringLiteral("a, b"), QStringLiteral("c")}},
        {QStringLiteral("odd key/in a group"), QStringLiteral("grouped")},
    };
    // Written by the store or by QSettings (older files), read by either: the same values.
    const QString byStore = dir.filePath(QStringLiteral("store.conf"));
    const QString byQSettings = dir.filePath(QStringLiteral("qsettings.conf"));
    {
        IniSettingsStore store(byStore);
        QSettings qsettings(byQSettings, QSettings::IniFormat);
        for (auto it = values.begin(); it != values.end(); ++it) {
            store.setValue(it.key(), it.value());
            qsettings.setValue(it.key(), it.value());
        }
    }
    for (const QString& written : {byStore, byQSettings}) {
        const QSettings file(written, QSettings::IniFormat);
        ASSERT_EQ(file.status(), QSettings::NoError);
        IniSettingsStore store(written);
        for (auto it = values.begin(); it != values.end(); ++it) {
            const QVariant& v = it.value();
            const std::string where = it.key().toStdString() + " in " + written.toStdString();
            if (v.typeId() == QMetaType::QByteArray) {
                EXPECT_EQ(file.value(it.key()).toByteArray(), allBytes) << where;
                EXPECT_EQ(store.dataValue(it.key()), allBytes) << where;
            } else if (v.typeId() == QMetaType::QStringList) {
                EXPECT_EQ(file.value(it.key()).toStringList(), v.toStringList()) << where;
                EXPECT_EQ(store.value(it.key())->toStringList(), v.toStringList()) << where;
            } else {
                EXPECT_EQ(file.value(it.key()).toString(), v.toString()) << where;
                EXPECT_EQ(store.stringValue(it.key()), v.toString()) << where;
            }
        }
        EXPECT_EQ(store.integerValue(QStringLiteral("number.big")), 5'000'000'000);
        EXPECT_EQ(store.doubleValue(QStringLiteral("number.fraction")), 0.1);
        EXPECT_TRUE(store.boolValue(QStringLiteral("flag.on")));
    }
}

} // namespace
