#pragma once

#include "app/workflow/CaptureOutcome.h"

#include <QImage>
#include <QObject>
#include <QString>
#include <functional>

namespace qm {

class EditorWindows;
class FloatingShotManager;
class Preferences;
class SoundPlayer;
class ToastCenter;

// Where a finished capture goes, as the user chose: the clipboard, the capture sound, then the
// editor, a floating card or straight into a file. The capture is PNG-encoded once, in the
// background, and those bytes go to the clipboard, the card and the file alike.
class CaptureRouter final : public QObject {
    Q_OBJECT
public:
    struct Report {
        std::function<void(const QString& status)> status;
        // A new capture file.
        std::function<void(const QString& path)> saved;
        // A file was rewritten or removed.
        std::function<void()> libraryChanged;
    };

    CaptureRouter(Preferences& preferences, SoundPlayer& sounds, ToastCenter& toasts,
                  FloatingShotManager& cards, EditorWindows& editors, Report report,
                  QObject* parent = nullptr);

    // Once: the cards report their files, open the editor and read text through here.
    void connectCards();

    // Hands a new capture on; `ended` hears once how it ended (saved, not saved, editing).
    void finish(const QImage& image, const QString& label, OutcomeCallback ended = {});
    // Opens an editor on a saved capture and writes the result back over the same file.
    void editFile(const QString& path);

private:
    void finishEdited(const QImage& image, const QString& label);
    void present(const QImage& image, OutcomeCallback ended);
    void saveNow(const QImage& image, const QString& label, OutcomeCallback ended);
    void copyWhenEncoded(const QImage& image);
    // Asks where to write a capture its folder refused, and writes it there.
    void saveAs(const QImage& image);

    Preferences& m_preferences;
    SoundPlayer& m_sounds;
    ToastCenter& m_toasts;
    FloatingShotManager& m_cards;
    EditorWindows& m_editors;
    Report m_report;
};

} // namespace qm
