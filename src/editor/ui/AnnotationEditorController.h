#pragma once

#include <QImage>
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

// Opens one editor window for one image and reports the outcome exactly once: the finished
// (flattened) image when the user presses Done, nothing when the window is closed. The window
// is closed before `onFinish` runs, so the receiver may open something else at once; it may
// also destroy the controller from inside `onFinish`.
class AnnotationEditorController : public QObject {
    Q_OBJECT

public:
    using FinishCallback = std::function<void(const std::optional<QImage>& image)>;
    using AskAICallback = std::function<void(const QImage& image)>;
    using ToastCallback = std::function<void(const QString& text, const QString& iconName)>;

    // `settings` holds the editor's remembered styles and must outlive the controller.
    AnnotationEditorController(const QImage& image, SettingsStore& settings,
                               FinishCallback onFinish = {}, ToastCallback onToast = {},
                               QObject* parent = nullptr);
    ~AnnotationEditorController() override;

    // Hands the current finished image to the AI panel (wired when that panel exists).
    AskAICallback onAskAI;

    // Creates, sizes, centres and shows the window.
    void show();
    // Done (save = true) or dismissal: the one report; later calls do nothing.
    void complete(bool save);
    // Puts the finished image on the clipboard and says "Copied".
    void copy();

    bool isFinished() const { return m_finished; }
    EditorModel& model() const { return *m_model; }
    // The window while it is open.
    QWidget* window() const;
    AnnotationEditorView* view() const;

    // The window's content size for an image of `pixels` on a screen whose visible area is
    // `visibleFrame` (1280 × 800 when there is none): the image at full size plus room for
    // margins and toolbar, within 80 % of the screen, at least 760 × 480.
    static QSize windowSize(QSize pixels, std::optional<QRect> visibleFrame);

private:
    void windowWillClose();

    FinishCallback m_onFinish;
    ToastCallback m_onToast;
    // Shared with the window, which may outlive the controller by a turn of the event loop.
    std::shared_ptr<EditorModel> m_model;
    QPointer<EditorWindow> m_window;
    QPointer<AnnotationEditorView> m_view;
    bool m_finished = false;
};

} // namespace qm
