#include "editor/ui/CanvasTextEditor.h"

#include "editor/model/EditorModel.h"
#include "editor/render/AnnotationRenderer.h"

#include <QFocusEvent>
#include <QKeyEvent>
#include <QPlainTextEdit>
#include <QScrollBar>
#include <QTextDocument>
#include <algorithm>
#include <functional>

namespace qm {

// The field laid over a text mark while it is typed; it ends on Escape and when focus goes
// elsewhere in the window (not when a popover or another window takes it for a moment).
class InlineTextEdit final : public QPlainTextEdit {
public:
    explicit InlineTextEdit(QWidget* parent, std::function<void()> onEnd)
        : QPlainTextEdit(parent)
        , m_onEnd(std::move(onEnd)) {
        setFrameShape(QFrame::NoFrame);
        setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        setLineWrapMode(QPlainTextEdit::WidgetWidth);
        setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
        document()->setDocumentMargin(0);
        setContentsMargins(0, 0, 0, 0);
        setViewportMargins(0, 0, 0, 0);
        viewport()->setAutoFillBackground(false);
        setAutoFillBackground(false);
        setBackgroundVisible(false);
        setStyleSheet(QStringLiteral("background: transparent;"));
    }

protected:
    void keyPressEvent(QKeyEvent* event) override {
        if (event->key() == Qt::Key_Escape && event->modifiers() == Qt::NoModifier) {
            m_onEnd();
            return;
        }
        QPlainTextEdit::keyPressEvent(event);
    }
    void focusOutEvent(QFocusEvent* event) override {
        QPlainTextEdit::focusOutEvent(event);
        if (event->reason() != Qt::PopupFocusReason &&
            event->reason() != Qt::ActiveWindowFocusReason)
            m_onEnd();
    }

private:
    std::function<void()> m_onEnd;
};

CanvasTextEditor::CanvasTextEditor(EditorModel& model, QWidget& canvas,
                                   const canvas::CanvasTransform& transform)
    : QObject(&canvas)
    , m_model(model)
    , m_canvas(canvas)
    , m_transform(transform) {
    connect(&m_model.document(), &AnnotationDocument::annotationsChanged, this, [this] {
        if (m_editingID && !m_model.document().annotation(*m_editingID))
            end();
        sync();
    });
    connect(&m_model.document(), &AnnotationDocument::editingTextIDChanged, this, [this] {
        if (m_editingID && m_model.document().editingTextID() != m_editingID)
            end();
    });
}

CanvasTextEditor::~CanvasTextEditor() = default;

QPlainTextEdit* CanvasTextEditor::field() const {
    return m_editingID ? m_field : nullptr;
}

std::optional<QUuid> CanvasTextEditor::textAt(QPointF at) const {
    const QList<Annotation>& marks = m_model.document().annotations();
    for (auto it = marks.crbegin(); it != marks.crend(); ++it)
        if (const auto* text = it->as<Annotation::Text>())
            if (AnnotationRenderer::textRect(*text, &m_canvas).adjusted(-6, -6, 6, 6).contains(at))
                return it->id();
    return std::nullopt;
}

void CanvasTextEditor::click(QPointF at) {
    m_model.document().commitPendingText();
    if (const auto hit = textAt(at)) {
        begin(*hit);
        return;
    }
    // The box grows as the text is typed; it wraps only once the user drags its width.
    const double fontSize = m_model.styles().textFontSize();
    Annotation text(
        Annotation::Text{QRectF(at.x(), at.y(), 0, 1.6 * fontSize), QString(), fontSize},
        m_model.color(), m_model.lineWidth(), m_model.styles().textHasBackground());
    m_model.document().beginChange();
    m_model.document().appendAnnotation(text);
    begin(text.id());
}

void CanvasTextEditor::begin(const QUuid& id) {
    const Annotation* a = m_model.document().annotation(id);
    if (!a || !a->is<Annotation::Text>())
        return;
    if (m_editingID && *m_editingID != id)
        end();
    if (!m_field) {
        m_field = new InlineTextEdit(&m_canvas, [this] { end(); });
        connect(m_field, &QPlainTextEdit::textChanged, this, &CanvasTextEditor::fieldChanged);
    }
    m_editingID = id;
    m_model.document().setEditingTextID(id);
    if (m_model.document().selectedIDs().contains(id))
        m_model.document().setSelection({});
    sync();
    m_field->show();
    m_field->setFocus(Qt::OtherFocusReason);
    m_field->moveCursor(QTextCursor::End);
    m_canvas.update();
}

void CanvasTextEditor::fieldChanged() {
    if (m_syncing || !m_editingID)
        return;
    const QString string = m_field->toPlainText();
    m_syncing = true;
    m_model.document().updateAnnotation(*m_editingID, [&](Annotation& annotation) {
        if (auto* text = annotation.as<Annotation::Text>())
            text->string = string;
    });
    m_syncing = false;
    sync();
}

void CanvasTextEditor::end() {
    if (!m_editingID)
        return;
    const QUuid id = *m_editingID;
    m_editingID.reset();
    const bool hadFocus = m_field->hasFocus();
    m_field->hide();
    if (hadFocus)
        m_canvas.setFocus(Qt::OtherFocusReason);
    if (m_model.document().editingTextID() == id)
        m_model.document().commitPendingText();
    if (m_model.tool() == AnnotationTool::Select && m_model.document().annotation(id))
        m_model.document().selectOnly(id);
    m_canvas.update();
}

void CanvasTextEditor::sync() {
    if (!m_editingID || !m_field)
        return;
    const Annotation* a = m_model.document().annotation(*m_editingID);
    const auto* text = a ? a->as<Annotation::Text>() : nullptr;
    if (!text)
        return;
    m_syncing = true;
    const QFont font = AnnotationRenderer::textFont(text->fontSize * m_transform.scale, &m_canvas);
    if (m_field->font() != font)
        m_field->setFont(font);
    QPalette palette = m_field->palette();
    const QColor ink = a->textBackground ? Annotation::contrastingTextColor(a->color) : a->color;
    palette.setColor(QPalette::Text, ink);
    palette.setColor(QPalette::Base, Qt::transparent);
    m_field->setPalette(palette);
    m_field->setLineWrapMode(text->wrapsAtWidth ? QPlainTextEdit::WidgetWidth
                                                : QPlainTextEdit::NoWrap);
    if (m_field->toPlainText() != text->string)
        m_field->setPlainText(text->string);
    // A little room below for the caret on a new empty line, and to the right for the next
    // letter of a growing text, so the field never scrolls before it is widened.
    const QRectF r = m_transform.toWidget(AnnotationRenderer::textRect(*text, &m_canvas));
    const double line = QFontMetricsF(font).lineSpacing();
    const double room = text->wrapsAtWidth ? 2 : line;
    m_field->setGeometry(
        QRectF(r.topLeft(), QSizeF(r.width() + room, r.height() + line * 0.2)).toAlignedRect());
    m_field->horizontalScrollBar()->setValue(0);
    m_syncing = false;
    m_canvas.update();
}

} // namespace qm
