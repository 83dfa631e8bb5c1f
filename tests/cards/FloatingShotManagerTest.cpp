#include "cards/FloatingShotManager.h"

#include "TestSupport.h"
#include "base/Preferences.h"
#include "base/SettingsStore.h"
#include "cards/CardStack.h"
#include "cards/DragSourceView.h"
#include "cards/FloatingShotView.h"
#include "cards/HoverIconButton.h"
#include "ui/ToastCenter.h"
#include "ui/ToastView.h"

#include <QAbstractButton>
#include <QApplication>
#include <QBuffer>
#include <QClipboard>
#include <QCursor>
#include <QDBusConnection>
#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QMap>
#include <QMenu>
#include <QMimeData>
#include <QProcess>
#include <QScreen>
#include <QStandardPaths>
#include <QTest>
#include <QThreadPool>
#include <QTimer>
#include <QVBoxLayout>
#include <QWindow>
#include <gtest/gtest.h>

using namespace qm;
using namespace qm::test;

namespace {

void xdotool(const QStringList& args) {
    ASSERT_EQ(run(QStringLiteral("xdotool"), args).exitCode, 0) << args.join(u' ').toStdString();
}

// X server pixels of a logical point: on X11 Qt keeps each screen's top-left in device pixels
// and scales only within it.
QPoint toDevice(QPoint global) {
    QScreen* screen = QGuiApplication::screenAt(global);
    if (!screen)
        return global;
    const QPointF origin = screen->geometry().topLeft();
    const QPointF device = origin + (QPointF(global) - origin) * screen->devicePixelRatio();
    return device.toPoint();
}

void pointerTo(QPoint global) {
    const QPoint device = toDevice(global);
    xdotool(
        {QStringLiteral("mousemove"), QString::number(device.x()), QString::number(device.y())});
    ASSERT_TRUE(waitUntil([&] { return (QCursor::pos() - global).manhattanLength() <= 1; }));
}

void click(QWidget* widget) {
    pointerTo(widget->mapToGlobal(widget->rect().center()));
    xdotool({QStringLiteral("click"), QStringLiteral("1")});
}

// Where the X server has the window, in its pixels.
QRect nativeGeometry(QWidget* window) {
    const ProcessResult out = run(QStringLiteral("xdotool"),
                                  {QStringLiteral("getwindowgeometry"), QStringLiteral("--shell"),
                                   QString::number(window->winId())});
    QMap<QString, int> values;
    for (const QByteArray& line : out.out.split('\n')) {
        const int equals = line.indexOf('=');
        if (equals > 0)
            values[QString::fromLatin1(line.left(equals))] = line.mid(equals + 1).toInt();
    }
    return {values[QStringLiteral("X")], values[QStringLiteral("Y")],
            values[QStringLiteral("WIDTH")], values[QStringLiteral("HEIGHT")]};
}

// A card in that slot of the screen, as the X server sees it: sharp at the screen's scale.
QRect nativeSlot(QScreen* screen, QPoint topLeft) {
    return {toDevice(topLeft), FloatingShotView::panelSize * screen->devicePixelRatio()};
}

std::string rectText(QRect r) {
    return QStringLiteral("%1,%2 %3x%4")
        .arg(r.x())
        .arg(r.y())
        .arg(r.width())
        .arg(r.height())
        .toStdString();
}

// The X server applies a move (and, between screens of different scale, a resize) after Qt
// has taken it: wait for the server to agree rather than asking once.
bool nativelyAt(QWidget* window, QScreen* screen, QPoint topLeft) {
    return waitUntil([&] { return nativeGeometry(window) == nativeSlot(screen, topLeft); });
}

QScreen* screenNamed(const QString& name) {
    for (QScreen* screen : QGuiApplication::screens())
        if (screen->name() == name)
            return screen;
    return nullptr;
}

// The top-left of the card in a screen's stack: the oldest 20 points above the bottom of the
// visible area, each newer one a card height plus 14 points higher.
QPoint slot(QScreen* screen, int index) {
    const QRect visible = screen->availableGeometry();
    const int bottom = visible.y() + visible.height() - FloatingShotManager::margin;
    const int height = FloatingShotView::panelSize.height();
    return {visible.x() + FloatingShotManager::margin,
            bottom - height - index * (height + FloatingShotManager::spacing)};
}

QImage pngFromClipboard() {
    const ProcessResult out =
        run(QStringLiteral("xclip"),
            {QStringLiteral("-selection"), QStringLiteral("clipboard"), QStringLiteral("-t"),
             QStringLiteral("image/png"), QStringLiteral("-o")});
    return QImage::fromData(out.out, "PNG");
}

// The desktop's file manager, as far as showing files goes: none is installed here.
class FakeFileManager final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")
public:
    QStringList shown;
public Q_SLOTS:
    void ShowItems(const QStringList& uris, const QString&) { shown += uris; }
};

// A window in another program's place: takes drops of files.
class DropTarget final : public QWidget {
public:
    DropTarget() { setAcceptDrops(true); }
    QList<QUrl> dropped;
    // Looked at while the drag is still going on.
    std::function<void()> onDrop;

protected:
    void dragEnterEvent(QDragEnterEvent* event) override {
        if (event->mimeData()->hasUrls())
            event->acceptProposedAction();
    }
    void dropEvent(QDropEvent* event) override {
        dropped = event->mimeData()->urls();
        if (onDrop)
            onDrop();
        event->acceptProposedAction();
    }
};

class FloatingShotManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        left = screenNamed(QStringLiteral("qm0"));
        right = screenNamed(QStringLiteral("qm1"));
        ASSERT_TRUE(left && right) << "needs the two RandR monitors";
        ASSERT_TRUE(dir.isValid());
        ASSERT_TRUE(preferences.setOutputDirectory(dir.filePath(QStringLiteral("Quillmark"))));
        pointerTo(left->geometry().center());
        manager.onSaved = [this](const QString& path) { saved << path; };
        manager.onLibraryChanged = [this] { ++libraryChanges; };
    }

    void TearDown() override {
        while (!manager.items().empty())
            manager.dismiss(manager.items().front());
        // First saves still running write into this test's folder; let them finish first.
        QThreadPool::globalInstance()->waitForDone();
    }

    static bool placed(const FloatingShotManager::Item& item, QPoint at) {
        return item->panel && item->panel->isVisible() && item->panel->pos() == at;
    }
    QWidget* button(const FloatingShotManager::Item& item, const char* name) {
        return item->panel->findChild<QAbstractButton*>(QLatin1String(name));
    }
    bool waitSaved(const FloatingShotManager::Item& item) {
        return waitUntil([&] { return item->savedURL.has_value(); });
    }
    // Until the file holds the card's newest image.
    bool waitWritten(const FloatingShotManager::Item& item) {
        return waitUntil(
            [&] { return !item->saving && item->savedRevision == item->imageRevision; });
    }
    QStringList outputFiles() const {
        return QDir(preferences.outputDirectory()).entryList(QDir::Files);
    }
    QString toastText() const { return toasts.window() ? toasts.window()->text() : QString(); }

    QScreen* left = nullptr;
    QScreen* right = nullptr;
    QTemporaryDir dir{QDir::home().filePath(QStringLiteral("cards.XXXXXX"))};
    IniSettingsStore store{dir.filePath(QStringLiteral("settings.conf"))};
    Preferences preferences{store};
    ToastCenter toasts;
    FloatingShotManager manager{preferences, toasts};
    QStringList saved;
    int libraryChanges = 0;
};

TEST_F(FloatingShotManagerTest, CardsStackUpFromTheBottomLeftOfTheScreenUnderThePointer) {
    std::vector<FloatingShotManager::Item> cards;
    for (int i = 0; i < 3; ++i)
        cards.push_back(manager.present(makeScreenshotLikeImage(1200, 800)));
    EXPECT_EQ(manager.currentScreen(), left);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(waitUntil([&] { return placed(cards[i], slot(left, i)); }))
            << "card " << i << " at " << cards[i]->panel->pos().y();
        EXPECT_EQ(cards[i]->panel->size(), QSize(256, 176));
        EXPECT_EQ(cards[i]->panel->screen(), left);
        EXPECT_EQ(cards[i]->displayImage.size(), QSize(480, 320));
    }
    EXPECT_EQ(slot(left, 0), QPoint(20, 1080 - 20 - 176));
    EXPECT_EQ(slot(left, 1).y(), 1080 - 20 - 176 - 190);

    // Closing the middle card keeps its file; the newest slides down into its place once the
    // pointer has left the stack.
    for (const auto& card : cards)
        ASSERT_TRUE(waitSaved(card));
    QPointer<FloatingShotView> middle = cards[1]->panel;
    click(button(cards[1], "closeButton"));
    ASSERT_TRUE(waitUntil([&] { return !middle; }));
    EXPECT_TRUE(QFileInfo::exists(*cards[1]->savedURL));
    EXPECT_EQ(manager.items().size(), 2u);
    EXPECT_TRUE(placed(cards[2], slot(left, 2)));
    pointerTo(left->geometry().center());
    EXPECT_TRUE(waitUntil([&] { return placed(cards[2], slot(left, 1)); }));
    EXPECT_TRUE(placed(cards[0], slot(left, 0)));
}

TEST_F(FloatingShotManagerTest, ASecondClickWhereACardWasTrashedHitsNothingUntilThePointerLeaves) {
    std::vector<FloatingShotManager::Item> cards;
    for (int i = 0; i < 3; ++i)
        cards.push_back(manager.present(makeScreenshotLikeImage(800, 500)));
    for (const auto& card : cards)
        ASSERT_TRUE(waitSaved(card));
    ASSERT_TRUE(waitUntil([&] { return placed(cards[2], slot(left, 2)); }));

    // A double click on Delete: the first trashes the bottom card...
    QPointer<FloatingShotView> bottom = cards[0]->panel;
    click(button(cards[0], "deleteButton"));
    ASSERT_TRUE(waitUntil([&] { return !bottom; }));
    EXPECT_FALSE(QFileInfo::exists(*cards[0]->savedURL));
    // ...and nothing has moved under the pointer, so the second hits no card.
    EXPECT_TRUE(placed(cards[1], slot(left, 1)));
    EXPECT_TRUE(placed(cards[2], slot(left, 2)));
    xdotool({QStringLiteral("click"), QStringLiteral("1")});
    const ProcessResult under =
        run(QStringLiteral("xdotool"), {QStringLiteral("getmouselocation")});
    for (const auto& card : {cards[1], cards[2]})
        EXPECT_FALSE(under.out.contains("window:" + QByteArray::number(card->panel->winId())));

    // Once the pointer is away the stack closes up, and both cards and their files are there.
    pointerTo(left->geometry().center());
    ASSERT_TRUE(waitUntil([&] { return placed(cards[1], slot(left, 0)); }));
    EXPECT_TRUE(waitUntil([&] { return placed(cards[2], slot(left, 1)); }));
    EXPECT_EQ(manager.items().size(), 2u);
    EXPECT_TRUE(QFileInfo::exists(*cards[1]->savedURL));
    EXPECT_TRUE(QFileInfo::exists(*cards[2]->savedURL));
}

TEST_F(FloatingShotManagerTest, ANewCardThatWouldNotFitClosesTheOldestAndAllStayOnScreen) {
    preferences.setOverlayDismissSeconds(0); // nothing closes by itself
    const int fit = CardStack::capacity(left, FloatingShotView::panelSize.height());
    EXPECT_EQ(fit, 5) << "1080 points hold five cards of 176 with their gaps";
    std::vector<FloatingShotManager::Item> cards;
    for (int i = 0; i < 7; ++i)
        cards.push_back(manager.present(makeScreenshotLikeImage(640, 400)));
    EXPECT_EQ(manager.items().size(), std::size_t(fit));
    EXPECT_EQ(manager.items().front(), cards[2]);
    for (int i = 0; i < 2; ++i) {
        QPointer<FloatingShotView> panel = cards[std::size_t(i)]->panel;
        EXPECT_TRUE(waitUntil([&] { return !panel; })) << "card " << i;
        // Closed as the countdown closes cards: the capture stays saved.
        ASSERT_TRUE(waitSaved(cards[std::size_t(i)]));
        EXPECT_TRUE(QFileInfo::exists(*cards[std::size_t(i)]->savedURL));
    }
    for (int i = 2; i < 7; ++i) {
        const auto& card = cards[std::size_t(i)];
        ASSERT_TRUE(waitUntil([&] { return placed(card, slot(left, i - 2)); })) << "card " << i;
        EXPECT_TRUE(left->availableGeometry().contains(card->panel->geometry())) << "card " << i;
    }
}

TEST_F(FloatingShotManagerTest, UnpinnedCardsFollowThePointerToAnotherMonitorPinnedOnesStay) {
    const auto pinned = manager.present(makeScreenshotLikeImage(800, 600));
    const auto roaming = manager.present(makeScreenshotLikeImage(600, 800));
    ASSERT_TRUE(waitUntil([&] { return placed(roaming, slot(left, 1)); }));
    EXPECT_TRUE(manager.isMonitoring());

    click(button(pinned, "pinButton"));
    ASSERT_TRUE(waitUntil([&] { return pinned->pinnedScreen == left; }));
    auto* pin = qobject_cast<HoverIconButton*>(button(pinned, "pinButton"));
    EXPECT_EQ(pin->iconName(), QStringLiteral("window-pin"));
    EXPECT_EQ(pin->toolTip(), QStringLiteral("Unpin — follow the cursor across monitors"));

    pointerTo(right->geometry().center());
    ASSERT_TRUE(waitUntil([&] { return placed(roaming, slot(right, 0)); }));
    EXPECT_EQ(manager.currentScreen(), right);
    EXPECT_EQ(roaming->panel->screen(), right);
    EXPECT_TRUE(nativelyAt(roaming->panel, right, slot(right, 0)))
        << rectText(nativeGeometry(roaming->panel));
    EXPECT_TRUE(placed(pinned, slot(left, 0)));
    EXPECT_TRUE(nativelyAt(pinned->panel, left, slot(left, 0)))
        << rectText(nativeGeometry(pinned->panel));
    // qm1 is 1024 pixels high at y 0: its bottom-left slot differs from qm0's.
    const int high = int(1024 / right->devicePixelRatio());
    EXPECT_EQ(slot(right, 0), QPoint(1920 + 20, high - 20 - 176));

    // Unpinned, the card joins the others under the pointer, below the newer one.
    manager.togglePin(pinned);
    EXPECT_EQ(pin->iconName(), QStringLiteral("view-pin"));
    EXPECT_TRUE(waitUntil([&] { return placed(pinned, slot(right, 0)); }));
    EXPECT_TRUE(waitUntil([&] { return placed(roaming, slot(right, 1)); }));
    EXPECT_TRUE(nativelyAt(pinned->panel, right, slot(right, 0)))
        << rectText(nativeGeometry(pinned->panel));

    // The pointer watch ends with the last card, and the next card appears under the pointer.
    manager.dismiss(pinned);
    EXPECT_TRUE(manager.isMonitoring());
    manager.dismiss(roaming);
    EXPECT_FALSE(manager.isMonitoring());
    pointerTo(left->geometry().center());
    const auto next = manager.present(makeScreenshotLikeImage(300, 200));
    EXPECT_TRUE(waitUntil([&] { return placed(next, slot(left, 0)); }));
    EXPECT_EQ(next->displayImage.size(), QSize(300, 200)) << "never scaled up";

    // A capture taken just as the pointer crosses over shows where the cards were, then joins
    // them on the new monitor at that monitor's scale.
    xdotool({QStringLiteral("mousemove"), QString::number(toDevice(right->geometry().center()).x()),
             QString::number(toDevice(right->geometry().center()).y())});
    const auto crossing = manager.present(makeScreenshotLikeImage(1000, 700));
    EXPECT_TRUE(waitUntil([&] { return placed(crossing, slot(right, 1)); }));
    EXPECT_TRUE(waitUntil([&] { return placed(next, slot(right, 0)); }));
    EXPECT_TRUE(nativelyAt(crossing->panel, right, slot(right, 1)))
        << rectText(nativeGeometry(crossing->panel));
    EXPECT_EQ(crossing->panel->screen(), right);
    // Its whole face takes clicks there, the buttons at the bottom included.
    click(button(crossing, "copyButton"));
    EXPECT_TRUE(waitUntil([&] { return toastText() == QStringLiteral("Copied"); }));
}

// The countdown is driven by hand: the test looks at the timer and fires it itself.
void runOut(QTimer& timer) {
    ASSERT_TRUE(timer.isActive());
    QMetaObject::invokeMethod(&timer, "timeout");
}

TEST_F(FloatingShotManagerTest, AutoDismissPausesWhileHoveredAndStartsOverOnLeaving) {
    preferences.setOverlayDismissSeconds(0);
    const auto lasting = manager.present(makeScreenshotLikeImage(400, 300));
    EXPECT_FALSE(lasting->dismissTask.isActive()) << "0 keeps the card until closed";
    manager.dismiss(lasting);

    preferences.setOverlayDismissSeconds(3);
    const auto card = manager.present(makeScreenshotLikeImage(400, 300));
    EXPECT_TRUE(card->dismissTask.isActive());
    EXPECT_EQ(card->dismissTask.interval(), 3000);
    // The pointer comes to rest on the card: the countdown stops...
    pointerTo(card->panel->geometry().center());
    ASSERT_TRUE(waitUntil([&] { return card->panel->hovering(); }));
    EXPECT_FALSE(card->dismissTask.isActive());

    // ...and leaving starts the full time over, not the rest of it.
    pointerTo(left->geometry().center());
    ASSERT_TRUE(waitUntil([&] { return !card->panel->hovering(); }));
    EXPECT_TRUE(card->dismissTask.isActive());
    EXPECT_GT(card->dismissTask.remainingTime(), 2500);
    EXPECT_EQ(manager.items().size(), 1u);

    QPointer<FloatingShotView> panel = card->panel;
    runOut(card->dismissTask);
    ASSERT_TRUE(waitUntil([&] { return !panel; }));
    EXPECT_TRUE(manager.items().empty());
    EXPECT_FALSE(manager.isMonitoring());
    // Dismissed captures stay saved.
    ASSERT_TRUE(waitSaved(card));
    EXPECT_TRUE(QFileInfo::exists(*card->savedURL));
}

TEST_F(FloatingShotManagerTest, FileIsWrittenBeforeItIsReportedAndEditsGoBesideIt) {
    const QImage image = makeScreenshotLikeImage(1600, 900);
    QImage onDisk;
    manager.onSaved = [&](const QString& path) {
        saved << path;
        onDisk = QImage(path);
    };
    QImage edited = image.copy();
    edited.fill(Qt::magenta);
    QImage handedToEditor;
    std::function<void(const QImage&)> finishEditing;
    manager.onAnnotate = [&](const QImage& full, std::function<void(const QImage&)> completion) {
        handedToEditor = full;
        finishEditing = std::move(completion);
    };

    const auto card = manager.present(image);
    ASSERT_TRUE(waitSaved(card));
    ASSERT_EQ(saved, QStringList{*card->savedURL});
    EXPECT_EQ(onDisk.convertToFormat(image.format()), image);
    const QFileInfo file(*card->savedURL);
    EXPECT_EQ(file.absolutePath(), preferences.outputDirectory());
    EXPECT_TRUE(file.fileName().startsWith(QStringLiteral("Quillmark ")));
    EXPECT_EQ(toastText(), QStringLiteral("Saved “%1”").arg(file.fileName()));

    // Clicking the thumbnail opens the editor; the edited image goes to a new file beside the
    // capture, numbered as that name is taken already, and the capture stays as it was.
    const QString stem = file.absolutePath() + u'/' + file.completeBaseName();
    QFile taken(stem + QStringLiteral(" annotated.png"));
    ASSERT_TRUE(taken.open(QIODevice::WriteOnly));
    taken.close();
    click(card->panel->findChild<QWidget*>(QStringLiteral("thumbnail")));
    ASSERT_TRUE(waitUntil([&] { return bool(finishEditing); }));
    EXPECT_EQ(handedToEditor, image);
    finishEditing(edited);
    EXPECT_EQ(card->displayImage.pixelColor(10, 10), QColor(Qt::magenta));
    ASSERT_TRUE(waitWritten(card));
    EXPECT_EQ(*card->savedURL, stem + QStringLiteral(" annotated 2.png"));
    EXPECT_EQ(QImage(*card->savedURL).pixelColor(10, 10), QColor(Qt::magenta));
    EXPECT_EQ(QImage(file.filePath()).convertToFormat(image.format()), image);
    EXPECT_EQ(QFileInfo(taken.fileName()).size(), 0) << "another file was written over";
    EXPECT_EQ(toastText(), QStringLiteral("Saved “%1”").arg(QFileInfo(*card->savedURL).fileName()));
    EXPECT_EQ(saved, QStringList({file.filePath(), *card->savedURL}));

    // A second edit goes over the card's own annotated copy, not into a third file.
    QImage again = image.copy();
    again.fill(Qt::cyan);
    manager.update(card, again);
    ASSERT_TRUE(waitWritten(card));
    EXPECT_EQ(*card->savedURL, stem + QStringLiteral(" annotated 2.png"));
    EXPECT_EQ(QImage(*card->savedURL).pixelColor(10, 10), QColor(Qt::cyan));
    EXPECT_EQ(outputFiles().size(), 3);

    // An edit that finishes while the first save still runs ends up beside that file too, and
    // a capture in the same second as the first gets its own file.
    saved.clear();
    const auto quick = manager.present(image);
    manager.update(quick, edited);
    ASSERT_TRUE(waitSaved(quick));
    ASSERT_TRUE(waitWritten(quick));
    ASSERT_EQ(saved.size(), 2);
    EXPECT_EQ(QImage(saved[0]).convertToFormat(image.format()), image);
    EXPECT_TRUE(quick->savedURL->endsWith(QStringLiteral(" annotated.png")));
    EXPECT_EQ(QImage(*quick->savedURL).pixelColor(10, 10), QColor(Qt::magenta));
    EXPECT_EQ(outputFiles().size(), 5);

    // Copy hands out the very bytes of the file.
    click(button(quick, "copyButton"));
    ASSERT_TRUE(waitUntil([&] { return pngFromClipboard().pixelColor(10, 10) == Qt::magenta; }));
    QFile written(*quick->savedURL);
    ASSERT_TRUE(written.open(QIODevice::ReadOnly));
    EXPECT_EQ(quick->png, written.readAll());
}

TEST_F(FloatingShotManagerTest, DeleteMovesTheFileToTheTrashCloseKeepsIt) {
    const auto card = manager.present(makeScreenshotLikeImage(640, 400));
    ASSERT_TRUE(waitSaved(card));
    const QString path = *card->savedURL;
    QPointer<FloatingShotView> panel = card->panel;
    auto* trash = qobject_cast<HoverIconButton*>(button(card, "deleteButton"));
    EXPECT_TRUE(trash->isDestructive());
    EXPECT_EQ(trash->toolTip(), QStringLiteral("Delete (moves the file to the Trash)"));
    click(trash);
    ASSERT_TRUE(waitUntil([&] { return !panel; }));
    EXPECT_FALSE(QFileInfo::exists(path));
    EXPECT_EQ(toastText(), QStringLiteral("Moved to Trash"));
    EXPECT_EQ(libraryChanges, 1);

    // A card deleted while its file is still being written: the file ends in the Trash too,
    // even once nothing else holds the card.
    {
        const auto early = manager.present(makeScreenshotLikeImage(2000, 1200));
        ASSERT_TRUE(early->saving);
        manager.deleteItem(early);
        EXPECT_TRUE(manager.items().empty());
    }
    const QString prefix = preferences.outputDirectory() + QStringLiteral("/Quillmark ");
    QString list;
    ASSERT_TRUE(waitUntil([&] {
        const ProcessResult listed = run(QStringLiteral("trash-list"), {});
        list = QString::fromUtf8(listed.out);
        return listed.exitCode == 0 && list.count(prefix) == 2;
    })) << list.toStdString();
    EXPECT_TRUE(list.contains(path)) << list.toStdString();
    EXPECT_TRUE(outputFiles().isEmpty());
    EXPECT_TRUE(saved.size() == 1) << "a trashed capture is never reported as saved";
}

TEST_F(FloatingShotManagerTest, ButtonsCopyTheImageAndItsTextWithoutTakingFocus) {
    // The user works in another window.
    QWidget below;
    auto* layout = new QVBoxLayout(&below);
    auto* editor = new QLineEdit(&below);
    layout->addWidget(editor);
    below.setGeometry(left->availableGeometry().adjusted(400, 200, -400, -200));
    below.show();
    below.activateWindow();
    ASSERT_TRUE(waitUntil([&] { return editor->hasFocus(); }));

    std::optional<QString> recognised = QStringLiteral("Invoice 2041");
    manager.onRecognizeText = [&](const QImage&,
                                  std::function<void(std::optional<QString>)> completion) {
        completion(recognised);
    };
    const QImage image = makeScreenshotLikeImage(900, 500);
    const auto card = manager.present(image);
    ASSERT_TRUE(waitUntil([&] { return placed(card, slot(left, 0)); }));

    click(button(card, "copyButton"));
    ASSERT_TRUE(waitUntil([&] { return toastText() == QStringLiteral("Copied"); }));
    EXPECT_EQ(pngFromClipboard().convertToFormat(image.format()), image);

    auto* copyText = qobject_cast<HoverIconButton*>(button(card, "copyTextButton"));
    EXPECT_EQ(copyText->iconName(), QStringLiteral("edit-find"));
    click(copyText);
    ASSERT_TRUE(waitUntil([&] { return card->panel->ocrResult() == true; }));
    EXPECT_EQ(copyText->iconName(), QStringLiteral("object-select"));
    EXPECT_EQ(QGuiApplication::clipboard()->text(), QStringLiteral("Invoice 2041"));
    recognised = QStringLiteral("  \n");
    click(copyText);
    ASSERT_TRUE(waitUntil([&] { return card->panel->ocrResult() == false; }));
    EXPECT_EQ(copyText->iconName(), QStringLiteral("action-unavailable"));
    EXPECT_EQ(QGuiApplication::clipboard()->text(), QStringLiteral("Invoice 2041"));

    QApplication::processEvents();
    EXPECT_TRUE(editor->hasFocus());
    EXPECT_EQ(QGuiApplication::focusWindow(), below.windowHandle());
    EXPECT_FALSE(card->panel->isActiveWindow());
}

TEST_F(FloatingShotManagerTest, TheCardMenuOffersAskClaudeOnlyWhenItIsWired) {
    const QImage image = makeScreenshotLikeImage(900, 500);
    const auto plain = manager.present(image);
    const auto texts = [](QMenu* menu) {
        QStringList out;
        for (QAction* action : menu->actions())
            out << action->text();
        return out;
    };
    std::unique_ptr<QMenu> menu(plain->panel->makeMenu(nullptr));
    EXPECT_TRUE(texts(menu.get()).contains(QStringLiteral("Annotate")));
    EXPECT_FALSE(texts(menu.get()).contains(QStringLiteral("Ask Claude…")));

    QImage asked;
    manager.onAIQuery = [&](const QImage& full) { asked = full; };
    const auto card = manager.present(image);
    menu.reset(card->panel->makeMenu(nullptr));
    const QList<QAction*> actions = menu->actions();
    const auto ask = std::find_if(actions.cbegin(), actions.cend(), [](QAction* a) {
        return a->text() == QStringLiteral("Ask Claude…");
    });
    ASSERT_NE(ask, actions.cend());
    (*ask)->trigger();
    // The capture itself goes, not the card's small picture.
    EXPECT_EQ(asked.convertToFormat(image.format()), image);
}

TEST_F(FloatingShotManagerTest, DraggingTheThumbnailDropsTheSavedFile) {
    DropTarget target;
    target.setGeometry(QRect(left->geometry().center(), QSize(400, 300)));
    target.show();
    ASSERT_TRUE(waitUntil([&] { return target.windowHandle()->isExposed(); }));

    const auto card = manager.present(makeScreenshotLikeImage(800, 500));
    ASSERT_TRUE(waitSaved(card));
    ASSERT_TRUE(waitUntil([&] { return placed(card, slot(left, 0)); }));
    // The countdown stops for the drag and starts over after it.
    preferences.setOverlayDismissSeconds(1);
    std::optional<bool> countingDuringDrag;
    target.onDrop = [&] { countingDuringDrag = card->dismissTask.isActive(); };
    QWidget* thumbnail = card->panel->findChild<QWidget*>(QStringLiteral("thumbnail"));
    const QPoint from = thumbnail->mapToGlobal(thumbnail->rect().center());
    const QPoint to = target.geometry().center();
    // One xdotool run for the whole gesture: the drag runs its own event loop meanwhile.
    QStringList gesture{QStringLiteral("mousemove"), QString::number(from.x()),
                        QString::number(from.y()), QStringLiteral("mousedown"),
                        QStringLiteral("1")};
    for (int step = 1; step <= 10; ++step) {
        const QPoint at = from + (to - from) * step / 10;
        gesture << QStringLiteral("sleep") << QStringLiteral("0.05") << QStringLiteral("mousemove")
                << QString::number(at.x()) << QString::number(at.y());
    }
    gesture << QStringLiteral("mouseup") << QStringLiteral("1");
    QProcess xdotoolRun;
    xdotoolRun.start(QStringLiteral("xdotool"), gesture);
    ASSERT_TRUE(waitUntil([&] { return !target.dropped.isEmpty(); }));
    EXPECT_EQ(target.dropped, QList<QUrl>{QUrl::fromLocalFile(*card->savedURL)});
    EXPECT_EQ(countingDuringDrag, false) << "a card being dragged out does not dismiss itself";
    EXPECT_EQ(manager.items().size(), 1u);
    ASSERT_TRUE(waitUntil([&] { return xdotoolRun.state() == QProcess::NotRunning; }));
    // Once the drag is over, the countdown runs again.
    ASSERT_TRUE(waitUntil([&] { return card->dismissTask.isActive(); }));
    runOut(card->dismissTask);
    EXPECT_TRUE(waitUntil([&] { return manager.items().empty(); }));
}

TEST_F(FloatingShotManagerTest, ANotSavedCardIsSavedElsewhereFromItsToast) {
    QFile blocker(dir.filePath(QStringLiteral("blocker")));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    ASSERT_TRUE(preferences.setOutputDirectory(blocker.fileName() + QStringLiteral("/Quillmark")));
    const QImage image = makeScreenshotLikeImage(500, 300);
    const auto card = manager.present(image);
    ASSERT_TRUE(waitUntil([&] { return !card->saving && toasts.window(); }));
    ToastView* toast = toasts.window();
    ASSERT_EQ(toast->buttonLabel(), QStringLiteral("Save As…"));

    // The desktop's dialog: the user names a file elsewhere (without ".png") and accepts.
    const QString chosen = dir.filePath(QStringLiteral("kept"));
    QTimer answer;
    QObject::connect(&answer, &QTimer::timeout, &answer, [&] {
        if (auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget())) {
            answer.stop();
            dialog->setDirectory(dir.path());
            if (auto* name = dialog->findChild<QLineEdit*>(QStringLiteral("fileNameEdit")))
                name->setText(QStringLiteral("kept"));
            static_cast<QDialog*>(dialog)->accept(); // the file dialog hides it
        }
    });
    answer.start(20);
    QTest::mouseClick(toast, Qt::LeftButton, {}, toast->buttonRect().center().toPoint());
    ASSERT_TRUE(waitUntil([&] { return card->savedURL.has_value(); }));
    EXPECT_EQ(*card->savedURL, chosen + QStringLiteral(".png"));
    EXPECT_EQ(QImage(*card->savedURL).convertToFormat(image.format()), image);
    EXPECT_EQ(card->panel->fileProblem(), QString());
    EXPECT_EQ(toastText(), QStringLiteral("Saved “kept.png”"));
}

TEST_F(FloatingShotManagerTest, ShowInFolderSavesAgainWhenTheFirstSaveFailed) {
    FakeFileManager files;
    QDBusConnection bus = QDBusConnection::sessionBus();
    ASSERT_TRUE(bus.registerObject(QStringLiteral("/org/freedesktop/FileManager1"), &files,
                                   QDBusConnection::ExportAllSlots));
    ASSERT_TRUE(bus.registerService(QStringLiteral("org.freedesktop.FileManager1")));

    // The save folder cannot be made: a file stands where its parent should be.
    QFile blocker(dir.filePath(QStringLiteral("blocker")));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    ASSERT_TRUE(preferences.setOutputDirectory(blocker.fileName() + QStringLiteral("/Quillmark")));
    LogCapture log;
    const auto card = manager.present(makeScreenshotLikeImage(500, 300));
    ASSERT_TRUE(waitUntil([&] { return !card->saving; }));
    EXPECT_FALSE(card->savedURL);
    EXPECT_TRUE(log.contains(QStringLiteral("Quillmark save error: ")));
    const QString reason = toastText();
    EXPECT_TRUE(reason.startsWith(QStringLiteral("Not saved: ")));
    EXPECT_TRUE(reason.endsWith(QStringLiteral("/blocker is a file"))) << reason.toStdString();
    EXPECT_TRUE(saved.isEmpty());
    // The card says so for as long as it shows, and offers no Delete of a file it lacks.
    auto* mark = card->panel->findChild<QLabel*>(QStringLiteral("fileProblem"));
    ASSERT_TRUE(mark);
    EXPECT_EQ(card->panel->fileProblem(), QStringLiteral("Not saved"));
    EXPECT_EQ(mark->toolTip(), reason);
    EXPECT_FALSE(button(card, "deleteButton")->isEnabled());
    // An edit of it is not on disk either.
    manager.update(card, makeScreenshotLikeImage(400, 300));
    EXPECT_EQ(card->panel->fileProblem(), QStringLiteral("Not saved"));

    ASSERT_TRUE(preferences.setOutputDirectory(dir.filePath(QStringLiteral("Elsewhere"))));
    auto* reveal = button(card, "revealButton");
    EXPECT_EQ(reveal->toolTip(), QStringLiteral("Show in Folder"));
    click(reveal);
    ASSERT_TRUE(waitUntil([&] { return !files.shown.isEmpty(); }));
    ASSERT_TRUE(card->savedURL);
    EXPECT_EQ(QFileInfo(*card->savedURL).absolutePath(), preferences.outputDirectory());
    EXPECT_EQ(files.shown, QStringList{QUrl::fromLocalFile(*card->savedURL).toString()});
    EXPECT_EQ(saved, QStringList{*card->savedURL});
    EXPECT_EQ(card->panel->fileProblem(), QString());
    EXPECT_TRUE(button(card, "deleteButton")->isEnabled());

    // A file removed behind the card's back shows too; the card still saves it anew.
    const QString first = *card->savedURL;
    ASSERT_TRUE(QFile::remove(first));
    ASSERT_TRUE(
        waitUntil([&] { return card->panel->fileProblem() == QStringLiteral("File missing"); }));
    EXPECT_FALSE(button(card, "deleteButton")->isEnabled());
    files.shown.clear();
    click(reveal);
    ASSERT_TRUE(waitUntil([&] { return !files.shown.isEmpty(); }));
    EXPECT_TRUE(QFileInfo::exists(*card->savedURL));
    EXPECT_EQ(card->panel->fileProblem(), QString());

    bus.unregisterService(QStringLiteral("org.freedesktop.FileManager1"));
    bus.unregisterObject(QStringLiteral("/org/freedesktop/FileManager1"));
}

// Runs last: it takes a monitor away and puts it back.
TEST_F(FloatingShotManagerTest, CardsPinnedToAMonitorThatGoesAwayMoveToTheRemainingOne) {
    pointerTo(right->geometry().center());
    const auto card = manager.present(makeScreenshotLikeImage(500, 300));
    manager.togglePin(card);
    ASSERT_TRUE(waitUntil([&] { return placed(card, slot(right, 0)); }));
    EXPECT_TRUE(nativelyAt(card->panel, right, slot(right, 0)))
        << rectText(nativeGeometry(card->panel));
    pointerTo(left->geometry().center());

    ASSERT_EQ(run(QStringLiteral("xrandr"), {QStringLiteral("--delmonitor"), QStringLiteral("qm1")})
                  .exitCode,
              0);
    ASSERT_TRUE(waitUntil([&] { return QGuiApplication::screens().size() == 1; }));
    EXPECT_FALSE(card->pinnedScreen);
    EXPECT_TRUE(waitUntil([&] { return placed(card, slot(left, 0)); }))
        << rectText(card->panel->geometry()) << " on "
        << card->panel->screen()->name().toStdString();
    EXPECT_TRUE(nativelyAt(card->panel, left, slot(left, 0)))
        << rectText(nativeGeometry(card->panel));

    ASSERT_EQ(run(QStringLiteral("xrandr"),
                  {QStringLiteral("--setmonitor"), QStringLiteral("qm1"),
                   QStringLiteral("1280/338x1024/270+1920+0"), QStringLiteral("none")})
                  .exitCode,
              0);
    EXPECT_TRUE(waitUntil([&] { return QGuiApplication::screens().size() == 2; }));
}

} // namespace

#include "FloatingShotManagerTest.moc"
