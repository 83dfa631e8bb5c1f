#include "app/workflow/AppModel.h"

#include "FakeCaptureBackend.h"
#include "ScratchMount.h"
#include "TestSupport.h"
#include "ai/core/ClaudeClient.h"
#include "ai/ui/AIQueryController.h"
#include "app/BackendChoice.h"
#include "app/shell/TrayController.h"
#include "base/ImageExport.h"
#include "base/Preferences.h"
#include "capture/core/ScreenCaptureManager.h"
#include "capture/core/ShareableContentCache.h"
#include "capture/ui/CountdownController.h"
#include "capture/ui/SelectionOverlayController.h"
#include "cards/FloatingShotManager.h"
#include "cards/FloatingShotView.h"
#include "editor/model/EditorModel.h"
#include "editor/ui/AnnotationEditorController.h"
#include "library/index/OcrTextIndex.h"
#include "library/model/LibraryModel.h"
#include "library/ui/CaptureLibraryController.h"
#include "platform/audio/null/NullAudioCaptureBackend.h"
#include "platform/camera/null/NullCameraBackend.h"
#include "platform/capture/null/NullCaptureBackend.h"
#include "platform/input/null/NullClickSource.h"
#include "platform/secrets/null/NullSecretStore.h"
#include "platform/shortcuts/api/GlobalShortcutBackend.h"
#include "platform/sound/api/SoundPlayer.h"
#include "platform/surface/api/SurfaceBackend.h"
#include "platform/video/null/NullScreenVideoBackend.h"
#include "shortcuts/HotkeyManager.h"
#include "ui/ToastCenter.h"
#include "ui/ToastView.h"

#include <QAbstractButton>
#include <QClipboard>
#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QMenu>
#include <QMimeData>
#include <QNetworkAccessManager>
#include <QSet>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace qm;

namespace {

using test::ScratchMount;

// Notes which sounds were asked for; the sound system itself is tested on its own.
class HeardSounds : public SoundPlayer {
public:
    void play(SystemSound sound) override { heard.push_back(sound); }
    std::vector<SystemSound> heard;
};

// A small file system of its own (we run as root here and in CI); not mounted when refused.
class AppModelTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    IniSettingsStore store{dir.filePath(QStringLiteral("Quillmark.conf"))};
    Preferences prefs{store};
    test::FakeCaptureBackend backend;
    ShareableContentCache cache{backend};
    ScreenCaptureManager capture{backend, cache};
    std::unique_ptr<platform::SurfaceBackend> surfaces = platform::createSurfaceBackend();
    std::unique_ptr<GlobalShortcutBackend> shortcuts = createGlobalShortcutBackend();
    HotkeyManager hotkeys{*shortcuts};
    HeardSounds sounds;
    ToastCenter toasts;
    FloatingShotManager cards{prefs, toasts};
    // Recording has its own end-to-end tests; here it only has to exist.
    platform::NullScreenVideoBackend video;
    platform::NullAudioCaptureBackend audio{QStringLiteral("No sound server is running")};
    platform::NullCameraBackend camera;
    platform::NullClickSource clicks;
    library::OcrTextIndex ocrIndex{{.file = dir.filePath(QStringLiteral("ocr-index.json"))}};
    platform::NullSecretStore keys{QStringLiteral("No keyring answers here.")};
    QNetworkAccessManager network;
    ai::ClaudeClient claude{keys, network};
    std::unique_ptr<AppModel> model;

    void SetUp() override {
        ASSERT_TRUE(prefs.setOutputDirectory(dir.filePath(QStringLiteral("Shots"))));
        // Most routes are easiest to see with captures saved at once; the card route has its
        // own tests.
        prefs.setShowQuickAccessOverlay(false);
        model = std::make_unique<AppModel>(
            AppModel::Services{prefs, capture, cache, *surfaces, hotkeys, sounds, toasts, cards,
                               video, audio, camera, clicks, ocrIndex, claude, keys});
    }
    QString toastText() const { return toasts.window() ? toasts.window()->text() : QString(); }
    bool waitForStatus() {
        return test::waitUntil([&] { return !model->lastStatus().isEmpty(); });
    }
    static QByteArray contents(const QString& path) {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    static QByteArray clipboardPng() {
        const QMimeData* data = QGuiApplication::clipboard()->mimeData();
        return data ? data->data(QStringLiteral("image/png")) : QByteArray();
    }
};

TEST_F(AppModelTest, ACaptureIsCopiedAnnouncedAndSaved) {
    QSignalSpy revisions(model.get(), &AppModel::libraryRevisionChanged);
    model->perform(CaptureKind::Fullscreen);
    EXPECT_TRUE(model->isCapturing());
    ASSERT_TRUE(waitForStatus());

    EXPECT_FALSE(model->isCapturing());
    ASSERT_TRUE(model->lastSavedURL());
    const QString name = QFileInfo(*model->lastSavedURL()).fileName();
    EXPECT_EQ(model->lastStatus(), QStringLiteral("Full screen saved → ") + name);
    EXPECT_EQ(QFileInfo(*model->lastSavedURL()).absolutePath(), prefs.outputDirectory());
    EXPECT_EQ(QImage(*model->lastSavedURL()).size(), QSize(1280, 800));
    EXPECT_EQ(model->libraryRevision(), 1);
    EXPECT_EQ(revisions.count(), 1);
    EXPECT_EQ(sounds.heard, std::vector<SystemSound>{SystemSound::Capture});
    EXPECT_EQ(toastText(), QStringLiteral("Saved “%1”").arg(name));
    // One grab of the screen, encoded once: the clipboard holds the very bytes of the file.
    EXPECT_EQ(backend.count(QStringLiteral("grabDisplay")), 1);
    EXPECT_TRUE(backend.calls.contains(QStringLiteral("grabDisplay 0,0 1280x800")));
    EXPECT_EQ(clipboardPng(), contents(*model->lastSavedURL()));
    EXPECT_EQ(QImage(*model->lastSavedURL()).pixel(300, 200),
              test::FakeCaptureBackend::pixelAt(300, 200));
}

TEST_F(AppModelTest, CapturesInQuickSuccessionEachGetTheirOwnFile) {
    QStringList paths;
    QObject::connect(model.get(), &AppModel::lastSavedURLChanged, model.get(),
                     [&] { paths << *model->lastSavedURL(); });
    for (int i = 0; i < 3; ++i) {
        model->perform(CaptureKind::Fullscreen);
        ASSERT_TRUE(test::waitUntil([&] { return !model->isCapturing(); }));
    }
    ASSERT_TRUE(test::waitUntil([&] { return paths.size() == 3; }));
    EXPECT_EQ(QSet<QString>(paths.begin(), paths.end()).size(), 3);
    EXPECT_EQ(QDir(prefs.outputDirectory()).entryList(QDir::Files).size(), 3);
    for (const QString& path : paths)
        EXPECT_EQ(QImage(path).size(), QSize(1280, 800)) << path.toStdString();
}

TEST_F(AppModelTest, WithTheEditorOnTheEditedImageIsWhatGetsSaved) {
    prefs.setOpenEditorAfterCapture(true);
    model->perform(CaptureKind::Fullscreen);
    ASSERT_TRUE(waitForStatus());
    EXPECT_EQ(model->lastStatus(), QStringLiteral("Full screen captured — editing"));
    ASSERT_EQ(model->editorControllers().size(), 1u);
    EXPECT_FALSE(model->lastSavedURL());

    // Closing the editor keeps nothing; Done on a second capture saves the edited image.
    model->editorControllers().front()->complete(false);
    ASSERT_TRUE(test::waitUntil([&] { return model->editorControllers().empty(); }));
    EXPECT_FALSE(model->lastSavedURL());

    model->perform(CaptureKind::Fullscreen);
    ASSERT_TRUE(test::waitUntil([&] { return model->editorControllers().size() == 1; }));
    EditorModel& doc = model->editorControllers().front()->model();
    doc.backdrop().setBackground(BackgroundStyle{});
    model->editorControllers().front()->complete(true);
    ASSERT_TRUE(test::waitUntil([&] { return model->libraryRevision() == 1; }));
    EXPECT_TRUE(model->lastStatus().startsWith(QStringLiteral("Full screen saved → ")));
    // The backdrop grew the image: the file is the edited one, not the capture.
    EXPECT_GT(QImage(*model->lastSavedURL()).width(), 1280);
}

TEST_F(AppModelTest, EditingASavedCaptureSavesANewFileBesideItAndKeepsTheOriginal) {
    QImage original(200, 100, QImage::Format_RGB32);
    original.fill(Qt::white);
    const auto path =
        ImageExport::savePNG(original, QStringLiteral("Quillmark"), prefs.outputDirectory());
    ASSERT_TRUE(path);
    const QByteArray before = contents(*path);
    model->openEditor(*path);
    ASSERT_EQ(model->editorControllers().size(), 1u);
    model->editorControllers().front()->model().backdrop().setBackground(BackgroundStyle{});
    model->editorControllers().front()->save();
    ASSERT_TRUE(test::waitUntil([&] { return model->libraryRevision() == 1; }));
    const QFileInfo info(*path);
    const QString annotated =
        info.absoluteDir().filePath(info.completeBaseName() + QStringLiteral(" annotated.png"));
    EXPECT_GT(QImage(annotated).width(), 200);
    EXPECT_EQ(contents(*path), before); // the plain capture stays as it was
    EXPECT_EQ(toastText(), QStringLiteral("Saved “%1”").arg(QFileInfo(annotated).fileName()));
    EXPECT_EQ(sounds.heard, std::vector<SystemSound>{SystemSound::Capture});
}

TEST_F(AppModelTest, WithCardsTheClipboardTheCardAndTheFileShareOneEncoding) {
    prefs.setShowQuickAccessOverlay(true);
    model->configure();
    model->perform(CaptureKind::Fullscreen);
    ASSERT_TRUE(test::waitUntil([&] { return model->libraryRevision() == 1; }));
    ASSERT_EQ(cards.items().size(), 1u);
    const QByteArray file = contents(*model->lastSavedURL());
    EXPECT_FALSE(file.isEmpty());
    EXPECT_EQ(cards.items().front()->png, file);
    EXPECT_EQ(clipboardPng(), file);
}

TEST_F(AppModelTest, WithCardsOnACaptureBecomesACardThatSavesItself) {
    prefs.setShowQuickAccessOverlay(true);
    prefs.setCopyToClipboardAfterCapture(false);
    model->configure();
    // The card's save may finish within the same turn, so the statuses are kept in order.
    QStringList statuses;
    QObject::connect(model.get(), &AppModel::lastStatusChanged, model.get(),
                     [&](const QString& status) { statuses << status; });
    model->perform(CaptureKind::Fullscreen);
    ASSERT_TRUE(test::waitUntil([&] { return !statuses.isEmpty(); }));
    EXPECT_EQ(statuses.first(), QStringLiteral("Full screen captured — pinned to screen"));
    ASSERT_EQ(cards.items().size(), 1u);

    // The card's own save reports back: the file is there before the status names it.
    ASSERT_TRUE(test::waitUntil([&] { return model->libraryRevision() == 1; }));
    ASSERT_TRUE(model->lastSavedURL());
    EXPECT_TRUE(QFileInfo::exists(*model->lastSavedURL()));
    EXPECT_EQ(model->lastStatus(),
              QStringLiteral("Saved → ") + QFileInfo(*model->lastSavedURL()).fileName());

    // The card's copy button, clicked with the real pointer, puts the capture on the
    // clipboard for other programs.
    FloatingShotView* card = cards.items().front()->panel;
    ASSERT_TRUE(card);
    ASSERT_TRUE(QTest::qWaitForWindowExposed(card));
    auto* copyButton = card->findChild<QAbstractButton*>(QStringLiteral("copyButton"));
    ASSERT_TRUE(copyButton);
    const QPoint at = copyButton->mapToGlobal(copyButton->rect().center());
    // Hovering reveals the buttons; then click.
    test::run(QStringLiteral("xdotool"),
              {QStringLiteral("mousemove"), QString::number(at.x()), QString::number(at.y())});
    ASSERT_TRUE(test::waitUntil([&] { return card->hovering(); }));
    test::run(QStringLiteral("xdotool"), {QStringLiteral("click"), QStringLiteral("1")});
    ASSERT_TRUE(test::waitUntil([&] { return toastText() == QLatin1String("Copied"); }))
        << toastText().toStdString();
    const auto png =
        test::run(QStringLiteral("xclip"),
                  {QStringLiteral("-selection"), QStringLiteral("clipboard"), QStringLiteral("-t"),
                   QStringLiteral("image/png"), QStringLiteral("-o")});
    EXPECT_EQ(QImage::fromData(png.out, "PNG").convertToFormat(QImage::Format_RGB32),
              QImage(*model->lastSavedURL()).convertToFormat(QImage::Format_RGB32));
}

TEST_F(AppModelTest, AFailedSaveStillReportsTheCaptureAsCopiedAndSaysWhyItWasNotSaved) {
    prefs.setCopyToClipboardAfterCapture(false);
    prefs.setPlayCaptureSound(false);
    // A file where the folder should be: the disk refuses the save.
    const QString blocker = dir.filePath(QStringLiteral("blocker"));
    QFile(blocker).open(QIODevice::WriteOnly);
    ASSERT_TRUE(prefs.setOutputDirectory(blocker));

    test::LogCapture log;
    model->perform(CaptureKind::Fullscreen);
    ASSERT_TRUE(waitForStatus());
    EXPECT_EQ(model->lastStatus(), QStringLiteral("Full screen not saved"));
    EXPECT_EQ(toastText(), QStringLiteral("Not saved: ") + blocker + QStringLiteral(" is a file"));
    EXPECT_TRUE(log.contains(QStringLiteral("Quillmark save error: ")));
    EXPECT_FALSE(model->lastSavedURL());
    EXPECT_EQ(model->libraryRevision(), 0);
    EXPECT_TRUE(sounds.heard.empty());
}

// A capture that cannot be saved stays on the clipboard and in its card, and the toast says why.
TEST_F(AppModelTest, ACaptureThatCannotBeSavedStaysOnTheClipboardAndInItsCard) {
    ScratchMount full(QStringLiteral("size=64k"));
    if (!full.ok())
        GTEST_SKIP() << "mounting a small tmpfs was refused (needs root)";
    // Root writes into any folder whatever its mode, so a read-only one is a read-only mount.
    const bool root = geteuid() == 0;
    ScratchMount readOnlyMount(QStringLiteral("size=16k,ro"));
    QTemporaryDir readOnlyFolder;
    QString readOnly = readOnlyMount.path();
    if (!root) {
        readOnly = readOnlyFolder.path();
        QFile::setPermissions(readOnly, QFile::ReadOwner | QFile::ExeOwner);
    }
    const QString readOnlyReason = readOnly + QStringLiteral(" is read-only");
    ASSERT_TRUE(!root || readOnlyMount.ok());

    prefs.setShowQuickAccessOverlay(true);
    model->configure();
    for (const auto& [folder, reason] : {std::pair{full.fill(), QStringLiteral("the disk is full")},
                                         std::pair{readOnly, readOnlyReason}}) {
        ASSERT_TRUE(prefs.setOutputDirectory(folder));
        test::run(QStringLiteral("xclip"),
                  {QStringLiteral("-selection"), QStringLiteral("clipboard"),
                   QStringLiteral("/dev/null")});
        const size_t before = cards.items().size();
        model->perform(CaptureKind::Fullscreen);
        const QString expected = QStringLiteral("Not saved: ") + reason;
        ASSERT_TRUE(test::waitUntil([&] { return toastText() == expected; }))
            << toastText().toStdString() << " / " << model->lastStatus().toStdString();
        EXPECT_EQ(model->libraryRevision(), 0);
        EXPECT_FALSE(model->lastSavedURL());
        EXPECT_TRUE(QDir(folder).entryList(QDir::Files | QDir::Hidden).isEmpty());

        ASSERT_EQ(cards.items().size(), before + 1);
        const auto card = cards.items().back();
        EXPECT_TRUE(card->panel && card->panel->isVisible());
        EXPECT_FALSE(card->savedURL);
        EXPECT_EQ(card->saveError, reason);
        const auto clip =
            test::run(QStringLiteral("xclip"),
                      {QStringLiteral("-selection"), QStringLiteral("clipboard"),
                       QStringLiteral("-t"), QStringLiteral("image/png"), QStringLiteral("-o")});
        const QImage copied = QImage::fromData(clip.out, "PNG");
        ASSERT_EQ(copied.size(), QSize(1280, 800));
        EXPECT_EQ(copied.pixel(640, 400), test::FakeCaptureBackend::pixelAt(640, 400));
        EXPECT_EQ(clip.out, card->png);
    }
}

TEST_F(AppModelTest, AFailingGrabIsReportedWithItsReason) {
    platform::NullCaptureBackend refusing(QStringLiteral("Screen capture is switched off."));
    ShareableContentCache nullCache{refusing};
    ScreenCaptureManager nullCapture{refusing, nullCache};
    AppModel failing({prefs, nullCapture, nullCache, *surfaces, hotkeys, sounds, toasts, cards,
                      video, audio, camera, clicks, ocrIndex, claude, keys});
    backend.calls.clear();

    test::LogCapture log;
    failing.perform(CaptureKind::Region);
    ASSERT_TRUE(test::waitUntil([&] { return !failing.lastStatus().isEmpty(); }));
    EXPECT_EQ(failing.lastStatus(),
              QStringLiteral("Capture failed: Screen capture is switched off."));
    EXPECT_TRUE(
        log.contains(QStringLiteral("Quillmark capture error: Screen capture is switched off.")));
    EXPECT_FALSE(failing.isCapturing());
    EXPECT_TRUE(backend.calls.isEmpty());
}

TEST_F(AppModelTest, OneSelectionAtATimeAndCancelling) {
    model->perform(CaptureKind::Region);
    ASSERT_TRUE(test::waitUntil([&] { return model->overlay().isActive(); }));
    const auto* first = model->overlay().view();
    model->perform(CaptureKind::Region);
    model->performDelayed(CaptureKind::Fullscreen, 3);
    QCoreApplication::processEvents();
    EXPECT_EQ(model->overlay().view(), first);
    EXPECT_FALSE(model->countdown().isRunning());

    // One frozen screen for the one selection.
    EXPECT_EQ(backend.count(QStringLiteral("grabDisplay")), 1);
    model->overlay().cancel();
    ASSERT_TRUE(test::waitUntil([&] { return model->lastStatus() == QLatin1String("Cancelled"); }));
    EXPECT_FALSE(model->isCapturing());
    EXPECT_FALSE(model->lastSavedURL());
}

TEST_F(AppModelTest, ADelayedCaptureCountsDownAndCanBeCancelled) {
    model->performDelayed(CaptureKind::Fullscreen, 10);
    EXPECT_EQ(model->lastStatus(), QStringLiteral("Capturing in 10s…"));
    EXPECT_TRUE(model->countdown().isRunning());
    model->performDelayed(CaptureKind::Fullscreen, 3); // ignored while counting down
    EXPECT_EQ(model->lastStatus(), QStringLiteral("Capturing in 10s…"));
    model->countdown().cancel();
    EXPECT_EQ(model->lastStatus(), QStringLiteral("Cancelled"));

    model->performDelayed(CaptureKind::Fullscreen, 1);
    ASSERT_TRUE(test::waitUntil([&] { return model->libraryRevision() == 1; }));
    EXPECT_TRUE(model->lastStatus().startsWith(QStringLiteral("Full screen saved → ")));
}

TEST_F(AppModelTest, AChangedShortcutIsTakenAtOnce) {
    model->configure();
    model->registerHotkeys();
    EXPECT_FALSE(model->desktopOwnsAreaShortcut());
    prefs.setHotkey(HotkeyCombo(Qt::ControlModifier | Qt::AltModifier | Qt::Key_F),
                    HotkeyAction::Fullscreen);
    // The server hands key presses over in order: once the new shortcut's capture is in, the
    // old one would have fired before it.
    test::run(QStringLiteral("xdotool"), {QStringLiteral("key"), QStringLiteral("ctrl+shift+9")});
    test::run(QStringLiteral("xdotool"), {QStringLiteral("key"), QStringLiteral("ctrl+alt+f")});
    ASSERT_TRUE(test::waitUntil([&] { return model->libraryRevision() >= 1; }));
    EXPECT_EQ(model->libraryRevision(), 1) << "the old shortcut is released";
}

TEST_F(AppModelTest, TheAreaShortcutHeldByAnotherProgramIsNoticed) {
    auto other = createGlobalShortcutBackend();
    ASSERT_EQ(other->grab(1, '4', Qt::ControlModifier | Qt::ShiftModifier), 0);
    model->registerHotkeys();
    EXPECT_TRUE(model->desktopOwnsAreaShortcut());
}

QStringList titles(const QMenu* menu) {
    QStringList result;
    for (const QAction* a : menu->actions())
        result << (a->isSeparator() ? QStringLiteral("-") : a->text());
    return result;
}

TEST_F(AppModelTest, TheTrayMenuFollowsTheModel) {
    QStringList opened;
    TrayController tray(*model, prefs, [&](const QString& path) { opened << path; });
    tray.rebuildMenu();
    EXPECT_EQ(titles(tray.menu()),
              (QStringList{QStringLiteral("Capture Area"), QStringLiteral("Capture Window"),
                           QStringLiteral("Capture Fullscreen"), QStringLiteral("-"),
                           QStringLiteral("Record Area…"), QStringLiteral("Record Screen"),
                           QStringLiteral("-"), QStringLiteral("Self-Timer"),
                           QStringLiteral("All Captures…"), QStringLiteral("Options"),
                           QStringLiteral("-"), QStringLiteral("About Quillmark"),
                           QStringLiteral("Quit Quillmark")}));
    EXPECT_EQ(tray.menu()->actions().at(0)->shortcut().toString(QKeySequence::NativeText),
              QStringLiteral("Ctrl+Shift+4"));
    EXPECT_EQ(tray.menu()->actions().at(4)->shortcut().toString(QKeySequence::NativeText),
              QStringLiteral("Ctrl+Shift+6"));
    const QMenu* timer = tray.menu()->actions().at(7)->menu();
    ASSERT_TRUE(timer);
    EXPECT_EQ(titles(timer).size(), 4);

    // A changed shortcut shows in the menu.
    prefs.setHotkey(HotkeyCombo(Qt::ControlModifier | Qt::AltModifier | Qt::Key_A),
                    HotkeyAction::Region);
    tray.rebuildMenu();
    EXPECT_EQ(tray.menu()->actions().at(0)->shortcut().toString(QKeySequence::NativeText),
              QStringLiteral("Ctrl+Alt+A"));

    // After a saved capture: the recent list, the folder item and the status line.
    model->perform(CaptureKind::Fullscreen);
    ASSERT_TRUE(test::waitUntil([&] { return model->libraryRevision() == 1; }));
    tray.rebuildMenu();
    const QStringList after = titles(tray.menu());
    EXPECT_TRUE(after.contains(QStringLiteral("Recent Captures")));
    EXPECT_TRUE(after.contains(QStringLiteral("Show Last in Folder")));
    EXPECT_TRUE(after.contains(model->lastStatus()));
    QMenu* recent = nullptr;
    for (QAction* a : tray.menu()->actions())
        if (a->text() == QLatin1String("Recent Captures"))
            recent = a->menu();
    ASSERT_TRUE(recent);
    ASSERT_EQ(recent->actions().size(), 1);
    EXPECT_EQ(recent->actions().front()->text(),
              QFileInfo(*model->lastSavedURL()).completeBaseName());
    recent->actions().front()->trigger();
    EXPECT_EQ(opened, QStringList{*model->lastSavedURL()});

    // The new capture's text is read at once, and the library opens from the menu with it.
    const QString saved = *model->lastSavedURL();
    EXPECT_TRUE(test::waitUntil([&] { return ocrIndex.record(saved).has_value(); },
                                std::chrono::seconds(30)));
    tray.menu()->actions().at(8)->trigger();
    ASSERT_TRUE(model->library());
    ASSERT_TRUE(model->library()->window());
    EXPECT_EQ(model->library()->window()->windowTitle(), QStringLiteral("All Captures"));
    ASSERT_TRUE(test::waitUntil([&] { return model->library()->model().entries().size() == 1; }));
    EXPECT_EQ(model->library()->model().selection(), saved);
    // Closing it lets it go; the next request makes a new one.
    model->library()->window()->close();
    EXPECT_TRUE(test::waitUntil([&] { return model->library() == nullptr; }));
}

TEST_F(AppModelTest, EachAskClaudeWindowStaysUntilItIsClosed) {
    model->configure();
    const QImage shot = test::makeScreenshotLikeImage(400, 300);
    model->openAIQuery(shot);
    cards.onAIQuery(shot); // a card's Ask Claude
    ASSERT_EQ(model->aiControllers().size(), 2u);
    QWidget* first = model->aiControllers().front()->window();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(first));
    EXPECT_EQ(first->windowTitle(), QStringLiteral("Ask Claude"));
    first->close();
    ASSERT_TRUE(test::waitUntil([&] { return model->aiControllers().size() == 1u; }));
    model->aiControllers().front()->close();
    ASSERT_TRUE(test::waitUntil([&] { return model->aiControllers().empty(); }));
}

} // namespace
