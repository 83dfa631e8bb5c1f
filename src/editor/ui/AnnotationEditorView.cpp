#include "editor/ui/AnnotationEditorView.h"

#include "editor/model/EditorModel.h"
#include "editor/ui/AnnotationCanvas.h"
#include "editor/ui/CanvasScrollView.h"
#include "editor/ui/EditorKeyHandler.h"
#include "editor/ui/EditorToolbar.h"

#include <QFrame>
#include <QVBoxLayout>

namespace qm {

AnnotationEditorView::AnnotationEditorView(EditorModel& model, QWidget* parent)
    : QWidget(parent)
    , m_model(model) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    m_toolbar = new EditorToolbar(model, this);
    m_toolbar->onCopy = [this] {
        if (onCopy)
            onCopy();
    };
    m_toolbar->onDone = [this] {
        if (onDone)
            onDone();
    };
    auto* divider = new QFrame(this);
    divider->setFrameShape(QFrame::HLine);
    divider->setFixedHeight(1);
    divider->setStyleSheet(QStringLiteral("background: rgba(127,127,127,0.30); border: none;"));
    m_divider = divider;
    m_scrollView = new CanvasScrollView(model, this);
    layout->addWidget(m_toolbar);
    layout->addWidget(m_divider);
    layout->addWidget(m_scrollView, 1);
}

double AnnotationEditorView::marginRoom() const {
    return 2 * CanvasScrollView::fixedMargin;
}

double AnnotationEditorView::chromeHeight() const {
    return m_toolbar->sizeHint().height() + m_divider->minimumHeight() +
           m_scrollView->stripHeight();
}

AnnotationCanvas* AnnotationEditorView::canvas() const {
    return m_scrollView->canvas();
}

void AnnotationEditorView::attachKeyHandler(QWidget& window) {
    delete m_keyHandler;
    m_keyHandler = new EditorKeyHandler(m_model, window);
}

} // namespace qm
