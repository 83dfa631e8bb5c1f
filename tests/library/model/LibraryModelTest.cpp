#include "library/model/LibraryModel.h"

#include "CaptureFolderTest.h"
#include "TestSupport.h"
#include "base/Preferences.h"
#include "base/SettingsStore.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace qm::library;
using qm::test::waitUntil;

namespace {

class LibraryModelTest : public CaptureFolderTest {
protected:
    QDateTime base = QDateTime::currentDateTime().addDays(-1);
    int minute = 0; // each file made is a minute newer than the one before

    QString add(const QString& name, const QString& in = {}) {
        const QString path = QDir(in.isEmpty() ? folder : in).filePath(name);
        if (mediaKindOf(name) == MediaKind::Images) {
            QImage image(8, 6, QImage::Format_RGB32);
            image.fill(Qt::white);
            EXPECT_TRUE(image.save(path, "PNG"));
        }
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::ReadWrite));
        EXPECT_TRUE(
            file.setFileTime(base.addSecs(60 * ++minute), QFileDevice::FileModificationTime));
        return path;
    }

    // Reloads and waits until the listing is published.
    void reload(LibraryModel& model, bool keepSelection) {
        QSignalSpy reloaded(&model, &LibraryModel::reloaded);
        model.reload(keepSelection);
        ASSERT_TRUE(waitUntil([&] { return reloaded.count() > 0; }));
    }

    static QStringList names(const std::vector<CaptureEntry>& entries) {
        QStringList out;
        for (const CaptureEntry& entry : entries)
            out << QFileInfo(entry.path).fileName();
        return out;
    }
    static QString selected(const LibraryModel& model) {
        return model.selection() ? QFileInfo(*model.selection()).fileName() : u"(none)"_s;
    }
};

} // namespace

TEST_F(LibraryModelTest, ShowsOneKindAtATimeAndSelectsTheNewest) {
    add(u"a.PNG"_s);
    add(u"b.mov"_s);
    add(u"c.txt"_s);
    add(u".d.png"_s);
    ASSERT_TRUE(QDir(folder).mkdir(u"e.png"_s));
    add(u"f.png"_s);
    LibraryModel model(preferences, nullptr);
    EXPECT_TRUE(model.entries().empty());
    EXPECT_EQ(model.selection(), std::nullopt);

    reload(model, false);
    EXPECT_EQ(names(model.entries()), (QStringList{u"f.png"_s, u"b.mov"_s, u"a.PNG"_s}));
    EXPECT_EQ(model.count(MediaKind::Images), 2);
    EXPECT_EQ(model.count(MediaKind::Videos), 1);
    EXPECT_EQ(names(model.filtered()), (QStringList{u"f.png"_s, u"a.PNG"_s}));
    EXPECT_EQ(selected(model), u"f.png"_s);
    ASSERT_NE(model.selectedEntry(), nullptr);
    EXPECT_EQ(model.selectedEntry()->pixelWidth, 8);

    model.setSelection(model.filtered()[1].path);
    EXPECT_EQ(selected(model), u"a.PNG"_s);
    // Kept across a reload that keeps it, dropped by one that starts afresh.
    reload(model, true);
    EXPECT_EQ(selected(model), u"a.PNG"_s);
    reload(model, false);
    EXPECT_EQ(selected(model), u"f.png"_s);

    QSignalSpy filterChanged(&model, &LibraryModel::filterChanged);
    model.setFilter(MediaKind::Videos);
    EXPECT_EQ(names(model.filtered()), QStringList{u"b.mov"_s});
    EXPECT_EQ(selected(model), u"b.mov"_s);
    EXPECT_EQ(filterChanged.count(), 1);
    // Something not shown can't stay selected.
    model.setSelection(model.entries()[0].path);
    EXPECT_EQ(selected(model), u"b.mov"_s);

    ASSERT_TRUE(model.trash(model.filtered()[0]).ok());
    ASSERT_TRUE(waitUntil([&] { return model.count(MediaKind::Videos) == 0; }));
    EXPECT_TRUE(model.filtered().empty());
    EXPECT_EQ(model.selection(), std::nullopt);
    EXPECT_EQ(model.selectedEntry(), nullptr);
}

TEST_F(LibraryModelTest, DeletingTheSelectedCaptureSelectsTheNewestRemainingOfItsKind) {
    add(u"old.png"_s);
    add(u"middle.png"_s);
    add(u"new.png"_s);
    add(u"newest.mov"_s);
    LibraryModel model(preferences, nullptr);
    reload(model, false);
    model.setSelection(model.filtered()[1].path);
    ASSERT_EQ(selected(model), u"middle.png"_s);

    QSignalSpy reloaded(&model, &LibraryModel::reloaded);
    ASSERT_TRUE(model.trash(*model.selectedEntry()).ok());
    ASSERT_TRUE(waitUntil([&] { return reloaded.count() > 0; }));
    EXPECT_EQ(names(model.filtered()), (QStringList{u"new.png"_s, u"old.png"_s}));
    EXPECT_EQ(selected(model), u"new.png"_s);

    // A failed move says why and still lists the folder again.
    const CaptureEntry gone = model.filtered()[0];
    ASSERT_TRUE(QFile::remove(gone.path));
    reloaded.clear();
    const auto status = model.trash(gone);
    EXPECT_FALSE(status.ok());
    ASSERT_TRUE(waitUntil([&] { return reloaded.count() > 0; }));
    EXPECT_EQ(names(model.filtered()), QStringList{u"old.png"_s});
    EXPECT_EQ(selected(model), u"old.png"_s);
}

// Names are searched without their extension, ignoring case and accents; videos by name only.
TEST_F(LibraryModelTest, SearchesNamesAsTyped) {
    add(u"Café.png"_s);
    add(u"Receipt.png"_s);
    add(u"Holiday cafe.mov"_s);
    add(u"Quillmark 2026-11-23 at 10.00.00.png"_s);
    LibraryModel model(preferences, nullptr);
    reload(model, false);
    model.setSelection(folder + u"/Receipt.png"_s);

    QSignalSpy searchChanged(&model, &LibraryModel::searchTextChanged);
    model.setSearchText(u"CAFE"_s);
    EXPECT_EQ(names(model.filtered()), QStringList{u"Café.png"_s});
    EXPECT_EQ(selected(model), u"Café.png"_s);
    EXPECT_EQ(searchChanged.count(), 1);
    model.setFilter(MediaKind::Videos);
    EXPECT_EQ(names(model.filtered()), QStringList{u"Holiday cafe.mov"_s});

    model.setFilter(MediaKind::Images);
    model.setSearchText(u"png"_s); // the extension is not part of the name
    EXPECT_TRUE(model.filtered().empty());
    EXPECT_EQ(model.selection(), std::nullopt);
    model.setSearchText(u" 10.00"_s);
    EXPECT_EQ(names(model.filtered()), QStringList{u"Quillmark 2026-11-23 at 10.00.00.png"_s});
    model.setSearchText(u"10.00 "_s); // used as typed, not trimmed
    EXPECT_TRUE(model.filtered().empty());

    // Typing on narrows the matches, deleting letters widens them again.
    model.setSearchText(u"c"_s);
    EXPECT_EQ(names(model.filtered()), (QStringList{u"Receipt.png"_s, u"Café.png"_s}));
    model.setSearchText(u"ca"_s);
    EXPECT_EQ(names(model.filtered()), QStringList{u"Café.png"_s});
    model.setSearchText(u"cai"_s);
    EXPECT_TRUE(model.filtered().empty());
    model.setSearchText(u"c"_s);
    EXPECT_EQ(names(model.filtered()), (QStringList{u"Receipt.png"_s, u"Café.png"_s}));
    EXPECT_EQ(selected(model), u"Receipt.png"_s); // nothing was selected: the newest match

    model.setSearchText({});
    EXPECT_EQ(model.filtered().size(), 3u);
    EXPECT_EQ(selected(model), u"Receipt.png"_s);
}

// Another program adds and removes files: the list follows without being asked, keeping the
// selection; and it follows the save folder when the setting changes.
TEST_F(LibraryModelTest, FollowsTheFolderOnItsOwn) {
    add(u"first.png"_s);
    add(u"second.png"_s);
    LibraryModel model(preferences, nullptr);
    reload(model, false);
    model.setSelection(folder + u"/first.png"_s);

    const auto copied =
        qm::test::run(u"cp"_s, {folder + u"/first.png"_s, folder + u"/third.png"_s});
    ASSERT_EQ(copied.exitCode, 0);
    ASSERT_TRUE(waitUntil([&] { return model.entries().size() == 3; }));
    EXPECT_EQ(selected(model), u"first.png"_s);

    ASSERT_EQ(qm::test::run(u"rm"_s, {folder + u"/first.png"_s}).exitCode, 0);
    ASSERT_TRUE(waitUntil([&] { return model.entries().size() == 2; }));
    EXPECT_EQ(selected(model), u"third.png"_s); // the copy is the newest

    const QString other = home.filePath(u"elsewhere"_s);
    ASSERT_TRUE(QDir().mkpath(other));
    add(u"there.mov"_s, other);
    ASSERT_TRUE(preferences.setOutputDirectory(other).ok());
    ASSERT_TRUE(waitUntil([&] { return model.count(MediaKind::Videos) == 1; }));
    EXPECT_EQ(model.count(MediaKind::Images), 0);
    // The old folder is no longer watched, the new one is.
    add(u"ignored.png"_s);
    add(u"seen.png"_s, other);
    ASSERT_TRUE(waitUntil([&] { return model.count(MediaKind::Images) == 1; }));
    EXPECT_EQ(names(model.entries()), (QStringList{u"seen.png"_s, u"there.mov"_s}));
}

// Only the newest of overlapping reloads is published, and a fresh start asked for by an
// older one is not lost.
TEST_F(LibraryModelTest, ANewerReloadSupersedesAnOlderOne) {
    add(u"a.png"_s);
    add(u"b.png"_s);
    LibraryModel model(preferences, nullptr);
    reload(model, false);
    model.setSelection(folder + u"/a.png"_s);

    QSignalSpy reloaded(&model, &LibraryModel::reloaded);
    model.reload(false);
    model.reload(true);
    ASSERT_TRUE(waitUntil([&] { return reloaded.count() > 0; }));
    EXPECT_EQ(selected(model), u"b.png"_s);
    // Let a stale result arrive, if one were coming.
    QSignalSpy again(&model, &LibraryModel::reloaded);
    model.reload(true);
    ASSERT_TRUE(waitUntil([&] { return again.count() > 0; }));
    EXPECT_EQ(reloaded.count(), 2);
}
