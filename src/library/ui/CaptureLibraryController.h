#pragma once

#include <QImage>
#include <QObject>
#include <QPointer>
#include <QString>
#include <functional>
#include <memory>

class QWidget;

namespace qm {
class Preferences;
class SettingsStore;
class ToastCenter;
namespace media::player {
class TrimSession;
}
} // namespace qm

namespace qm::library {

class CaptureLibraryView;
class LibraryModel;
class OcrTextIndex;

// The library window ("All Captures"): the kinds in a sidebar, a searchable grid of
// thumbnails, and the selected capture in place on the right: an image in the annotation
// editor, a movie in the trim view. Owns the window and its model.
class CaptureLibraryController : public QObject {
    Q_OBJECT
public:
    struct Services {
        Preferences& preferences;
        OcrTextIndex& index;
        SettingsStore& editorSettings; // the editor's remembered styles
        ToastCenter& toasts;
    };
    explicit CaptureLibraryController(Services services, QObject* parent = nullptr);
    ~CaptureLibraryController() override;

    // Makes the window on first call (and lists the folder); every call raises it.
    void show();
    void close();
    // Null until the first show().
    QWidget* window() const;
    LibraryModel& model() const;
    // The window's content; null until the first show().
    CaptureLibraryView* view() const;

    // Lists the folder again, keeping the selection (a capture was saved elsewhere).
    void reload();

    // After the window closed; may delete the controller.
    std::function<void()> onClosed;
    // "Ask Claude" on the selected image; the button is hidden while unset.
    std::function<void(const QImage& image)> onAskAI;
    // The movie pane's Trim and Export GIF: the caller runs them in the background and shows
    // progress through the session's status.
    std::function<void(media::player::TrimSession& session, double start, double end)> onTrim;
    std::function<void(media::player::TrimSession& session, double start, double end)> onExportGif;
    // The image pane's editor wrote a file.
    std::function<void(const QString& path)> onSaved;

    // Set before the first show(). Movies in the pane play silently without (tests, or a
    // session without a sound server).
    bool movieSound = true;
    // Where thumbnails are kept; empty: the user's thumbnail cache.
    QString thumbnailRoot;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace qm::library
