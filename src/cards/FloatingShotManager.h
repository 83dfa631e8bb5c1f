#pragma once

#include <QFutureWatcher>
#include <QImage>
#include <QObject>
#include <QPointer>
#include <QScreen>
#include <QString>
#include <QTimer>
#include <QUuid>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace qm {

class FloatingShotView;
class Preferences;
class ToastCenter;

// One capture card.
struct FloatingShotItem {
    QUuid id;
    // What the card shows: at most 480 × 320 pixels, sharp on 2× screens.
    QImage displayImage;
    QImage fullImage;
    QPointer<FloatingShotView> panel;
    std::optional<QString> savedURL;
    // Pinned cards stay on this screen; the others follow the pointer.
    QPointer<QScreen> pinnedScreen;
    // The auto-dismiss countdown; inactive while the pointer is over the card.
    QTimer dismissTask;

    // Bumped whenever the image is replaced, so a first save that was encoding the older
    // image knows to write the newer one over it.
    int imageRevision = 0;
    // The first save, while it runs.
    QPointer<QFutureWatcher<std::optional<QString>>> initialSave;
    int initialSaveRevision = 0;
    // Deleted by the user: a first save still running ends in the Trash.
    bool trashed = false;
};

// The quick access overlay: every still capture becomes a floating card in the bottom-left
// corner of the screen under the pointer, saved at once, from which it can be copied,
// OCR-copied, shown in the folder, annotated, pinned, dragged out, closed or trashed. Cards
// stack upwards per screen and follow the pointer to another monitor unless pinned; they
// dismiss themselves after the user's chosen time unless the pointer rests on them, and the
// file always stays. Main thread only; the first PNG write of a card runs in the background.
class FloatingShotManager final : public QObject {
    Q_OBJECT
public:
    using Item = std::shared_ptr<FloatingShotItem>;
    // Opens the editor on the image; the completion takes the edited image.
    using AnnotateCallback =
        std::function<void(const QImage& image, std::function<void(const QImage&)> completion)>;
    // Recognises the text of an image; the completion takes the text, or nothing.
    using RecognizeTextCallback = std::function<void(
        const QImage& image, std::function<void(std::optional<QString>)> completion)>;

    static constexpr int margin = 20;  // from the visible area's edges
    static constexpr int spacing = 14; // between stacked cards
    static constexpr QSize thumbnailLimit{480, 320};
    // How often the pointer is looked at to follow it to another monitor.
    static constexpr std::chrono::milliseconds pointerInterval{100};

    FloatingShotManager(Preferences& preferences, ToastCenter& toasts, QObject* parent = nullptr);
    ~FloatingShotManager() override;

    AnnotateCallback onAnnotate;
    std::function<void(const QString& path)> onSaved;
    std::function<void(const QImage& image)> onAIQuery;
    std::function<void()> onLibraryChanged;
    // Set before the first card: without it, cards show the copy-text button disabled.
    RecognizeTextCallback onRecognizeText;

    // Shows a new card for a capture and starts saving it.
    Item present(const QImage& image);

    const std::vector<Item>& items() const { return m_items; }
    QScreen* currentScreen() const { return m_currentScreen; }
    bool isMonitoring() const { return m_pointerMonitor.isActive(); }

    void layout();
    void dismiss(const Item& item);
    void scheduleAutoDismiss(const Item& item);
    void togglePin(const Item& item);
    void copy(const Item& item);
    void copyText(const Item& item);
    void reveal(const Item& item);
    // Moves the file to the Trash and removes the card; a failed move keeps both.
    void deleteItem(const Item& item);
    void annotate(const Item& item);
    void askAI(const Item& item);
    void refresh(const Item& item);
    // Takes an edited image back: new thumbnail, the file rewritten.
    void update(const Item& item, const QImage& image);

    // The card's file, saving it now when it has none (waits for a first save still running).
    std::optional<QString> ensureSaved(const Item& item);
    QImage fullResolution(const Item& item) const;

    static QImage displayThumbnail(const QImage& image);

private:
    void saveInitial(const Item& item);
    void finishInitialSave(const Item& item, std::optional<QString> path);
    void startMonitoring();
    void stopMonitoring();
    void mouseMoved();
    QScreen* screenUnderMouse() const;
    QScreen* screenOf(const FloatingShotItem& item) const;
    FloatingShotView* makeView(const Item& item, bool animateIn);
    bool contains(const Item& item) const;

    Preferences& m_preferences;
    ToastCenter& m_toasts;
    std::vector<Item> m_items;
    QPointer<QScreen> m_currentScreen;
    QTimer m_pointerMonitor;
};

} // namespace qm
