#pragma once

#include <QImage>
#include <QWidget>
#include <functional>

namespace qm {

class AnnotationCanvas;
class CanvasScrollView;
class EditorKeyHandler;
class EditorModel;
class EditorToolbar;

// The editor's content: the toolbar, a divider, and the canvas in its scroll view with the zoom
// bar floating over it. Its key handler serves the window the view is shown in.
class AnnotationEditorView : public QWidget {
    Q_OBJECT

public:
    explicit AnnotationEditorView(EditorModel& model, QWidget* parent = nullptr);

    std::function<void()> onCopy;
    std::function<void()> onDone;

    EditorToolbar* toolbar() const { return m_toolbar; }
    CanvasScrollView* scrollView() const { return m_scrollView; }
    AnnotationCanvas* canvas() const;
    EditorKeyHandler* keyHandler() const { return m_keyHandler; }
    // Room the view takes beyond the image at full size: the margins around it, and the
    // toolbar, divider and zoom strip above and below.
    double marginRoom() const;
    double chromeHeight() const;

    // Installs the key handler for the window the view is in (call once it is in one).
    void attachKeyHandler(QWidget& window);

private:
    EditorModel& m_model;
    EditorToolbar* m_toolbar = nullptr;
    QWidget* m_divider = nullptr;
    CanvasScrollView* m_scrollView = nullptr;
    EditorKeyHandler* m_keyHandler = nullptr;
};

} // namespace qm
