#include "cards/FloatingShotManager.h"

#include "base/Preferences.h"
#include "cards/FloatingShotView.h"

#include <QGuiApplication>
#include <QWindow>
#include <algorithm>
#include <climits>

namespace qm {

FloatingShotManager::FloatingShotManager(Preferences& preferences, ToastCenter& toasts,
                                         QObject* parent)
    : QObject(parent)
    , m_preferences(preferences)
    , m_stack(
          m_items, [this](const FloatingShotItem& item) { return screenOf(item); },
          [this](const std::vector<Item>& extra) {
              // Closed as the countdown closes them: the files stay.
              for (const Item& item : extra)
                  retire(item);
          })
    , m_follower([this] { m_stack.layout(); })
    , m_actions(preferences, toasts,
                {.isShown = [this](const Item& item) { return contains(item); },
                 .dismiss = [this](const Item& item) { dismiss(item); },
                 .imageChanged =
                     [this](const Item& item) {
                         refresh(item);
                         if (item->panel)
                             item->panel->setFixedSize(FloatingShotView::panelSize);
                         m_stack.layout();
                     },
                 .fileChanged = [this](const Item& item) { refresh(item); },
                 .saved =
                     [this](const QString& path) {
                         if (onSaved)
                             onSaved(path);
                     },
                 .libraryChanged =
                     [this] {
                         if (onLibraryChanged)
                             onLibraryChanged();
                     },
                 .annotate =
                     [this](const QImage& image, std::function<void(const QImage&)> done) {
                         if (onAnnotate)
                             onAnnotate(image, std::move(done));
                     },
                 .recognizeText =
                     [this](const QImage& image, std::function<void(std::optional<QString>)> done) {
                         if (onRecognizeText)
                             onRecognizeText(image, std::move(done));
                     },
                 .askAI =
                     [this](const QImage& image) {
                         if (onAIQuery)
                             onAIQuery(image);
                     }}) {
    // A file that goes from disk (deleted or moved in the file manager) shows on its card.
    connect(&m_files, &QFileSystemWatcher::fileChanged, this, [this](const QString& path) {
        for (const Item& item : m_items)
            if (item->savedURL == path)
                m_actions.checkFile(item);
    });
}

FloatingShotManager::~FloatingShotManager() {
    for (const Item& item : m_items) {
        if (item->panel)
            delete item->panel.data();
    }
}

FloatingShotManager::Item
FloatingShotManager::present(const QImage& image, std::function<void(const QByteArray&)> onEncoded,
                             std::function<void(const Result<QString>&)> onFirstWrite) {
    auto item = std::make_shared<FloatingShotItem>();
    item->id = QUuid::createUuid();
    item->fullImage = image;
    item->onFirstWrite = std::move(onFirstWrite);
    // The write starts first: the file is what must not wait for the window.
    m_actions.saveFirst(item, std::move(onEncoded));
    item->displayImage = cardThumbnail(image);
    item->dismissTask.setSingleShot(true);
    const std::weak_ptr<FloatingShotItem> weak = item;
    connect(&item->dismissTask, &QTimer::timeout, this, [this, weak] {
        if (const Item alive = weak.lock(); alive && contains(alive))
            dismiss(alive);
    });
    item->panel = makeView(item, true);
    m_items.push_back(item);
    m_follower.settle();

    // Place it before it is first shown, so it never flashes at the origin. A stack held for
    // the pointer makes room now: the new card must appear in its place.
    QScreen* screen = screenOf(*item);
    item->panel->winId();
    item->panel->windowHandle()->setScreen(screen);
    m_stack.release();
    m_stack.layout();
    item->panel->show();
    item->panel->raise();
    m_follower.start();
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
    if (onAIQuery)
        actions.onAskAI = bind(&FloatingShotManager::askAI);
    actions.onHoverChanged = [this, weak](bool hovering) {
        const Item alive = weak.lock();
        if (!alive || !contains(alive))
            return;
        if (hovering) {
            alive->dismissTask.stop();
            // The pointer comes to act: the card says now if its file went away.
            m_actions.checkFile(alive);
        } else {
            scheduleAutoDismiss(alive);
        }
    };
    // The saved capture itself is dragged out when there is one; a copy only before that.
    actions.fileURL = [weak]() -> std::optional<QString> {
        const Item alive = weak.lock();
        return alive && CardActions::hasFile(*alive) ? alive->savedURL : std::nullopt;
    };
    actions.fullImage = [weak] {
        const Item alive = weak.lock();
        return alive ? CardActions::fullResolution(*alive) : QImage();
    };
    auto* view = new FloatingShotView(item->displayImage, animateIn, std::move(actions));
    view->setPinned(bool(item->pinnedScreen));
    return view;
}

bool FloatingShotManager::contains(const Item& item) const {
    return std::find(m_items.begin(), m_items.end(), item) != m_items.end();
}

QScreen* FloatingShotManager::screenOf(const FloatingShotItem& item) const {
    if (item.pinnedScreen)
        return item.pinnedScreen;
    if (QScreen* current = m_follower.currentScreen())
        return current;
    return QGuiApplication::primaryScreen();
}

bool FloatingShotManager::retire(const Item& item) {
    const auto found = std::find(m_items.begin(), m_items.end(), item);
    if (found == m_items.end())
        return false;
    m_items.erase(found);
    item->dismissTask.stop();
    if (item->panel)
        item->panel->fadeOut();
    return true;
}

void FloatingShotManager::dismiss(const Item& item) {
    // Where the stack stands with the card still in it: a pointer there has just clicked it.
    const QRect stack = m_stack.stackArea(screenOf(*item));
    if (!retire(item))
        return;
    if (item->savedURL)
        m_files.removePath(*item->savedURL);
    m_stack.holdWhilePointerIn(stack);
    m_stack.layout();
    // The next capture appears under the pointer, wherever it is by then.
    if (m_items.empty())
        m_follower.stop();
}

void FloatingShotManager::scheduleAutoDismiss(const Item& item) {
    item->dismissTask.stop();
    const std::chrono::milliseconds delay = m_preferences.overlayDismissDelay();
    if (delay < std::chrono::seconds(1))
        return;
    // QTimer counts in 32-bit milliseconds; a longer delay waits its longest (24.8 days).
    item->dismissTask.start(std::min(delay, std::chrono::milliseconds(INT_MAX)));
}

void FloatingShotManager::togglePin(const Item& item) {
    if (item->pinnedScreen) {
        item->pinnedScreen.clear();
    } else {
        m_follower.settle();
        item->pinnedScreen = m_follower.currentScreen();
    }
    refresh(item);
    m_stack.layout();
}

void FloatingShotManager::refresh(const Item& item) {
    if (item->savedURL && !item->fileMissing && contains(item) &&
        !m_files.files().contains(*item->savedURL))
        m_files.addPath(*item->savedURL);
    if (!item->panel)
        return;
    item->panel->setImage(item->displayImage);
    item->panel->setPinned(bool(item->pinnedScreen));
    if (const auto problem = CardActions::fileProblem(*item))
        item->panel->setFileProblem(problem->label, problem->reason);
    else
        item->panel->setFileProblem({}, {});
}

} // namespace qm
