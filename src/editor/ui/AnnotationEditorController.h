#pragma once

#include "editor/model/Annotation.h"
#include "ui/ToastCenter.h"

#include <QImage>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QRect>
#include <QSize>
#include <functional>
#include <memory>
#include <optional>

class QWidget;

namespace qm {

class AnnotationEditorView;
class EditorModel;
class EditorWindow;
class SettingsStore;

// Where Save puts the finished image of a capture that came from a file: a new file
// "<stem>.png" in the folder ("<stem> 2.png", … when taken), so the file it came from is
// never written over.
struct SaveBeside {
    QString folder;
    QString stem;
};

// Opens one editor window for one image and reports the outcome exactly once: the finished
// (flattened) image when the user presses Done, nothing when the window is closed. The window
// is closed before `onFinish` runs, so the receiver may open something else at once; it may
// also destroy the controller from inside `onFinish`.
//
// Work is not lost by accident: closing the window with changes that were not saved asks
// whether to save them. Ctrl+S saves: into the file chosen with Save As (Ctrl+Shift+S) or
// written by an earlier save, else beside the original (`saveBeside`), else, for a fresh
// capture, by finishing as Done does, which hands the image to the capture flow.
class AnnotationEditorController : public QObject {
    Q_OBJECT

public:
    using FinishCallback = std::function<void(const std::optional<QImage>& image)>;
    using AskAICallback = std::function<void(const QImage& image)>;
    using ToastCallback =
        std::function<void(const QString& text, const QString& iconName, ToastCenter::Style style)>;
    using SavedCallback = std::function<void(const QString& path)>;
    // Asks where to save; an empty answer cancels.
    using ChooseFileCallback =
        std::function<QString(QWidget* parent, const QString& suggestedPath)>;
    // The answers to "Save the changes?" when the window is closed.
    enum class CloseChoice { Save, Discard, Cancel };

    // `settings` holds the editor's remembered styles and must outlive the controller.
    AnnotationEditorController(const QImage& image, SettingsStore& settings,
                               FinishCallback onFinish = {}, ToastCallback onToast = {},
                               QObject* parent = nullptr);
    ~AnnotationEditorController() override;

    // Hands the current finished image to the AI panel (wired when that panel exists).
    AskAICallback onAskAI;
    // Set before show() when the capture came from a file.
    std::optional<SaveBeside> saveBeside;
    // A file was written (after the "Saved" toast).
    SavedCallback onSaved;
    // The Save As dialog; the desktop's own file dialog unless replaced.
    ChooseFileCallback chooseSaveFile;

    // Creates, sizes, centres and shows the window.
    void show();
    // Instead of show(): puts the editor's view into `container` (which owns it from then on),
    // with the keys, Ctrl+S and Ctrl+Shift+S working there; Done saves rather than finishes.
    // The view must go before the controller does.
    AnnotationEditorView* embed(QWidget& container);
    // Done (save = true) or dismissal: the one report; later calls do nothing. Neither asks
    // or writes anything.
    void complete(bool save);
    // Hands the finished image, as it stands now, to `onAskAI`.
    void askAI();
    // Puts the finished image on the clipboard and says "Copied".
    void copy();
    // Ctrl+S and Ctrl+Shift+S. Writing happens off the GUI thread; a failure says why in a
    // toast and leaves the window open.
    void save();
    void saveAs();
    // Whether the finished image differs from what was last saved (or, before any save, from
    // the plain capture): marks, crop or backdrop.
    bool hasUnsavedChanges() const;
    // The file the last save wrote, if any.
    std::optional<QString> savedPath() const { return m_savedPath; }

    bool isFinished() const { return m_finished; }
    EditorModel& model() const { return *m_model; }
    // The window while it is open.
    QWidget* window() const;
    AnnotationEditorView* view() const;

    // The window's content size for an image of `pixels` on a screen whose visible area is
    // `visibleFrame` (1280 × 800 when there is none): the image at full size plus room for
    // margins and toolbar, within 80 % of the screen, at least 760 × 480.
    static QSize windowSize(QSize pixels, std::optional<QRect> visibleFrame);
    // The same with the room taken around the image on each axis (`marginRoom`) and by the
    // toolbar and zoom bar (`toolbarRoom`) given.
    static QSize windowSize(QSize pixels, std::optional<QRect> visibleFrame, double marginRoom,
                            double toolbarRoom);

    // Called by the window when the user closes it; false keeps it open (a question is
    // asked first when there are unsaved changes).
    bool windowMayClose();

private:
    struct SavedState {
        QList<Annotation> annotations;
        std::optional<QRectF> crop;
        std::optional<BackgroundStyle> backdrop;
        bool operator==(const SavedState&) const = default;
    };
    SavedState currentState() const;
    void windowWillClose();
    // Flattens and writes to `path` (replacing it) or to a new file beside the original,
    // then runs `then` on success.
    void write(std::optional<QString> path, std::function<void()> then);
    void askBeforeClosing();
    // Done, and Save in the closing question: writes first when there is a file to write.
    void saveAndFinish();
    void closeAnswered(CloseChoice choice);

    FinishCallback m_onFinish;
    ToastCallback m_onToast;
    // Shared with the window, which may outlive the controller by a turn of the event loop.
    std::shared_ptr<EditorModel> m_model;
    QPointer<EditorWindow> m_window;
    QPointer<AnnotationEditorView> m_view;
    QPointer<QWidget> m_container; // when embedded
    bool m_finished = false;
    bool m_writing = false;
    bool m_asking = false;
    SavedState m_savedState;
    std::optional<QString> m_savedPath;
};

} // namespace qm
