#pragma once

#include "cards/CardActions.h"
#include "cards/CardStack.h"
#include "cards/FloatingShotItem.h"
#include "cards/PointerFollower.h"

#include <QFileSystemWatcher>
#include <QImage>
#include <QObject>
#include <QString>
#include <functional>
#include <optional>
#include <vector>

namespace qm {

class FloatingShotView;
class Preferences;
class ToastCenter;

// The quick access overlay: every still capture becomes a floating card in the bottom-left
// corner of the screen under the pointer, saved at once, from which it can be copied,
// OCR-copied, shown in the folder, annotated, pinned, dragged out, closed or trashed. Cards
// stack upwards per screen (CardStack) and follow the pointer to another monitor unless pinned
// (PointerFollower); they dismiss themselves after the user's chosen time unless the pointer
// rests on them, and the file always stays (CardActions). Main thread only.
class FloatingShotManager final : public QObject {
    Q_OBJECT
public:
    using Item = FloatingShotItemPtr;
    // Opens the editor on the image; the completion takes the edited image.
    using AnnotateCallback =
        std::function<void(const QImage& image, std::function<void(const QImage&)> completion)>;
    // Recognises the text of an image; the completion takes the text, or nothing.
    using RecognizeTextCallback = std::function<void(
        const QImage& image, std::function<void(std::optional<QString>)> completion)>;

    static constexpr int margin = CardStack::margin;
    static constexpr int spacing = CardStack::spacing;
    static constexpr QSize thumbnailLimit = cardThumbnailLimit;
    static constexpr std::chrono::milliseconds pointerInterval = PointerFollower::interval;

    FloatingShotManager(Preferences& preferences, ToastCenter& toasts, QObject* parent = nullptr);
    ~FloatingShotManager() override;

    AnnotateCallback onAnnotate;
    std::function<void(const QString& path)> onSaved;
    std::function<void(const QImage& image)> onAIQuery;
    std::function<void()> onLibraryChanged;
    // Set before the first card: without it, cards show the copy-text button disabled.
    RecognizeTextCallback onRecognizeText;

    // Shows a new card for a capture and starts saving it. The capture is encoded once, in the
    // background: onEncoded gets the PNG bytes (for the clipboard) before the file is written;
    // onFirstWrite hears how that first write ended.
    Item present(const QImage& image, std::function<void(const QByteArray& png)> onEncoded = {},
                 std::function<void(const Result<QString>&)> onFirstWrite = {});

    const std::vector<Item>& items() const { return m_items; }
    QScreen* currentScreen() const { return m_follower.currentScreen(); }
    bool isMonitoring() const { return m_follower.isActive(); }

    void layout() { m_stack.layout(); }
    // Whether the stack waits for the pointer to leave it before it closes up.
    bool isHeld() const { return m_stack.isHeld(); }
    void dismiss(const Item& item);
    void scheduleAutoDismiss(const Item& item);
    void togglePin(const Item& item);
    void refresh(const Item& item);

    void copy(const Item& item) { m_actions.copy(item); }
    void copyText(const Item& item) { m_actions.copyText(item); }
    void reveal(const Item& item) { m_actions.reveal(item); }
    // Moves the file to the Trash and removes the card; a failed move keeps both.
    void deleteItem(const Item& item) { m_actions.trash(item); }
    void annotate(const Item& item) { m_actions.annotate(item); }
    void askAI(const Item& item) { m_actions.askAI(item); }
    // Takes an edited image back: new thumbnail, the file rewritten.
    void update(const Item& item, const QImage& image) { m_actions.update(item, image); }
    // The card's file once it has one (saving it again when the first save failed).
    void whenSaved(const Item& item, CardActions::FileCallback callback) {
        m_actions.whenSaved(item, std::move(callback));
    }
    QImage fullResolution(const Item& item) const { return CardActions::fullResolution(*item); }

    static QImage displayThumbnail(const QImage& image) { return cardThumbnail(image); }

private:
    QScreen* screenOf(const FloatingShotItem& item) const;
    FloatingShotView* makeView(const Item& item, bool animateIn);
    bool contains(const Item& item) const;
    // Takes the card out of the stack and fades it away; false when it was not shown.
    bool retire(const Item& item);

    Preferences& m_preferences;
    std::vector<Item> m_items;
    CardStack m_stack;
    PointerFollower m_follower;
    CardActions m_actions;
    QFileSystemWatcher m_files; // the shown cards' files
};

} // namespace qm
