#include "cards/FloatingShotManager.h"

#include "base/ImageExport.h"
#include "base/Log.h"
#include "base/Preferences.h"
#include "cards/FloatingShotView.h"
#include "platform/desktop/Reveal.h"
#include "ui/FloatingWindow.h"
#include "ui/ToastCenter.h"

#include <QClipboard>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImageReader>
#include <QPropertyAnimation>
#include <QSaveFile>
#include <QWindow>
#include <QtConcurrent/QtConcurrentRun>
#include <algorithm>
#include <map>

namespace qm {

namespace {
constexpr int kMoveMillis = 220;

// Replaces the file's contents with the PNG of the image, all at once.
bool writeOver(const QString& path, const QImage& image) {
    const auto bytes = ImageExport::pngData(image);
    if (!bytes)
        return false;
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(*bytes) != bytes->size() || !file.commit()) {
        qCWarning(lcSave).noquote()
            << QStringLiteral("Quillmark save error: ") + file.errorString();
        return false;
    }
    return true;
}

bool moveToTrash(const QString& path) {
    QFile file(path);
    if (file.moveToTrash())
        return true;
    qCWarning(lcSave).noquote() << QStringLiteral("Quillmark trash error: ") + path +
                                       QStringLiteral(": ") + file.errorString();
    return false;
}

void moveWindow(QWidget* window, QPoint to, bool animated) {
    auto* running = window->findChild<QPropertyAnimation*>(QStringLiteral("cardMove"),
                                                           Qt::FindDirectChildrenOnly);
    if (running) {
        if (running->endValue().toPoint() == to)
            return;
        running->stop();
        delete running;
    }
    if (!animated || window->pos() == to) {
        window->move(to);
        return;
    }
    auto* animation = new QPropertyAnimation(window, "pos", window);
    animation->setObjectName(QStringLiteral("cardMove"));
    animation->setDuration(kMoveMillis);
    animation->setEasingCurve(QEasingCurve::OutCubic);
    animation->setStartValue(window->pos());
    animation->setEndValue(to);
    animation->start(QAbstractAnimation::DeleteWhenStopped);
}
} // namespace

FloatingShotManager::FloatingShotManager(Preferences& preferences, ToastCenter& toasts,
                                         QObject* parent)
    : QObject(parent)
    , m_preferences(preferences)
    , m_toasts(toasts) {
    m_pointerMonitor.setInterval(pointerInterval);
    connect(&m_pointerMonitor, &QTimer::timeout, this, &FloatingShotManager::mouseMoved);
    // A monitor that goes away takes its pins with it; its cards move to a remaining one.
    connect(qGuiApp, &QGuiApplication::screenRemoved, this,
            [this] { QTimer::singleShot(0, this, &FloatingShotManager::layout); });
    // Panels and docks that come and go change where the corner is.
    auto watch = [this](QScreen* screen) {
        connect(screen, &QScreen::availableGeometryChanged, this, &FloatingShotManager::layout);
    };
    for (QScreen* screen : QGuiApplication::screens())
        watch(screen);
    connect(qGuiApp, &QGuiApplication::screenAdded, this, watch);
}

FloatingShotManager::~FloatingShotManager() {
    for (const Item& item : m_items) {
        if (item->panel)
            delete item->panel.data();
    }
}

QImage FloatingShotManager::displayThumbnail(const QImage& image) {
    if (image.width() <= thumbnailLimit.width() && image.height() <= thumbnailLimit.height())
        return image;
    return image.scaled(thumbnailLimit, Qt::KeepAspectRatio, Qt::SmoothTransformation);
}

FloatingShotManager::Item FloatingShotManager::present(const QImage& image) {
    auto item = std::make_shared<FloatingShotItem>();
    item->id = QUuid::createUuid();
    item->displayImage = displayThumbnail(image);
    item->fullImage = image;
    item->dismissTask.setSingleShot(true);
    const std::weak_ptr<FloatingShotItem> weak = item;
    connect(&item->dismissTask, &QTimer::timeout, this, [this, weak] {
        if (const Item alive = weak.lock(); alive && contains(alive))
            dismiss(alive);
    });
    item->panel = makeView(item, true);
    m_items.push_back(item);
    if (!m_currentScreen)
        m_currentScreen = screenUnderMouse();

    // Place it before it is first shown, so it never flashes at the origin.
    QScreen* screen = screenOf(*item);
    item->panel->winId();
    item->panel->windowHandle()->setScreen(screen);
    layout();
    item->panel->show();
    item->panel->raise();
    startMonitoring();
    saveInitial(item);
    scheduleAutoDismiss(item);
    return item;
}

FloatingShotView* FloatingShotManager::makeView(const Item& item, bool animateIn) {
    const std::weak_ptr<FloatingShotItem> weak = item;
    // Every action reaches the card only while it is still shown.
    auto bind = [this, weak](void (FloatingShotManager::*action)(const Item&)) {
        return [this, weak, action] {
            if (const Item alive = weak.lock(); alive && contains(alive))
                (this->*action)(alive);
        };
    };
    FloatingShotView::Actions actions;
    actions.onCopy = bind(&FloatingShotManager::copy);
    if (onRecognizeText)
        actions.onCopyText = bind(&FloatingShotManager::copyText);
    actions.onReveal = bind(&FloatingShotManager::reveal);
    actions.onAnnotate = bind(&FloatingShotManager::annotate);
    actions.onTogglePin = bind(&FloatingShotManager::togglePin);
    actions.onClose = bind(&FloatingShotManager::dismiss);
    actions.onDelete = bind(&FloatingShotManager::deleteItem);
    actions.onHoverChanged = [this, weak](bool hovering) {
        const Item alive = weak.lock();
        if (!alive || !contains(alive))
            return;
        if (hovering)
            alive->dismissTask.stop();
        else
            scheduleAutoDismiss(alive);
    };
    // The saved capture itself is dragged out when there is one; a copy only before that.
    actions.fileURL = [weak]() -> std::optional<QString> {
        const Item alive = weak.lock();
        return alive ? alive->savedURL : std::nullopt;
    };
    actions.fullImage = [this, weak] {
        const Item alive = weak.lock();
        return alive ? fullResolution(alive) : QImage();
    };
    auto* view = new FloatingShotView(item->displayImage, animateIn, std::move(actions));
    view->setPinned(bool(item->pinnedScreen));
    return view;
}

bool FloatingShotManager::contains(const Item& item) const {
    return std::find(m_items.begin(), m_items.end(), item) != m_items.end();
}

QScreen* FloatingShotManager::screenUnderMouse() const {
    return screenUnderPointer();
}

QScreen* FloatingShotManager::screenOf(const FloatingShotItem& item) const {
    if (item.pinnedScreen)
        return item.pinnedScreen;
    if (m_currentScreen)
        return m_currentScreen;
    return QGuiApplication::primaryScreen();
}

void FloatingShotManager::layout() {
    // Group by screen, keeping the cards' order: the oldest sits lowest.
    std::map<QString, std::pair<QScreen*, std::vector<Item>>> groups;
    for (const Item& item : m_items) {
        QScreen* screen = screenOf(*item);
        if (!screen || !item->panel)
            continue;
        auto& group = groups[screen->name()];
        group.first = screen;
        group.second.push_back(item);
    }
    for (const auto& [name, group] : groups) {
        const QRect visible = group.first->availableGeometry();
        const int x = visible.x() + margin;
        int bottom = visible.y() + visible.height() - margin;
        for (const Item& item : group.second) {
            FloatingShotView* panel = item->panel;
            const QPoint to(x, bottom - panel->height());
            // Jumping to another monitor is immediate; restacking on one slides.
            const bool sameScreen = panel->screen() == group.first;
            moveWindow(panel, to, panel->isVisible() && sameScreen);
            bottom = to.y() - spacing;
        }
    }
}

void FloatingShotManager::dismiss(const Item& item) {
    const auto found = std::find(m_items.begin(), m_items.end(), item);
    if (found == m_items.end())
        return;
    m_items.erase(found);
    item->dismissTask.stop();
    if (item->panel)
        item->panel->fadeOut();
    layout();
    if (m_items.empty()) {
        stopMonitoring();
        // The next capture appears under the pointer, wherever it is by then.
        m_currentScreen.clear();
    }
}

void FloatingShotManager::scheduleAutoDismiss(const Item& item) {
    item->dismissTask.stop();
    const int seconds = m_preferences.overlayDismissSeconds();
    if (seconds < 1)
        return;
    item->dismissTask.start(std::chrono::seconds(seconds));
}

void FloatingShotManager::togglePin(const Item& item) {
    if (item->pinnedScreen)
        item->pinnedScreen.clear();
    else
        item->pinnedScreen = m_currentScreen ? m_currentScreen.data() : screenUnderMouse();
    refresh(item);
    layout();
}

void FloatingShotManager::refresh(const Item& item) {
    if (!item->panel)
        return;
    item->panel->setImage(item->displayImage);
    item->panel->setPinned(bool(item->pinnedScreen));
}

void FloatingShotManager::copy(const Item& item) {
    ImageExport::copyToPasteboard(fullResolution(item));
    m_toasts.present(QStringLiteral("Copied"), QStringLiteral("doc.on.doc"));
}

void FloatingShotManager::copyText(const Item& item) {
    if (!onRecognizeText)
        return;
    const std::weak_ptr<FloatingShotItem> weak = item;
    QPointer<FloatingShotManager> self(this);
    onRecognizeText(fullResolution(item), [self, weak](std::optional<QString> text) {
        if (!self)
            return;
        const bool found = text && !text->trimmed().isEmpty();
        if (found) {
            QGuiApplication::clipboard()->setText(*text, QClipboard::Clipboard);
            self->m_toasts.present(QStringLiteral("Copied"), QStringLiteral("doc.on.doc"));
        }
        if (const Item alive = weak.lock(); alive && alive->panel)
            alive->panel->setOcrResult(found);
    });
}

void FloatingShotManager::reveal(const Item& item) {
    if (const auto path = ensureSaved(item))
        revealInFolder(*path);
}

void FloatingShotManager::deleteItem(const Item& item) {
    if (item->initialSave) {
        // The file is still being written; it goes to the Trash once it exists.
        item->trashed = true;
    } else if (item->savedURL && QFileInfo(*item->savedURL).isFile()) {
        if (!moveToTrash(*item->savedURL))
            return;
        item->trashed = true;
        if (onLibraryChanged)
            onLibraryChanged();
    }
    dismiss(item);
    m_toasts.present(QStringLiteral("Moved to Trash"), QStringLiteral("trash"));
}

void FloatingShotManager::annotate(const Item& item) {
    if (!onAnnotate)
        return;
    const std::weak_ptr<FloatingShotItem> weak = item;
    QPointer<FloatingShotManager> self(this);
    onAnnotate(fullResolution(item), [self, weak](const QImage& edited) {
        if (const Item alive = weak.lock(); self && alive)
            self->update(alive, edited);
    });
}

void FloatingShotManager::askAI(const Item& item) {
    if (onAIQuery)
        onAIQuery(fullResolution(item));
}

void FloatingShotManager::update(const Item& item, const QImage& image) {
    if (image.isNull() || item->trashed)
        return;
    item->fullImage = image;
    item->displayImage = displayThumbnail(image);
    ++item->imageRevision;
    // While the first save runs, it writes this image over its file when it is done.
    if (item->savedURL && !item->initialSave && writeOver(*item->savedURL, image) &&
        onLibraryChanged)
        onLibraryChanged();
    if (item->panel && contains(item)) {
        refresh(item);
        item->panel->setFixedSize(FloatingShotView::panelSize);
        layout();
    }
    m_toasts.present(QStringLiteral("Saved"), QStringLiteral("square.and.arrow.down"));
}

void FloatingShotManager::saveInitial(const Item& item) {
    auto* watcher = new QFutureWatcher<std::optional<QString>>(this);
    item->initialSave = watcher;
    item->initialSaveRevision = item->imageRevision;
    const std::weak_ptr<FloatingShotItem> weak = item;
    connect(watcher, &QFutureWatcher<std::optional<QString>>::finished, this,
            [this, weak, watcher] {
                watcher->deleteLater();
                const Item alive = weak.lock();
                // ensureSaved may have taken this result already.
                if (alive && alive->initialSave == watcher)
                    finishInitialSave(alive, watcher->result());
            });
    watcher->setFuture(
        QtConcurrent::run([image = item->fullImage, folder = m_preferences.outputDirectory()] {
            return ImageExport::savePNG(image, ImageExport::screenshotPrefix, folder);
        }));
}

void FloatingShotManager::finishInitialSave(const Item& item, std::optional<QString> path) {
    item->initialSave.clear();
    if (!path)
        return; // logged by the writer; ensureSaved tries again when the file is needed
    if (item->trashed) {
        moveToTrash(*path);
        return;
    }
    item->savedURL = *path;
    if (item->imageRevision != item->initialSaveRevision)
        writeOver(*path, item->fullImage);
    if (onSaved)
        onSaved(*path);
    const QString folder = QFileInfo(QFileInfo(*path).absolutePath()).fileName();
    m_toasts.present(QStringLiteral("Saved to ") + folder, QStringLiteral("square.and.arrow.down"));
}

std::optional<QString> FloatingShotManager::ensureSaved(const Item& item) {
    if (auto* watcher = item->initialSave.data()) {
        watcher->waitForFinished();
        finishInitialSave(item, watcher->result());
    }
    if (item->savedURL && QFileInfo(*item->savedURL).isFile())
        return item->savedURL;
    if (item->trashed)
        return std::nullopt;
    const auto path = ImageExport::savePNG(fullResolution(item), ImageExport::screenshotPrefix,
                                           m_preferences.outputDirectory());
    if (!path)
        return std::nullopt;
    item->savedURL = *path;
    if (onSaved)
        onSaved(*path);
    return path;
}

QImage FloatingShotManager::fullResolution(const Item& item) const {
    if (!item->fullImage.isNull())
        return item->fullImage;
    if (item->savedURL) {
        QImageReader reader(*item->savedURL);
        if (QImage image = reader.read(); !image.isNull())
            return image;
    }
    return item->displayImage;
}

void FloatingShotManager::startMonitoring() {
    if (!m_pointerMonitor.isActive())
        m_pointerMonitor.start();
}

void FloatingShotManager::stopMonitoring() {
    m_pointerMonitor.stop();
}

void FloatingShotManager::mouseMoved() {
    if (m_items.empty())
        return;
    QScreen* screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen || screen == m_currentScreen)
        return;
    m_currentScreen = screen;
    layout();
}

} // namespace qm
