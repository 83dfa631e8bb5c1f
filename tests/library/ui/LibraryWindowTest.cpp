#include "IndexTestFiles.h"
#include "TestSupport.h"
#include "base/Preferences.h"
#include "base/SettingsStore.h"
#include "editor/model/Annotation.h"
#include "editor/model/EditorModel.h"
#include "editor/ui/AnnotationCanvas.h"
#include "editor/ui/AnnotationEditorController.h"
#include "editor/ui/AnnotationEditorView.h"
#include "library/index/OcrTextIndex.h"
#include "library/model/LibraryModel.h"
#include "library/thumbnails/ThumbnailLoader.h"
#include "library/ui/CaptureCell.h"
#include "library/ui/CaptureGridModel.h"
#include "library/ui/CaptureLibraryController.h"
#include "library/ui/CaptureLibraryView.h"
#include "library/ui/LibraryPanes.h"
#include "media/player/TrimSession.h"
#include "media/trim/TrimInPlace.h"
#include "ui/ToastCenter.h"

#include <QAction>
#include <QClipboard>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMimeData>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>
#include <QTreeWidget>
#include <future>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace qm::library {
namespace {

class LibraryWindowTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString folder = dir.filePath(u"Captures"_s);
    IniSettingsStore store{dir.filePath(u"quillmark.conf"_s)};
    Preferences preferences{store};
    IniSettingsStore editorSettings{dir.filePath(u"editor.conf"_s)};
    OcrTextIndex index{{dir.filePath(u"ocr-index.json"_s), 1, {}, std::chrono::milliseconds(50)}};
    ToastCenter toasts;
    std::unique_ptr<CaptureLibraryController> controller;

    void SetUp() override {
        ASSERT_TRUE(QDir().mkpath(folder));
        ASSERT_TRUE(preferences.setOutputDirectory(folder));
    }

    // A capture of one colour, `age` seconds old.
    QString writeImage(const QString& name, QColor color, double age) {
        QImage image(640, 400, QImage::Format_RGB32);
        image.fill(color);
        const QString path = QDir(folder).filePath(name);
        EXPECT_TRUE(image.save(path, "PNG"));
        EXPECT_TRUE(test::shiftModified(path, -age));
        return path;
    }
    QString writeMovie(const QString& name, double age, int seconds = 1) {
        const QString path = QDir(folder).filePath(name);
        const auto made =
            test::run(u"ffmpeg"_s, {u"-v"_s, u"error"_s, u"-f"_s, u"lavfi"_s, u"-i"_s,
                                    u"testsrc=duration=%1:size=320x240:rate=30"_s.arg(seconds),
                                    u"-pix_fmt"_s, u"yuv420p"_s, path});
        EXPECT_EQ(made.exitCode, 0) << made.err.toStdString();
        EXPECT_TRUE(test::shiftModified(path, -age));
        return path;
    }

    void open() {
        controller = std::make_unique<CaptureLibraryController>(
            CaptureLibraryController::Services{preferences, index, editorSettings, toasts});
        controller->movieSound = false;
        controller->thumbnailRoot = dir.filePath(u"thumbnails"_s);
        QSignalSpy reloaded(&controller->model(), &LibraryModel::reloaded);
        controller->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(controller->window()));
        ASSERT_TRUE(reloaded.count() > 0 || reloaded.wait(10000));
    }

    LibraryModel& model() const { return controller->model(); }
    CaptureLibraryView& view() const { return *controller->view(); }
    CaptureGridModel& grid() const { return *view().gridModel(); }
    QStringList shownNames() const {
        QStringList names;
        for (int row = 0; row < grid().rowCount(); ++row)
            names << QFileInfo(grid().entry(row)->path).fileName();
        return names;
    }
    // The editor pane, once the selected image has been decoded.
    LibraryEditorPane* editorPane() const {
        LibraryEditorPane* pane = nullptr;
        test::waitUntil([&] { return (pane = qobject_cast<LibraryEditorPane*>(view().detail())); });
        return pane;
    }
    QString paneMessage() const {
        auto* label = qobject_cast<QLabel*>(view().detail());
        return label ? label->text() : QString();
    }
    void clickSidebarRow(int row) {
        QTreeWidget* sidebar = view().sidebar();
        const QRect rect = sidebar->visualItemRect(sidebar->topLevelItem(row));
        QTest::mouseClick(sidebar->viewport(), Qt::LeftButton, {}, rect.center());
    }
    void clickCell(int row) {
        CaptureGrid* cells = view().grid();
        QTest::mouseClick(cells->viewport(), Qt::LeftButton, {},
                          cells->visualRect(grid().index(row)).center());
    }
    QAction* menuAction(QMenu* menu, const QString& text) const {
        for (QAction* action : menu->actions())
            if (action->text() == text)
                return action;
        return nullptr;
    }
};

TEST_F(LibraryWindowTest, ListsCapturesNewestFirstAndShowsTheChosenOneInPlace) {
    const QString oldest = writeImage(u"Quillmark old.png"_s, Qt::red, 300);
    const QString middle = writeImage(u"Quillmark middle.png"_s, Qt::green, 200);
    const QString newest = writeImage(u"Quillmark new.png"_s, Qt::blue, 100);
    const QString movie = writeMovie(u"Quillmark Recording.mov"_s, 50, 2);
    open();

    EXPECT_EQ(shownNames(), (QStringList{u"Quillmark new.png"_s, u"Quillmark middle.png"_s,
                                         u"Quillmark old.png"_s}));
    EXPECT_EQ(view().sidebar()->topLevelItem(0)->text(1), u"3"_s);
    EXPECT_EQ(view().sidebar()->topLevelItem(1)->text(1), u"1"_s);

    // The newest is chosen and open in the editor; the cells on screen get their thumbnails.
    ASSERT_EQ(model().selection(), newest);
    auto* imagePane = editorPane();
    ASSERT_NE(imagePane, nullptr);
    EXPECT_EQ(imagePane->path(), newest);
    ThumbnailLoader& thumbnails = view().thumbnails();
    ASSERT_TRUE(test::waitUntil(
        [&] { return thumbnails.find(oldest, QFileInfo(oldest).lastModified()) != nullptr; }));

    // A click selects, both ways: the model follows the grid and the pane follows the model.
    clickCell(2);
    EXPECT_EQ(model().selection(), oldest);
    ASSERT_NE(editorPane(), nullptr);
    EXPECT_EQ(editorPane()->path(), oldest);
    model().setSelection(middle);
    EXPECT_EQ(view().grid()->currentIndex().row(), 1);

    // Videos: the movie in the trim view, its length on the cell.
    clickSidebarRow(1);
    EXPECT_EQ(model().filter(), MediaKind::Videos);
    EXPECT_EQ(shownNames(), QStringList{u"Quillmark Recording.mov"_s});
    auto* videoPane = qobject_cast<LibraryVideoPane*>(view().detail());
    ASSERT_NE(videoPane, nullptr);
    EXPECT_EQ(videoPane->path(), movie);
    ASSERT_TRUE(test::waitUntil(
        [&] { return thumbnails.find(movie, QFileInfo(movie).lastModified()) != nullptr; }));
    const auto* thumb = thumbnails.find(movie, QFileInfo(movie).lastModified());
    ASSERT_TRUE(thumb->duration.has_value());
    EXPECT_EQ(formatDuration(*thumb->duration), u"0:02"_s);
    EXPECT_EQ(formatDuration(125.4), u"2:05"_s);

    // Closing the window tells the owner.
    bool closed = false;
    controller->onClosed = [&] { closed = true; };
    controller->close();
    EXPECT_TRUE(test::waitUntil([&] { return closed; }));
}

TEST_F(LibraryWindowTest, EmptyStatesNameTheCurrentShortcutAndTheSearch) {
    open();
    const auto shortcut = [&](HotkeyAction action) {
        return preferences.hotkey(action).sequence().toString(QKeySequence::NativeText);
    };
    EXPECT_TRUE(view().emptyMessage()->isVisible());
    EXPECT_EQ(view().emptyMessage()->text(),
              u"No captures yet — press "_s + shortcut(HotkeyAction::Region) + u" to take one."_s);
    EXPECT_EQ(paneMessage(), u"Select a capture to view and mark it up."_s);

    // The user changes the shortcut while the window is open.
    preferences.setHotkey(HotkeyCombo(Qt::CTRL | Qt::ALT | Qt::Key_R), HotkeyAction::Region);
    EXPECT_TRUE(view().emptyMessage()->text().contains(shortcut(HotkeyAction::Region)));
    EXPECT_TRUE(view().emptyMessage()->text().contains(u"Alt"_s));

    clickSidebarRow(1);
    EXPECT_EQ(view().emptyMessage()->text(), u"No recordings yet — press "_s +
                                                 shortcut(HotkeyAction::Record) +
                                                 u" to record one."_s);

    writeImage(u"Quillmark beach.png"_s, Qt::yellow, 20);
    writeImage(u"Quillmark forest.png"_s, Qt::darkGreen, 10);
    clickSidebarRow(0);
    QSignalSpy reloaded(&model(), &LibraryModel::reloaded);
    controller->reload();
    ASSERT_TRUE(reloaded.wait(10000));
    EXPECT_FALSE(view().emptyMessage()->isVisible());

    view().searchField()->setFocus();
    QTest::keyClicks(view().searchField(), u"BEACH"_s);
    EXPECT_EQ(model().searchText(), u"BEACH"_s);
    EXPECT_EQ(shownNames(), QStringList{u"Quillmark beach.png"_s});
    view().searchField()->clear();
    QTest::keyClicks(view().searchField(), u"desert"_s);
    EXPECT_TRUE(view().emptyMessage()->isVisible());
    EXPECT_EQ(view().emptyMessage()->text(), u"No captures match “desert”"_s);
}

TEST_F(LibraryWindowTest, FindsImagesByTheTextInThem) {
    ASSERT_TRUE(test::writeTextImage(QDir(folder).filePath(u"Quillmark receipt.png"_s),
                                     {u"Invoice number 4711"_s, u"Total due today"_s}, 28));
    writeImage(u"Quillmark plain.png"_s, Qt::gray, 100);
    open();
    if (!index.unavailableReason().isEmpty()) {
        // The reason takes the place of the progress line.
        EXPECT_EQ(view().statusLine()->text(), index.unavailableReason());
        GTEST_SKIP() << "no English text data here";
    }
    ASSERT_TRUE(test::waitUntil([&] { return !index.isIndexing(); }, std::chrono::seconds(60)));
    EXPECT_FALSE(view().statusLine()->isVisible());

    view().searchField()->setFocus();
    QTest::keyClicks(view().searchField(), u"invoice"_s);
    EXPECT_EQ(shownNames(), QStringList{u"Quillmark receipt.png"_s});

    // The recognised text is what Copy Text copies; an image without text has none to copy.
    const CaptureEntry receipt = *grid().entry(0);
    QMenu* menu = view().contextMenu(receipt);
    QAction* copyText = menuAction(menu, u"Copy Text"_s);
    ASSERT_NE(copyText, nullptr);
    ASSERT_TRUE(copyText->isEnabled());
    copyText->trigger();
    EXPECT_TRUE(QGuiApplication::clipboard()->text().contains(u"4711"_s));
    menu->close();

    view().searchField()->clear();
    const int plainRow = grid().rowOf(QDir(folder).filePath(u"Quillmark plain.png"_s));
    QMenu* plainMenu = view().contextMenu(*grid().entry(plainRow));
    EXPECT_FALSE(menuAction(plainMenu, u"Copy Text"_s)->isEnabled());
    plainMenu->close();
}

TEST_F(LibraryWindowTest, SaysWhileTextIsBeingReadFromImages) {
    writeImage(u"Quillmark slow.png"_s, Qt::white, 10);
    // An engine that reads only when the test lets it.
    std::promise<void> go;
    std::shared_future<void> allowed = go.get_future().share();
    OcrTextIndex slowIndex{{dir.filePath(u"slow-index.json"_s), 1,
                            [allowed](const QImage&) -> Result<QString> {
                                allowed.wait();
                                return u"hello"_s;
                            },
                            std::chrono::milliseconds(50)}};
    CaptureLibraryController library(
        CaptureLibraryController::Services{preferences, slowIndex, editorSettings, toasts});
    library.movieSound = false;
    library.thumbnailRoot = dir.filePath(u"thumbnails"_s);
    // Goes first, so a failed check never leaves the index waiting for its engine.
    bool released = false;
    const auto release = qScopeGuard([&] {
        if (!std::exchange(released, true))
            go.set_value();
    });
    library.show();
    CaptureLibraryView& shown = *library.view();
    ASSERT_TRUE(test::waitUntil([&] { return shown.statusLine()->isVisible(); }));
    EXPECT_EQ(shown.statusLine()->text(), u"Reading text in images…"_s);
    released = true;
    go.set_value();
    EXPECT_TRUE(test::waitUntil([&] { return !shown.statusLine()->isVisible(); }));
}

TEST_F(LibraryWindowTest, MoveToTrashFromTheMenuTrashesTheFileAndSelectsTheNext) {
    writeImage(u"Quillmark a.png"_s, Qt::red, 300);
    const QString b = writeImage(u"Quillmark b.png"_s, Qt::green, 200);
    const QString c = writeImage(u"Quillmark c.png"_s, Qt::blue, 100);
    open();
    model().setSelection(c);

    QMenu* menu = view().contextMenu(*grid().entry(0));
    QStringList texts;
    for (QAction* action : menu->actions())
        if (!action->isSeparator())
            texts << action->text();
    EXPECT_EQ(texts, (QStringList{u"Open"_s, u"Show in Folder"_s, u"Copy File"_s, u"Copy Image"_s,
                                  u"Copy Text"_s, u"Move to Trash"_s}));

    // Copy File: the file itself, for pasting into a file manager.
    menuAction(menu, u"Copy File"_s)->trigger();
    const QMimeData* copied = QGuiApplication::clipboard()->mimeData();
    ASSERT_TRUE(copied && copied->hasUrls());
    EXPECT_EQ(copied->urls().value(0).toLocalFile(), c);

    QSignalSpy reloaded(&model(), &LibraryModel::reloaded);
    menuAction(menu, u"Move to Trash"_s)->trigger();
    menu->close();
    EXPECT_FALSE(QFileInfo::exists(c));
    ASSERT_TRUE(reloaded.wait(10000));
    EXPECT_EQ(shownNames(), (QStringList{u"Quillmark b.png"_s, u"Quillmark a.png"_s}));
    EXPECT_EQ(model().selection(), b);
    EXPECT_EQ(view().sidebar()->topLevelItem(0)->text(1), u"2"_s);
    const auto listed = test::run(u"trash-list"_s, {});
    EXPECT_TRUE(listed.out.contains(QFile::encodeName(c))) << listed.out.toStdString();
}

TEST_F(LibraryWindowTest, AskClaudeAndCopyImageHandOverTheSelectedPicture) {
    writeImage(u"Quillmark green.png"_s, Qt::green, 200);
    const QString magenta = writeImage(u"Quillmark magenta.png"_s, Qt::magenta, 100);
    open();
    EXPECT_FALSE(view().askButton()->isVisible());
    controller->close();

    QImage asked;
    controller->onAskAI = [&](const QImage& image) { asked = image; };
    controller->show();
    ASSERT_TRUE(view().askButton()->isVisible());
    ASSERT_EQ(model().selection(), magenta);
    QTest::mouseClick(view().askButton(), Qt::LeftButton);
    ASSERT_EQ(asked.size(), QSize(640, 400));
    EXPECT_EQ(asked.pixelColor(5, 5), QColor(Qt::magenta));

    QMenu* menu = view().contextMenu(*grid().entry(1));
    menuAction(menu, u"Copy Image"_s)->trigger();
    menu->close();
    ASSERT_TRUE(test::waitUntil([] { return !QGuiApplication::clipboard()->image().isNull(); }));
    EXPECT_EQ(QGuiApplication::clipboard()->image().pixelColor(5, 5), QColor(Qt::green));
}

TEST_F(LibraryWindowTest, AnUnreadableImageKeepsItsPlaceholderAndSaysSo) {
    writeImage(u"Quillmark fine.png"_s, Qt::red, 300);
    const QString broken = QDir(folder).filePath(u"Quillmark broken.png"_s);
    ASSERT_TRUE(test::writeBytes(broken, "not a picture"));
    open();
    ASSERT_EQ(model().selection(), broken);
    EXPECT_TRUE(test::waitUntil([&] { return paneMessage() == u"Could not load image"_s; }));
    const QDateTime date = QFileInfo(broken).lastModified();
    ASSERT_TRUE(test::waitUntil([&] { return view().thumbnails().hasFailed(broken, date); }));
    EXPECT_EQ(view().thumbnails().find(broken, date), nullptr);
}

TEST_F(LibraryWindowTest, SavingInTheEmbeddedEditorWritesANewFileBesideTheOriginal) {
    const QString original = writeImage(u"Quillmark shot.png"_s, Qt::red, 100);
    const QByteArray before = [&] {
        QFile f(original);
        f.open(QIODevice::ReadOnly);
        return f.readAll();
    }();
    open();
    QString saved;
    controller->onSaved = [&](const QString& path) { saved = path; };
    auto* pane = editorPane();
    ASSERT_NE(pane, nullptr);
    QWidget* canvas = pane->editor().view()->canvas();
    canvas->setFocus();
    QSignalSpy reloaded(&model(), &LibraryModel::reloaded);
    QTest::keyClick(canvas, Qt::Key_S, Qt::ControlModifier);
    ASSERT_TRUE(test::waitUntil([&] { return !saved.isEmpty(); }));
    EXPECT_EQ(saved, QDir(folder).filePath(u"Quillmark shot 2.png"_s));
    EXPECT_EQ(QImage(saved).pixelColor(10, 10), QColor(Qt::red));
    QFile f(original);
    ASSERT_TRUE(f.open(QIODevice::ReadOnly));
    EXPECT_EQ(f.readAll(), before);
    ASSERT_TRUE(reloaded.wait(10000));
    EXPECT_EQ(model().count(MediaKind::Images), 2);
}

TEST_F(LibraryWindowTest, MarksNotYetSavedAreWrittenBesideTheOriginalWhenAnotherCaptureIsChosen) {
    const QString marked = writeImage(u"Quillmark marked.png"_s, Qt::white, 100);
    writeImage(u"Quillmark other.png"_s, Qt::blue, 200);
    open();
    model().setSelection(marked);
    auto* pane = editorPane();
    ASSERT_NE(pane, nullptr);
    EditorModel& editor = pane->editor().model();
    editor.document().beginChange();
    editor.document().appendAnnotation(
        Annotation(Annotation::Rectangle{QRectF(100, 100, 200, 120)}, Qt::red, 8));

    model().setSelection(QDir(folder).filePath(u"Quillmark other.png"_s));
    const QString beside = QDir(folder).filePath(u"Quillmark marked 2.png"_s);
    ASSERT_TRUE(test::waitUntil([&] { return QFile::exists(beside); }));
    ASSERT_TRUE(test::waitUntil([&] { return !QImage(beside).isNull(); }));
    EXPECT_EQ(QImage(beside).pixelColor(100, 150), QColor(Qt::red)); // the rectangle's left edge
    EXPECT_EQ(QImage(marked).pixelColor(100, 150), QColor(Qt::white));
    // A pane left without changes writes nothing.
    model().setSelection(marked);
    model().setSelection(QDir(folder).filePath(u"Quillmark other.png"_s));
    EXPECT_EQ(QDir(folder).entryList(QDir::Files).size(), 3);
}

TEST_F(LibraryWindowTest, KeysTypedInTheGridLeaveTheEmbeddedEditorAlone) {
    writeImage(u"Quillmark shot.png"_s, Qt::red, 100);
    open();
    auto* pane = editorPane();
    ASSERT_NE(pane, nullptr);
    EditorModel& editor = pane->editor().model();
    const AnnotationTool before = editor.tool();
    // A tool letter that would change the editor's tool.
    int letter = 0;
    for (int key = Qt::Key_A; key <= Qt::Key_Z && !letter; ++key) {
        const auto tool = toolForKey(QString(QChar(u'a' + (key - Qt::Key_A))));
        if (tool && *tool != before)
            letter = key;
    }
    ASSERT_NE(letter, 0);
    controller->window()->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(controller->window()));

    view().grid()->setFocus();
    QTest::keyClick(view().grid(), Qt::Key(letter));
    EXPECT_EQ(editor.tool(), before);

    QWidget* canvas = pane->editor().view()->canvas();
    canvas->setFocus();
    QTest::keyClick(canvas, Qt::Key(letter));
    EXPECT_NE(editor.tool(), before);
}

TEST_F(LibraryWindowTest, ATrimInTheVideoPaneReloadsTheLibraryAndTheMovie) {
    const QString older = writeMovie(u"Quillmark Recording 1.mov"_s, 500, 3);
    writeMovie(u"Quillmark Recording 2.mov"_s, 100, 1);
    open();
    clickSidebarRow(1);
    model().setSelection(older);
    auto* pane = qobject_cast<LibraryVideoPane*>(view().detail());
    ASSERT_NE(pane, nullptr);
    ASSERT_TRUE(test::waitUntil([&] { return pane->session().duration() > 2.5; }));
    // The owner's part: cut the movie, then say the export ended.
    controller->onTrim = [](media::player::TrimSession& session, double, double) {
        session.setExporting(true);
        ASSERT_TRUE(media::trim::trimInPlace(session.path(), 0, 1.0, {}, nullptr));
        session.setExporting(false);
    };
    QSignalSpy reloaded(&model(), &LibraryModel::reloaded);
    pane->onTrim(pane->session(), 0, 1.0);
    ASSERT_TRUE(reloaded.wait(10000));
    ASSERT_TRUE(test::waitUntil([&] { return pane->session().duration() < 1.5; }));
    // The list is by date: the movie just rewritten moves up, and stays the one shown.
    EXPECT_EQ(shownNames(),
              (QStringList{u"Quillmark Recording 1.mov"_s, u"Quillmark Recording 2.mov"_s}));
    EXPECT_EQ(model().selection(), older);
    EXPECT_EQ(qobject_cast<LibraryVideoPane*>(view().detail()), pane);
}

} // namespace
} // namespace qm::library
