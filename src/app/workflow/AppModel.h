#pragma once

#include "app/CommandLine.h"
#include "app/workflow/CaptureOutcome.h"
#include "base/Hotkeys.h"
#include "capture/core/CaptureTypes.h"

#include <QImage>
#include <QObject>
#include <QString>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace qm {

class AnnotationEditorController;
class CaptureFlows;
class RecordingFlows;
class TrimJobs;
class TrimWindows;
class CaptureRouter;
class CountdownController;
class EditorWindows;
class FloatingShotManager;
class HotkeyManager;
class Preferences;
class ScreenCaptureManager;
class SelectionOverlayController;
namespace ai {
class AIQueryController;
class ClaudeClient;
} // namespace ai
class ShareableContentCache;
class SoundPlayer;
class ToastCenter;
namespace platform {
class AudioCaptureBackend;
class CameraBackend;
class ClickSourceBackend;
class ScreenVideoBackend;
class SecretStore;
class SurfaceBackend;
} // namespace platform
namespace library {
class CaptureLibraryController;
class OcrTextIndex;
class RetentionScheduler;
} // namespace library

// Turns a request (shortcut, tray menu, command line) into a capture (CaptureFlows) and hands
// the result on (CaptureRouter), keeping the one-line status the menu shows, the last saved
// file and the library revision.
class AppModel : public QObject {
    Q_OBJECT
public:
    struct Services {
        Preferences& preferences;
        ScreenCaptureManager& capture;
        ShareableContentCache& contentCache;
        platform::SurfaceBackend& surfaces;
        HotkeyManager& hotkeys;
        SoundPlayer& sounds;
        ToastCenter& toasts;
        FloatingShotManager& cards;
        platform::ScreenVideoBackend& video;
        platform::AudioCaptureBackend& audio;
        platform::CameraBackend& camera;
        platform::ClickSourceBackend& clicks;
        // The text read from every image capture, for the library's search.
        library::OcrTextIndex& ocrIndex;
        // Asking Claude about a capture, with the key from the keyring.
        ai::ClaudeClient& claude;
        platform::SecretStore& keys;
    };

    explicit AppModel(Services services, QObject* parent = nullptr);
    ~AppModel() override;

    // Once at start: warms the window list, follows shortcut changes and starts the sweeps
    // of old captures.
    void configure();
    void registerHotkeys();
    // The area shortcut could not be taken because another program holds it.
    bool desktopOwnsAreaShortcut() const { return m_areaShortcutTaken; }

    void perform(CaptureKind kind);
    void performDelayed(CaptureKind kind, int seconds);
    void runHotkey(HotkeyAction action);

    // Recording: an area chosen on the frozen screen, or the screen under the pointer.
    void recordArea();
    void recordScreen();
    void stopRecording();
    RecordingFlows& recording() const { return *m_recording; }
    // Opens a movie in the trim window (play, cut in place, export a GIF).
    void openTrimWindow(const QString& movie);
    TrimWindows& trimWindows() const { return *m_trims; }
    // Opens an Ask Claude window on the image; each stays until it is closed.
    void openAIQuery(const QImage& image);
    const std::vector<std::unique_ptr<ai::AIQueryController>>& aiControllers() const {
        return m_aiControllers;
    }
    // "Open Settings" in an Ask Claude window that has no key to use.
    std::function<void()> onOpenSettings;

    // Shows the library window ("All Captures"), making it on first use.
    void showLibrary();
    // The library window's controller while it is open.
    library::CaptureLibraryController* library() const { return m_library.get(); }
    // Starts what the command asks for. For a capture, the number captureEnded will carry
    // when it ends; a failure when a capture is already under way.
    Result<quint64> run(const Command& command);

    // Opens an editor on the image; onComplete gets the finished image, or nothing when the
    // window was closed.
    void openEditor(const QImage& image, std::function<void(std::optional<QImage>)> onComplete);
    // Opens an editor on a saved capture and writes the result back over the same file.
    void openEditor(const QString& path);
    const std::vector<std::unique_ptr<AnnotationEditorController>>& editorControllers() const;

    QString lastStatus() const { return m_lastStatus; }
    std::optional<QString> lastSavedURL() const { return m_lastSavedURL; }
    int libraryRevision() const { return m_libraryRevision; }
    bool isCapturing() const;
    // Selecting, counting down, recording or finishing a movie.
    bool isRecordingBusy() const;

    SelectionOverlayController& overlay() const;
    CountdownController& countdown() const;

    static QString label(CaptureKind kind);

Q_SIGNALS:
    void lastStatusChanged(const QString& status);
    void lastSavedURLChanged();
    void libraryRevisionChanged(int revision);
    void isCapturingChanged(bool capturing);
    // Every capture ends once: saved, not saved, in the editor, cancelled or failed. `capture`
    // counts the captures started since the program began.
    void captureEnded(quint64 capture, const CaptureOutcome& outcome);

private:
    void setStatus(const QString& status);
    void addToLibrary(const QString& path);
    void bumpLibrary();

    Services m_services;
    std::unique_ptr<EditorWindows> m_editors;
    std::unique_ptr<CaptureRouter> m_router;
    std::unique_ptr<CaptureFlows> m_flows;
    std::unique_ptr<TrimJobs> m_trimJobs;
    std::unique_ptr<TrimWindows> m_trims;
    std::unique_ptr<RecordingFlows> m_recording;
    std::unique_ptr<library::RetentionScheduler> m_retention;
    std::unique_ptr<library::CaptureLibraryController> m_library;
    std::vector<std::unique_ptr<ai::AIQueryController>> m_aiControllers;

    QString m_lastStatus;
    std::optional<QString> m_lastSavedURL;
    int m_libraryRevision = 0;
    quint64 m_captureCount = 0;
    bool m_configured = false;
    bool m_areaShortcutTaken = false;
};

} // namespace qm
