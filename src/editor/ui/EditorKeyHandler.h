#pragma once

#include <QObject>
#include <QPointer>
#include <QWidget>

class QKeyEvent;

namespace qm {

class EditorModel;

// The editor's plain-key shortcuts: tool letters, Delete, Return, Escape and Space for the hand
// tool. It sees the window's key events before any widget does, so the canvas needs no focus;
// yet while a text field has focus, keys are left to it. Shortcuts with Ctrl, Alt or Meta
// belong to the toolbar's buttons. The hand tool ends when the window loses focus.
class EditorKeyHandler : public QObject {
    Q_OBJECT

public:
    EditorKeyHandler(EditorModel& model, QWidget& window);
    ~EditorKeyHandler() override;

    // True when the key event was consumed.
    bool handle(QKeyEvent* event);
    // Where the editor shares its window with other views (the library): keys count only while
    // the focus is inside `scope`, so Delete in a list beside it never removes a mark.
    void setScope(QWidget* scope) { m_scope = scope; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    bool textFieldHasFocus() const;

    EditorModel& m_model;
    QPointer<QWidget> m_window;
    QPointer<QWidget> m_scope;
};

} // namespace qm
