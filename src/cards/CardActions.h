#pragma once

#include "base/Result.h"
#include "cards/FloatingShotItem.h"

#include <QObject>
#include <functional>
#include <optional>

namespace qm {

class Preferences;
class ToastCenter;

// What a card does with its capture: saves it (once, in the background, never over another
// capture), writes edits to "<name> annotated.png" beside it, copies it and its text, shows it
// in the folder and moves it to the Trash. Every write of a card runs after the one before, so
// the card's file always ends up holding the newest image. Main thread only.
class CardActions final : public QObject {
    Q_OBJECT
public:
    using Item = FloatingShotItemPtr;
    using FileCallback = std::function<void(std::optional<QString> path)>;

    // How the actions reach the cards' owner and the rest of the program.
    struct Hooks {
        std::function<bool(const Item&)> isShown;
        std::function<void(const Item&)> dismiss;
        std::function<void(const Item&)> imageChanged; // new thumbnail to show and place
        std::function<void(const Item&)> fileChanged;  // saved, not saved, or gone from disk
        std::function<void(const QString& path)> saved;
        std::function<void()> libraryChanged;
        std::function<void(const QImage&, std::function<void(const QImage&)>)> annotate;
        std::function<void(const QImage&, std::function<void(std::optional<QString>)>)>
            recognizeText;
        std::function<void(const QImage&)> askAI;
    };

    CardActions(Preferences& preferences, ToastCenter& toasts, Hooks hooks,
                QObject* parent = nullptr);

    // The first save of a new card. Without PNG bytes the image is encoded here, once, and the
    // bytes are reported to onEncoded before the file is written.
    void saveFirst(const Item& item, std::function<void(const QByteArray&)> onEncoded);
    // Runs the callback with the card's file once it has one: at once when it is saved, after
    // a write still running, or after saving again when an earlier save failed.
    void whenSaved(const Item& item, FileCallback callback);

    void copy(const Item& item);
    void copyText(const Item& item);
    void reveal(const Item& item);
    // Moves the file to the Trash and removes the card; a failed move keeps both.
    void trash(const Item& item);
    void annotate(const Item& item);
    void askAI(const Item& item);
    // Takes an edited image back: new thumbnail, the file rewritten in the background.
    void update(const Item& item, const QImage& image);

    // Notes a card whose file has gone from disk since it was saved.
    void checkFile(const Item& item);

    static QImage fullResolution(const FloatingShotItem& item);
    // What is wrong with the card's file, in a word or two ("Not saved"), with the reason;
    // nothing while all is well.
    struct FileProblem {
        QString label;
        QString reason;
    };
    static std::optional<FileProblem> fileProblem(const FloatingShotItem& item);
    // Whether the card's file is on disk now.
    static bool hasFile(const FloatingShotItem& item);

private:
    void writeNew(const Item& item, std::function<void(const QByteArray&)> onEncoded);
    void finishNew(const Item& item, int revision, const Result<QString>& path);
    void writeEdit(const Item& item);
    void writeAnnotated(const Item& item);
    void finishAnnotated(const Item& item, int revision, const QByteArray& png,
                         const Result<QString>& path);
    void writeOver(const Item& item);
    void finishOver(const Item& item, int revision, const Result<QByteArray>& png);
    void writeNewerImage(const Item& item);
    void release(const Item& item, std::optional<QString> path);
    bool moveToTrash(const QString& path);
    // "Not saved: <reason>"; with the card, the toast offers to save it elsewhere.
    void toastFailure(const QString& reason, const Item& item = {});
    // Writes the card's capture where the user chooses; that file becomes the card's.
    void saveAs(const Item& item);

    Preferences& m_preferences;
    ToastCenter& m_toasts;
    Hooks m_hooks;
};

} // namespace qm
