#include "editor/ui/CanvasScrollView.h"

#include "editor/model/EditorModel.h"
#include "editor/ui/AnnotationCanvas.h"
#include "editor/ui/CanvasPainter.h"
#include "ui/Icons.h"

#include <QApplication>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QScrollBar>
#include <QToolButton>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>

namespace qm {

// --- Hand tool ---

HandToolOverlay::HandToolOverlay(QScrollArea& scrollArea, EditorModel& model)
    : QWidget(&scrollArea)
    , m_scrollArea(scrollArea)
    , m_model(model) {
    setFocusPolicy(Qt::StrongFocus);
    setCursor(Qt::OpenHandCursor);
    hide();
}

void HandToolOverlay::setActive(bool active) {
    if (active == isVisible())
        return;
    if (active) {
        m_focusBeforeActivation = QApplication::focusWidget();
        setGeometry(m_scrollArea.viewport()->geometry());
        show();
        raise();
        setFocus(Qt::OtherFocusReason);
    } else {
        m_lastPoint.reset();
        setCursor(Qt::OpenHandCursor);
        const bool hadFocus = hasFocus();
        hide();
        if (hadFocus && m_focusBeforeActivation)
            m_focusBeforeActivation->setFocus(Qt::OtherFocusReason);
        m_focusBeforeActivation.clear();
    }
}

void HandToolOverlay::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton)
        return;
    m_lastPoint = event->position();
    setCursor(Qt::ClosedHandCursor);
}

void HandToolOverlay::mouseMoveEvent(QMouseEvent* event) {
    if (!m_lastPoint)
        return;
    // The content follows the hand.
    const QPointF delta = event->position() - *m_lastPoint;
    QScrollBar* h = m_scrollArea.horizontalScrollBar();
    QScrollBar* v = m_scrollArea.verticalScrollBar();
    h->setValue(h->value() - int(std::lround(delta.x())));
    v->setValue(v->value() - int(std::lround(delta.y())));
    m_lastPoint = event->position();
}

void HandToolOverlay::mouseReleaseEvent(QMouseEvent*) {
    m_lastPoint.reset();
    setCursor(Qt::OpenHandCursor);
}

void HandToolOverlay::keyReleaseEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Space && !event->isAutoRepeat())
        m_model.zoom().setHandToolActive(false);
    else
        QWidget::keyReleaseEvent(event);
}

// --- Zoom bar ---

namespace {

QToolButton* barButton(QWidget* parent, const QString& iconName, const QString& text,
                       const QString& tip) {
    auto* b = new QToolButton(parent);
    if (!iconName.isEmpty())
        b->setIcon(tintedIcon(iconName, Qt::white));
    else
        b->setText(text);
    b->setToolTip(tip);
    b->setAutoRaise(true);
    b->setIconSize(QSize(16, 16));
    b->setFocusPolicy(Qt::NoFocus);
    b->setCursor(Qt::ArrowCursor);
    b->setStyleSheet(QStringLiteral(
        "QToolButton { color: white; border: none; border-radius: 6px; padding: 3px 7px; "
        "font-weight: 600; }"
        "QToolButton:hover { background: rgba(255,255,255,0.16); }"
        "QToolButton:pressed { background: rgba(255,255,255,0.26); }"
        "QToolButton:checked { background: rgba(255,255,255,0.22); }"));
    return b;
}

} // namespace

ZoomBar::ZoomBar(EditorModel& model, QWidget* parent)
    : QWidget(parent)
    , m_model(model) {
    setAttribute(Qt::WA_TranslucentBackground);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(6, 4, 6, 4);
    layout->setSpacing(2);
    auto* out = barButton(this, QStringLiteral("zoom-out"), {}, tr("Zoom out"));
    out->setShortcut(QKeySequence::ZoomOut);
    m_percent = new QLabel(this);
    m_percent->setAlignment(Qt::AlignCenter);
    m_percent->setMinimumWidth(48);
    m_percent->setStyleSheet(QStringLiteral("color: white; font-weight: 600;"));
    auto* in = barButton(this, QStringLiteral("zoom-in"), {}, tr("Zoom in"));
    in->setShortcut(QKeySequence::ZoomIn);
    m_actual = barButton(this, {}, tr("100%"), tr("Actual size (Ctrl+1)"));
    m_actual->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_1));
    m_actual->setCheckable(true);
    m_fit = barButton(this, {}, tr("Fit"), tr("Zoom to fit (Ctrl+0)"));
    m_fit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_0));
    m_fit->setCheckable(true);
    auto* separator = new QWidget(this);
    separator->setFixedSize(1, 16);
    separator->setStyleSheet(QStringLiteral("background: rgba(255,255,255,0.25);"));
    layout->addWidget(out);
    layout->addWidget(m_percent);
    layout->addWidget(in);
    layout->addSpacing(4);
    layout->addWidget(separator);
    layout->addSpacing(4);
    layout->addWidget(m_actual);
    layout->addWidget(m_fit);

    connect(out, &QToolButton::clicked, this, [this] { m_model.zoom().zoomOut(); });
    connect(in, &QToolButton::clicked, this, [this] { m_model.zoom().zoomIn(); });
    connect(m_actual, &QToolButton::clicked, this, [this] {
        m_model.zoom().setZoomPercent(100.0);
        refresh();
    });
    connect(m_fit, &QToolButton::clicked, this, [this] {
        m_model.zoom().setZoomPercent(std::nullopt);
        refresh();
    });
    connect(&m_model.zoom(), &ZoomState::zoomPercentChanged, this, &ZoomBar::refresh);
    connect(&m_model.zoom(), &ZoomState::fitPercentChanged, this, &ZoomBar::refresh);
    refresh();
}

void ZoomBar::refresh() {
    m_percent->setText(QString::number(std::lround(m_model.zoom().currentZoomPercent())) +
                       QLatin1Char('%'));
    m_actual->setChecked(m_model.zoom().zoomPercent() &&
                         std::abs(*m_model.zoom().zoomPercent() - 100) < 0.01);
    m_fit->setChecked(!m_model.zoom().zoomPercent());
}

void ZoomBar::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(QColor(255, 255, 255, 40), 1));
    painter.setBrush(QColor(28, 28, 30, 225));
    const QRectF r = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    painter.drawRoundedRect(r, r.height() / 2, r.height() / 2);
}

// --- Capsule ---

CapsuleLabel::CapsuleLabel(QWidget* parent)
    : QWidget(parent) {
    setAttribute(Qt::WA_TransparentForMouseEvents);
    QFont f = font();
    f.setWeight(QFont::DemiBold);
    setFont(f);
}

void CapsuleLabel::setText(const QString& text) {
    m_text = text;
    updateGeometry();
    update();
}

QSize CapsuleLabel::sizeHint() const {
    const QFontMetrics metrics(font());
    return QSize(metrics.horizontalAdvance(m_text) + 36, metrics.height() + 16);
}

void CapsuleLabel::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF r = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    painter.setPen(QPen(QColor(255, 255, 255, 40), 1));
    painter.setBrush(QColor(28, 28, 30, 232));
    painter.drawRoundedRect(r, r.height() / 2, r.height() / 2);
    painter.setPen(Qt::white);
    painter.drawText(rect(), Qt::AlignCenter, m_text);
}

// --- Scroll view ---

namespace {
// Space above and below the zoom bar in its strip (points).
constexpr int zoomBarGap = 6;
} // namespace

CanvasScrollView::CanvasScrollView(EditorModel& model, QWidget* parent)
    : QScrollArea(parent)
    , m_model(model) {
    setFrameShape(QFrame::NoFrame);
    setAlignment(Qt::AlignCenter);
    setWidgetResizable(false);
    m_canvas = new AnnotationCanvas(model);
    m_canvas->setMargins(fixedMargin, 0);
    setWidget(m_canvas);
    QPalette p = viewport()->palette();
    p.setColor(QPalette::Window, palette().color(QPalette::Window).darker(112));
    viewport()->setPalette(p);
    viewport()->setAutoFillBackground(true);

    // The strip below the viewport, in the viewport's colour, holds the zoom bar.
    setPalette(viewport()->palette());
    setAutoFillBackground(true);

    m_hand = new HandToolOverlay(*this, model);
    m_zoomBar = new ZoomBar(model, this);
    setViewportMargins(0, 0, 0, m_zoomBar->sizeHint().height() + 2 * zoomBarGap);
    m_capsule = new CapsuleLabel(this);
    m_capsule->hide();

    connect(&m_model.zoom(), &ZoomState::zoomPercentChanged, this, &CanvasScrollView::applyScale);
    connect(&m_model.zoom(), &ZoomState::fitPercentChanged, this, &CanvasScrollView::applyScale);
    connect(m_canvas, &AnnotationCanvas::extentChanged, this,
            [this] { m_model.zoom().setFitPercent(computeFitPercent()); });
    connect(&m_model.zoom(), &ZoomState::handToolActiveChanged, this,
            [this] { m_hand->setActive(m_model.zoom().handToolActive()); });
    connect(m_canvas, &AnnotationCanvas::capsuleChanged, this, [this] {
        const auto text = m_canvas->capsuleText();
        m_capsule->setVisible(text.has_value());
        if (text)
            m_capsule->setText(*text);
        layoutOverlays();
    });
    applyScale();
}

double CanvasScrollView::wheelZoomExponent(QPoint angleDelta, QPoint pixelDelta) {
    const double d = !pixelDelta.isNull() ? pixelDelta.y() * 0.005 : angleDelta.y() / 120.0 * 0.06;
    return std::clamp(d, -0.5, 0.5);
}

void CanvasScrollView::wheelEvent(QWheelEvent* event) {
    if (!(event->modifiers() & Qt::ControlModifier)) {
        QScrollArea::wheelEvent(event);
        return;
    }
    event->accept();
    const double d = wheelZoomExponent(event->angleDelta(), event->pixelDelta());
    if (d == 0)
        return;
    zoomBy(std::exp(d), event->position());
}

void CanvasScrollView::zoomBy(double factor, QPointF viewportPoint) {
    const double percent = factor * m_canvas->scale() * 100;
    if (!std::isfinite(percent))
        return;
    const double clamped = std::clamp(percent, 10.0, 800.0);
    if (m_model.zoom().zoomPercent() == clamped)
        return;
    m_pendingAnchor = anchorAt(viewportPoint);
    m_model.zoom().setZoomPercent(clamped);
    m_pendingAnchor.reset();
}

CanvasScrollView::ZoomAnchor CanvasScrollView::anchorAt(QPointF viewportPoint) const {
    return ZoomAnchor{viewportPoint - QPointF(m_canvas->pos()), viewportPoint, m_canvas->scale()};
}

double CanvasScrollView::computeFitPercent() const {
    const QSizeF image = canvas::shownExtent(m_model).size();
    if (image.isEmpty())
        return 100;
    const QSize room = maximumViewportSize();
    const double w = room.width() - 2 * fixedMargin;
    const double h = room.height() - 2 * fixedMargin;
    const double fit = std::min(w / image.width(), h / image.height()) * 100;
    return ZoomState::crispFitPercent(std::clamp(fit, 1.0, 100.0));
}

void CanvasScrollView::applyScale() {
    const double newScale = m_model.zoom().currentZoomPercent() / 100;
    if (!(newScale > 0) || newScale == m_canvas->scale())
        return;
    // Buttons and shortcuts zoom about the middle of the view.
    if (!m_pendingAnchor)
        m_pendingAnchor = anchorAt(QPointF(viewport()->width(), viewport()->height()) / 2);
    m_canvas->setScale(newScale);
    applyPendingZoomAnchor(newScale);
}

bool CanvasScrollView::applyPendingZoomAnchor(double newScale) {
    if (!m_pendingAnchor)
        return false;
    const ZoomAnchor anchor = *m_pendingAnchor;
    m_pendingAnchor.reset();
    if (!(anchor.scale > 0) || !(newScale > 0))
        return false;
    const double ratio = newScale / anchor.scale;
    // The margins keep their size; only the image part scales.
    const double m = fixedMargin;
    const QPointF moved(m + ratio * (anchor.documentPoint.x() - m),
                        m + ratio * (anchor.documentPoint.y() - m));
    const QPointF origin = moved - anchor.viewportOffset;
    horizontalScrollBar()->setValue(int(std::lround(origin.x())));
    verticalScrollBar()->setValue(int(std::lround(origin.y())));
    return true;
}

void CanvasScrollView::resizeEvent(QResizeEvent* event) {
    QScrollArea::resizeEvent(event);
    m_model.zoom().setFitPercent(computeFitPercent());
    layoutOverlays();
}

void CanvasScrollView::layoutOverlays() {
    const QRect vp = viewport()->geometry();
    m_hand->setGeometry(vp);
    m_zoomBar->adjustSize();
    const QSize bar = m_zoomBar->sizeHint();
    m_zoomBar->setGeometry(vp.center().x() - bar.width() / 2, vp.bottom() + 1 + zoomBarGap,
                           bar.width(), bar.height());
    m_zoomBar->raise();
    if (m_capsule->isVisible()) {
        const QSize c = m_capsule->sizeHint();
        m_capsule->setGeometry(vp.center().x() - c.width() / 2, vp.top() + 14, c.width(),
                               c.height());
        m_capsule->raise();
    }
}

} // namespace qm
