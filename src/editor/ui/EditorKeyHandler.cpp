#include "editor/ui/EditorKeyHandler.h"

#include "editor/model/EditorModel.h"

#include <QAbstractSpinBox>
#include <QApplication>
#include <QComboBox>
#include <QKeyEvent>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QTextEdit>

namespace qm {

EditorKeyHandler::EditorKeyHandler(EditorModel& model, QWidget& window)
    : QObject(&window)
    , m_model(model)
    , m_window(&window) {
    qApp->installEventFilter(this);
}

EditorKeyHandler::~EditorKeyHandler() {
    qApp->removeEventFilter(this);
}

bool EditorKeyHandler::eventFilter(QObject* watched, QEvent* event) {
    if (!m_window)
        return false;
    if (event->type() == QEvent::WindowDeactivate && watched == m_window) {
        // A Space released in another window must not leave the hand stuck.
        m_model.zoom().setHandToolActive(false);
        return false;
    }
    if (event->type() != QEvent::KeyPress && event->type() != QEvent::KeyRelease)
        return false;
    auto* widget = qobject_cast<QWidget*>(watched);
    if (!widget || widget->window() != m_window)
        return false;
    if (m_scope) {
        QWidget* focus = QApplication::focusWidget();
        if (!focus || (focus != m_scope && !m_scope->isAncestorOf(focus)))
            return false;
    }
    return handle(static_cast<QKeyEvent*>(event));
}

bool EditorKeyHandler::textFieldHasFocus() const {
    QWidget* focus = QApplication::focusWidget();
    if (!focus)
        return false;
    if (auto* edit = qobject_cast<QLineEdit*>(focus))
        return !edit->isReadOnly();
    if (auto* edit = qobject_cast<QPlainTextEdit*>(focus))
        return !edit->isReadOnly();
    if (auto* edit = qobject_cast<QTextEdit*>(focus))
        return !edit->isReadOnly();
    if (qobject_cast<QAbstractSpinBox*>(focus))
        return true;
    if (auto* combo = qobject_cast<QComboBox*>(focus))
        return combo->isEditable();
    return false;
}

bool EditorKeyHandler::handle(QKeyEvent* event) {
    // Typing belongs to the field being typed in, Space included.
    if (textFieldHasFocus())
        return false;
    const bool press = event->type() == QEvent::KeyPress;
    const Qt::KeyboardModifiers mods = event->modifiers();
    const bool commandLike = mods & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier);

    if (event->key() == Qt::Key_Space && !commandLike) {
        if (!press) {
            if (!event->isAutoRepeat() && m_model.zoom().handToolActive())
                m_model.zoom().setHandToolActive(false);
        } else if (!event->isAutoRepeat() && !m_model.zoom().handToolActive()) {
            m_model.zoom().setHandToolActive(true);
        }
        return true;
    }
    if (!press || commandLike)
        return false;

    switch (event->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (!m_model.document().cropEdit())
            return false;
        m_model.commitCrop();
        return true;
    case Qt::Key_Backspace:
    case Qt::Key_Delete:
        m_model.document().removeSelected();
        return true;
    case Qt::Key_Escape:
        m_model.document().commitPendingText();
        if (m_model.ocrSelecting())
            m_model.setOcrSelecting(false);
        else if (m_model.document().cropEdit())
            m_model.cancelCrop();
        else
            m_model.document().setSelectedID(std::nullopt);
        return true;
    default:
        break;
    }

    // Tool letters, whatever the layout's case: Shift+R is R.
    if (event->key() < Qt::Key_A || event->key() > Qt::Key_Z)
        return false;
    const QString key(QChar(u'a' + (event->key() - Qt::Key_A)));
    const auto tool = toolForKey(key);
    if (!tool)
        return false;
    m_model.document().commitPendingText();
    m_model.setTool(*tool);
    if (*tool != AnnotationTool::Select)
        m_model.document().setSelectedID(std::nullopt);
    return true;
}

} // namespace qm
