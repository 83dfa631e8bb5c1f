#include "editor/ui/AnnotationCanvas.h"

#include "editor/model/EditorModel.h"
#include "editor/render/AnnotationRenderer.h"
#include "ocr/TextRecognizer.h"

#include <QFocusEvent>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPlainTextEdit>
#include <QTextDocument>
#include <algorithm>
#include <cmath>

namespace qm {

using namespace canvas;

namespace {

const QColor accent(10, 132, 255);
constexpr int ocrMessageMs = 1400;

double distance(QPointF a, QPointF b) {
    return std::hypot(a.x() - b.x(), a.y() - b.y());
}

bool isDrawingTool(AnnotationTool tool) {
    switch (tool) {
    case AnnotationTool::Rectangle:
    case AnnotationTool::Ellipse:
    case AnnotationTool::Arrow:
    case AnnotationTool::Line:
    case AnnotationTool::Pen:
    case AnnotationTool::Highlighter:
    case AnnotationTool::Pixelate:
        return true;
    default:
        return false;
    }
}

std::optional<Annotation::Shape> draftShape(AnnotationTool tool, QPointF p) {
    const QRectF r(p, QSizeF(0, 0));
    switch (tool) {
    case AnnotationTool::Rectangle:
        return Annotation::Rectangle{r};
    case AnnotationTool::Ellipse:
        return Annotation::Ellipse{r};
    case AnnotationTool::Arrow:
        return Annotation::Arrow{p, p};
    case AnnotationTool::Line:
        return Annotation::Line{p, p};
    case AnnotationTool::Pen:
        return Annotation::Pen{{p}};
    case AnnotationTool::Highlighter:
        return Annotation::Highlight{{p}};
    case AnnotationTool::Pixelate:
        return Annotation::Pixelate{r};
    default:
        return std::nullopt;
    }
}

Qt::CursorShape handleCursor(ResizeHandle h) {
    switch (h) {
    case ResizeHandle::TopLeft:
    case ResizeHandle::BottomRight:
        return Qt::SizeFDiagCursor;
    case ResizeHandle::TopRight:
    case ResizeHandle::BottomLeft:
        return Qt::SizeBDiagCursor;
    case ResizeHandle::Top:
    case ResizeHandle::Bottom:
        return Qt::SizeVerCursor;
    case ResizeHandle::Left:
    case ResizeHandle::Right:
        return Qt::SizeHorCursor;
    }
    return Qt::ArrowCursor;
}

} // namespace

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

AnnotationCanvas::AnnotationCanvas(EditorModel& model, QWidget* parent)
    : QWidget(parent)
    , m_model(model) {
    setAttribute(Qt::WA_OpaquePaintEvent);
    setMouseTracking(true);
    setFocusPolicy(Qt::ClickFocus);
    m_scaledBaseTimer.setSingleShot(true);
    m_scaledBaseTimer.setInterval(120);
    connect(&m_scaledBaseTimer, &QTimer::timeout, this, &AnnotationCanvas::makeScaledBase);
    m_ocrMessageTimer.setSingleShot(true);
    m_ocrMessageTimer.setInterval(ocrMessageMs);
    connect(&m_ocrMessageTimer, &QTimer::timeout, this, [this] {
        m_ocrMessage.reset();
        Q_EMIT capsuleChanged();
    });

    const auto repaint = [this] { update(); };
    connect(&m_model.document(), &AnnotationDocument::annotationsChanged, this, [this] {
        if (m_textEditID && !m_model.document().annotation(*m_textEditID))
            endTextEditing();
        syncTextEditor();
        update();
    });
    connect(&m_model.document(), &AnnotationDocument::selectedIDsChanged, this, repaint);
    connect(&m_model.document(), &AnnotationDocument::cropEditChanged, this, repaint);
    connect(&m_model.document(), &AnnotationDocument::cropRectChanged, this, repaint);
    connect(&m_model, &EditorModel::ocrSelectingChanged, this, [this] {
        updateCursor(mapFromGlobal(QCursor::pos()));
        Q_EMIT capsuleChanged();
        update();
    });
    connect(&m_model, &EditorModel::toolChanged, this, [this] {
        resetGesture();
        updateCursor(mapFromGlobal(QCursor::pos()));
        update();
    });
    connect(&m_model.document(), &AnnotationDocument::editingTextIDChanged, this, [this] {
        if (m_textEditID && m_model.document().editingTextID() != m_textEditID)
            endTextEditing();
    });
}

AnnotationCanvas::~AnnotationCanvas() = default;

// --- Geometry ---

void AnnotationCanvas::setScale(double scale) {
    if (!(scale > 0) || scale == m_scale)
        return;
    m_scale = scale;
    m_scaledBaseTimer.start(); // wait for the zoom to settle before making the reduced copy
    resize(documentSize(scale));
    syncTextEditor();
    update();
}

void AnnotationCanvas::setMargins(double margin, double bottomExtra) {
    m_margin = margin;
    m_bottomExtra = bottomExtra;
    resize(documentSize(m_scale));
    update();
}

QSize AnnotationCanvas::documentSize(double scale) const {
    const QSizeF image = QSizeF(m_model.pixelSize()) * scale;
    return QSize(int(std::ceil(image.width() + 2 * m_margin)),
                 int(std::ceil(image.height() + 2 * m_margin + m_bottomExtra)));
}

QPointF AnnotationCanvas::toImage(QPointF p) const {
    return (p - QPointF(m_margin, m_margin)) / m_scale;
}

QPointF AnnotationCanvas::toWidget(QPointF p) const {
    return p * m_scale + QPointF(m_margin, m_margin);
}

QRectF AnnotationCanvas::toWidget(const QRectF& r) const {
    return QRectF(toWidget(r.topLeft()), r.size() * m_scale);
}

// --- Painting ---

void AnnotationCanvas::makeScaledBase() {
    // Screen pixels per image pixel: on a high-density screen a 50 % view may be full size.
    const double dpr = devicePixelRatioF();
    if (m_scale * dpr >= 1 || m_scaledBaseScale == m_scale)
        return;
    const QSize size = (QSizeF(m_model.pixelSize()) * m_scale * dpr).toSize();
    QImage reduced =
        m_model.document().cgBase().scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    reduced.setDevicePixelRatio(dpr);
    m_scaledBase = QPixmap::fromImage(std::move(reduced));
    m_scaledBaseScale = m_scale;
    update();
}

void AnnotationCanvas::paintEvent(QPaintEvent* event) {
    QPainter painter(this);
    const QRect dirty = event->rect();
    // The viewport behind the canvas sets this colour, so margins and viewport match.
    painter.fillRect(dirty, palette().color(QPalette::Window));

    const QRectF imageRect = toWidget(QRectF(QPointF(0, 0), QSizeF(m_model.pixelSize())));
    // A soft edge lifts the capture off the background.
    painter.setPen(Qt::NoPen);
    for (int i = 6; i >= 1; --i) {
        painter.setBrush(QColor(0, 0, 0, 7 + 3 * (6 - i)));
        painter.drawRect(imageRect.adjusted(-i, -i + 2, i, i + 2));
    }
    const bool reduced = m_scale * devicePixelRatioF() < 1;
    if (reduced && m_scaledBaseScale == m_scale) {
        // Reduced views show a box-filtered copy made once per zoom level: sharper than
        // sampling the full image on every paint, and far cheaper.
        painter.drawPixmap(imageRect.topLeft(), m_scaledBase);
    } else {
        // Only the exposed part of the capture is sampled. While the zoom is still changing,
        // reduced views sample it directly and make their sharper copy once it settles.
        if (reduced && !m_scaledBaseTimer.isActive())
            m_scaledBaseTimer.start();
        const QRectF source =
            QRectF(toImage(dirty.topLeft()), toImage(QPointF(dirty.bottomRight()) + QPointF(1, 1)))
                .toAlignedRect()
                .intersected(m_model.document().cgBase().rect());
        painter.setRenderHint(QPainter::SmoothPixmapTransform, m_scale < 2);
        painter.drawImage(toWidget(source), m_model.document().cgBase(), source);
    }

    painter.save();
    painter.setClipRect(imageRect.intersected(QRectF(dirty)));
    painter.translate(m_margin, m_margin);
    painter.scale(m_scale, m_scale);
    painter.setRenderHint(QPainter::SmoothPixmapTransform, m_scale < 2);
    const QList<Annotation>& marks = m_model.document().annotations();
    const bool anyPixelate = std::any_of(marks.cbegin(), marks.cend(), [](const Annotation& a) {
        return a.is<Annotation::Pixelate>();
    });
    const QUuid skip = m_textEditID.value_or(QUuid());
    AnnotationRenderer::drawMarks(
        painter, anyPixelate ? &m_model.document().pixelatedImage() : nullptr, marks, skip);
    // The text being typed shows in its field; only its chip is painted here.
    if (const Annotation* editing =
            m_textEditID ? m_model.document().annotation(*m_textEditID) : nullptr) {
        if (const auto* text = editing->as<Annotation::Text>(); text && editing->textBackground) {
            const double fs = text->fontSize;
            const QRectF r = AnnotationRenderer::textRect(*text, this);
            painter.setRenderHint(QPainter::Antialiasing);
            painter.setPen(Qt::NoPen);
            painter.setBrush(editing->color);
            painter.drawRoundedRect(r.adjusted(-0.35 * fs, -0.2 * fs, 0.35 * fs, 0.2 * fs),
                                    0.3 * fs, 0.3 * fs);
        }
    }
    if (m_draft) {
        if (m_draft->is<Annotation::Pixelate>())
            AnnotationRenderer::drawPixelation(painter, m_model.document().pixelatedImage(),
                                               *m_draft);
        else
            AnnotationRenderer::draw(painter, *m_draft);
    }
    painter.restore();

    paintOverlays(painter);
}

void AnnotationCanvas::paintOverlays(QPainter& painter) {
    painter.setRenderHint(QPainter::Antialiasing);
    if (m_model.document().cropEdit() && m_model.tool() == AnnotationTool::Crop) {
        drawCropFrame(painter, m_model.document().cropEdit()->normalized());
    } else if (const auto crop = m_model.document().cropRect()) {
        // What the crop leaves out fades into the background, so the kept part reads at once.
        QPainterPath outside;
        outside.addRect(toWidget(QRectF(QPointF(0, 0), QSizeF(m_model.pixelSize()))));
        QPainterPath kept;
        kept.addRect(toWidget(*crop));
        QColor veil = palette().color(QPalette::Window);
        veil.setAlphaF(0.82f);
        painter.setPen(Qt::NoPen);
        painter.setBrush(veil);
        painter.drawPath(outside.subtracted(kept));
    }
    drawSelection(painter);

    if (m_textEditID)
        if (const Annotation* a = m_model.document().annotation(*m_textEditID))
            if (const auto* text = a->as<Annotation::Text>()) {
                QPen pen(accent, 1, Qt::DashLine);
                painter.setPen(pen);
                painter.setBrush(Qt::NoBrush);
                painter.drawRect(
                    toWidget(AnnotationRenderer::textRect(*text, this)).adjusted(-4, -3, 4, 3));
            }

    if (m_draft) {
        if (const auto r = editableRect(*m_draft))
            drawSizeBadge(painter, r->normalized());
    } else if (m_resizeHandle && m_gestureTarget) {
        if (const Annotation* a = m_model.document().annotation(*m_gestureTarget))
            if (const auto r = editableRect(*a))
                drawSizeBadge(painter, *r);
    }
    if (m_selectionMarquee) {
        const QRectF r = toWidget(*m_selectionMarquee);
        QColor fill = accent;
        fill.setAlphaF(0.12f);
        painter.setPen(QPen(accent, 1));
        painter.setBrush(fill);
        painter.drawRect(r);
    }
    if (m_ocrDraft) {
        const QRectF r = toWidget(m_ocrDraft->normalized());
        QColor fill = accent;
        fill.setAlphaF(0.18f);
        painter.setPen(QPen(accent, 1.5, Qt::DashLine));
        painter.setBrush(fill);
        painter.drawRect(r);
    }
}

void AnnotationCanvas::drawSelection(QPainter& painter) {
    const QSet<QUuid>& selected = m_model.document().selectedIDs();
    if (selected.isEmpty())
        return;
    for (const Annotation& a : m_model.document().annotations()) {
        if (!selected.contains(a.id()) || a.id() == m_textEditID)
            continue;
        const QRectF r = toWidget(a.bounds()).adjusted(-1.5, -1.5, 1.5, 1.5);
        painter.setBrush(Qt::NoBrush);
        painter.setPen(QPen(QColor(255, 255, 255, 200), 3));
        painter.drawRect(r);
        painter.setPen(QPen(accent, 1.5));
        painter.drawRect(r);
    }
    if (selected.size() != 1)
        return;
    const Annotation* a = m_model.document().annotation(*selected.cbegin());
    if (!a)
        return;
    if (const auto ends = editableEnds(*a))
        drawEndHandles(painter, ends->first, ends->second);
    else if (const auto r = editableRect(*a))
        drawHandles(painter, r->normalized());
}

void AnnotationCanvas::drawHandles(QPainter& painter, const QRectF& imageRect) {
    painter.setPen(QPen(accent, 1.5));
    painter.setBrush(Qt::white);
    for (const auto& [handle, at] : handlePositions(imageRect)) {
        const QPointF c = toWidget(at);
        painter.drawRoundedRect(QRectF(c - QPointF(4.5, 4.5), QSizeF(9, 9)), 2, 2);
    }
}

void AnnotationCanvas::drawEndHandles(QPainter& painter, QPointF a, QPointF b) {
    painter.setPen(QPen(accent, 2));
    painter.setBrush(Qt::white);
    for (QPointF p : {a, b})
        painter.drawEllipse(toWidget(p), 5.5, 5.5);
}

void AnnotationCanvas::drawSizeBadge(QPainter& painter, const QRectF& imageRect) {
    const QString label = QString::asprintf("%lld × %lld", qint64(std::llround(imageRect.width())),
                                            qint64(std::llround(imageRect.height())));
    QFont font = this->font();
    font.setPixelSize(11);
    font.setWeight(QFont::Medium);
    painter.setFont(font);
    const QFontMetricsF metrics(font);
    const QSizeF size(metrics.horizontalAdvance(label) + 14, metrics.height() + 6);
    const QRectF r = toWidget(imageRect);
    QRectF badge(QPointF(r.right() - size.width(), r.bottom() + 8), size);
    const QRectF visible = visibleRegion().boundingRect();
    if (badge.bottom() > visible.bottom() - 4)
        badge.moveBottom(r.bottom() - 8);
    badge.moveLeft(std::clamp(badge.left(), visible.left() + 4,
                              std::max(visible.left() + 4, visible.right() - size.width() - 4)));
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(20, 20, 22, 215));
    painter.drawRoundedRect(badge, size.height() / 2, size.height() / 2);
    painter.setPen(Qt::white);
    painter.drawText(badge, Qt::AlignCenter, label);
}

void AnnotationCanvas::drawCropFrame(QPainter& painter, const QRectF& imageRect) {
    const QRectF image = toWidget(QRectF(QPointF(0, 0), QSizeF(m_model.pixelSize())));
    const QRectF frame = toWidget(imageRect);
    QPainterPath outside;
    outside.addRect(image);
    QPainterPath inside;
    inside.addRect(frame);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0, 0, 0, 128));
    painter.drawPath(outside.subtracted(inside));

    // Rule-of-thirds guides, then the frame.
    painter.setPen(QPen(QColor(255, 255, 255, 90), 1));
    for (int i = 1; i < 3; ++i) {
        const double x = frame.left() + frame.width() * i / 3;
        const double y = frame.top() + frame.height() * i / 3;
        painter.drawLine(QPointF(x, frame.top()), QPointF(x, frame.bottom()));
        painter.drawLine(QPointF(frame.left(), y), QPointF(frame.right(), y));
    }
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(QColor(0, 0, 0, 110), 3));
    painter.drawRect(frame);
    painter.setPen(QPen(Qt::white, 1.5));
    painter.drawRect(frame);
    painter.setPen(QPen(QColor(0, 0, 0, 90), 1));
    painter.setBrush(Qt::white);
    for (const auto& [handle, at] : handlePositions(imageRect)) {
        const QPointF c = toWidget(at);
        painter.drawRoundedRect(QRectF(c - QPointF(5, 5), QSizeF(10, 10)), 2, 2);
    }
    if (m_cropGesture)
        drawSizeBadge(painter, imageRect);
}

// --- Gestures ---

void AnnotationCanvas::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) {
        QWidget::mousePressEvent(event);
        return;
    }
    setFocus(Qt::MouseFocusReason);
    m_pressed = true;
    beginGesture(toImage(event->position()), event->modifiers());
}

void AnnotationCanvas::mouseMoveEvent(QMouseEvent* event) {
    if (!m_pressed) {
        updateCursor(event->position());
        return;
    }
    changeGesture(toImage(event->position()), event->modifiers());
}

void AnnotationCanvas::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || !m_pressed)
        return;
    m_pressed = false;
    const QPointF at = toImage(event->position());
    changeGesture(at, event->modifiers());
    endGesture(at);
    updateCursor(event->position());
}

void AnnotationCanvas::mouseDoubleClickEvent(QMouseEvent* event) {
    // A double click on a text mark with the select tool opens it for typing.
    if (event->button() == Qt::LeftButton && m_model.tool() == AnnotationTool::Select) {
        const QPointF at = toImage(event->position());
        for (auto it = m_model.document().annotations().crbegin();
             it != m_model.document().annotations().crend(); ++it)
            if (const auto* text = it->as<Annotation::Text>())
                if (AnnotationRenderer::textRect(*text, this).adjusted(-6, -6, 6, 6).contains(at)) {
                    resetGesture();
                    m_pressed = false;
                    beginTextEditing(it->id());
                    return;
                }
    }
    mousePressEvent(event);
}

void AnnotationCanvas::beginGesture(QPointF at, Qt::KeyboardModifiers modifiers) {
    resetGesture();
    m_start = m_last = at;
    if (m_model.ocrSelecting()) {
        m_ocrDraft = QRectF(at, at);
        update();
        return;
    }
    const AnnotationTool tool = m_model.tool();
    if (tool == AnnotationTool::Select) {
        const auto selected = m_model.document().selectedIDs();
        if (selected.size() == 1) {
            const QUuid id = *selected.cbegin();
            if (const Annotation* a = m_model.document().annotation(id)) {
                const double tolerance = handleTolerancePoints / std::max(m_scale, 0.01);
                if (const auto ends = editableEnds(*a)) {
                    if (distance(at, ends->first) <= tolerance) {
                        m_endpointHandle = EndpointHandle::Start;
                        m_endpointPrevious = ends->first;
                    } else if (distance(at, ends->second) <= tolerance) {
                        m_endpointHandle = EndpointHandle::End;
                        m_endpointPrevious = ends->second;
                    }
                } else if (const auto r = editableRect(*a)) {
                    if (const auto handle = hitTestHandle(at, r->normalized(), m_scale)) {
                        m_resizeHandle = handle;
                        m_resizeStart = r->normalized();
                    }
                }
                if (m_endpointHandle || m_resizeHandle) {
                    m_gestureTarget = id;
                    return;
                }
            }
        }
        if (const auto hit = m_model.document().hitTest(at)) {
            if (!m_model.document().selectedIDs().contains(*hit))
                m_model.document().selectOnly(hit);
            m_moveLast = at;
            return;
        }
        m_selectionMarquee = QRectF(at, at);
        m_model.document().setSelection({});
        return;
    }
    if (tool == AnnotationTool::Crop) {
        const QRectF frame = m_model.document()
                                 .cropEdit()
                                 .value_or(QRectF(QPointF(0, 0), QSizeF(m_model.pixelSize())))
                                 .normalized();
        m_cropStart = frame;
        if (const auto handle = hitTestHandle(at, frame, m_scale))
            m_cropGesture = Resize{*handle};
        else if (frame.contains(at))
            m_cropGesture = Move{};
        else
            m_cropGesture = Draw{};
        return;
    }
    if (isDrawingTool(tool)) {
        if (const auto shape = draftShape(tool, at))
            m_draft = Annotation(*shape, m_model.color(), m_model.lineWidth(), false);
        updateDraft(at, modifiers);
    }
}

void AnnotationCanvas::updateDraft(QPointF at, Qt::KeyboardModifiers modifiers) {
    if (!m_draft)
        return;
    const bool shift = modifiers & Qt::ShiftModifier;
    const QRectF span = QRectF(m_start, at).normalized();
    QRectF dirty = m_draft->bounds();
    std::visit(
        [&](auto& s) {
            using T = std::decay_t<decltype(s)>;
            if constexpr (std::is_same_v<T, Annotation::Rectangle> ||
                          std::is_same_v<T, Annotation::Ellipse> ||
                          std::is_same_v<T, Annotation::Pixelate>) {
                s.rect = span;
            } else if constexpr (std::is_same_v<T, Annotation::Arrow> ||
                                 std::is_same_v<T, Annotation::Line>) {
                s.end = shift ? snapped45(m_start, at) : at;
            } else if constexpr (std::is_same_v<T, Annotation::Pen> ||
                                 std::is_same_v<T, Annotation::Highlight>) {
                if (shift) {
                    s.points = {m_start, snapped45(m_start, at)};
                } else if (s.points.isEmpty() || s.points.last() != at) {
                    // Only the new segment needs repainting.
                    if (!s.points.isEmpty())
                        dirty = QRectF(s.points.last(), at).normalized();
                    s.points.append(at);
                }
            }
        },
        m_draft->shape);
    if (m_draft->is<Annotation::Pen>() || m_draft->is<Annotation::Highlight>()) {
        if (!shift) {
            const double grow = 3.5 * m_draft->lineWidth / 2 + 2;
            scheduleRepaint(dirty.adjusted(-grow, -grow, grow, grow));
            return;
        }
    }
    update();
}

void AnnotationCanvas::scheduleRepaint(const QRectF& imageRect) {
    update(toWidget(imageRect).toAlignedRect().adjusted(-2, -2, 2, 2));
}

void AnnotationCanvas::changeGesture(QPointF at, Qt::KeyboardModifiers modifiers) {
    m_last = at;
    if (m_ocrDraft) {
        m_ocrDraft = QRectF(m_start, at).normalized();
        update();
        return;
    }
    if (m_draft) {
        updateDraft(at, modifiers);
        return;
    }
    if (m_moveLast) {
        if (at == *m_moveLast)
            return;
        // One snapshot for the whole move, so undo puts everything back where it started.
        if (!m_didBeginMove) {
            m_model.document().beginChange();
            m_didBeginMove = true;
        }
        m_model.document().translateSelection(at - *m_moveLast);
        m_moveLast = at;
        return;
    }
    if (m_resizeHandle && m_gestureTarget && m_resizeStart) {
        if (!m_didBeginMove) {
            if (at == m_start)
                return;
            m_model.document().beginChange();
            m_didBeginMove = true;
        }
        const QRectF r = resizedRect(*m_resizeStart, *m_resizeHandle, at);
        m_model.document().updateAnnotation(*m_gestureTarget,
                                            [&](Annotation& a) { setRect(a, r); });
        return;
    }
    if (m_endpointHandle && m_gestureTarget) {
        const Annotation* a = m_model.document().annotation(*m_gestureTarget);
        const auto ends = a ? editableEnds(*a) : std::nullopt;
        if (!ends)
            return;
        if (!m_didBeginMove) {
            if (at == m_start)
                return;
            m_model.document().beginChange();
            m_didBeginMove = true;
        }
        const bool movingStart = *m_endpointHandle == EndpointHandle::Start;
        const QPointF fixed = movingStart ? ends->second : ends->first;
        const QPointF target = (modifiers & Qt::ShiftModifier) ? snapped45(fixed, at) : at;
        const QPointF p = separated(fixed, target, m_endpointPrevious);
        m_endpointPrevious = p;
        m_model.document().updateAnnotation(*m_gestureTarget, [&](Annotation& annotation) {
            if (movingStart)
                setEnds(annotation, p, fixed);
            else
                setEnds(annotation, fixed, p);
        });
        return;
    }
    if (m_selectionMarquee) {
        m_selectionMarquee = QRectF(m_start, at).normalized();
        m_model.document().setSelection(m_model.document().annotationIDs(*m_selectionMarquee));
        update();
        return;
    }
    if (m_cropGesture && m_cropStart) {
        const QRectF image(QPointF(0, 0), QSizeF(m_model.pixelSize()));
        QRectF frame;
        if (const auto* resize = std::get_if<Resize>(&*m_cropGesture)) {
            frame = resizedRect(*m_cropStart, resize->handle, at).intersected(image);
        } else if (std::holds_alternative<Move>(*m_cropGesture)) {
            frame = m_cropStart->translated(at - m_start);
            // The frame slides along the image's edges rather than leaving it.
            frame.moveLeft(
                std::clamp(frame.left(), 0.0, std::max(0.0, image.width() - frame.width())));
            frame.moveTop(
                std::clamp(frame.top(), 0.0, std::max(0.0, image.height() - frame.height())));
        } else {
            if (distance(at, m_start) * m_scale < 2)
                return;
            frame = QRectF(m_start, at).normalized().intersected(image);
        }
        m_model.document().setCropEdit(frame);
        return;
    }
}

void AnnotationCanvas::endGesture(QPointF at) {
    if (m_ocrDraft) {
        const QRectF region = m_ocrDraft->normalized();
        m_ocrDraft.reset();
        if (region.width() > 4 && region.height() > 4)
            copyTextInRegion(region);
        m_model.setOcrSelecting(false);
        update();
        return;
    }
    if (m_draft) {
        commitDraft();
    } else {
        const AnnotationTool tool = m_model.tool();
        const bool click = distance(at, m_start) < 4;
        if (tool == AnnotationTool::Text && click)
            textClick(m_start);
        else if (tool == AnnotationTool::Step && !m_model.zoom().handToolActive())
            m_model.addStep(m_start);
    }
    resetGesture();
    update();
}

void AnnotationCanvas::commitDraft() {
    Annotation draft = *m_draft;
    m_draft.reset();
    const QRectF bounds = draft.bounds();
    if (!(bounds.width() > minimumDraftSize || bounds.height() > minimumDraftSize))
        return; // a click, not a shape
    // Strokes and arrows get generous bounds for hitting; a click with them would still leave
    // an invisible mark, so those are dropped as well.
    if (const auto* arrow = draft.as<Annotation::Arrow>();
        arrow && AnnotationRenderer::arrowPolygon(arrow->start, arrow->end, 1).isEmpty())
        return;
    if (const auto* line = draft.as<Annotation::Line>(); line && line->start == line->end)
        return;
    if (const auto* pen = draft.as<Annotation::Pen>(); pen && pen->points.size() < 2)
        return;
    if (const auto* hl = draft.as<Annotation::Highlight>(); hl && hl->points.size() < 2)
        return;
    m_model.document().beginChange();
    m_model.document().appendAnnotation(draft);
}

void AnnotationCanvas::resetGesture() {
    m_draft.reset();
    m_moveLast.reset();
    m_didBeginMove = false;
    m_resizeHandle.reset();
    m_resizeStart.reset();
    m_endpointHandle.reset();
    m_selectionMarquee.reset();
    m_cropGesture.reset();
    m_cropStart.reset();
    m_ocrDraft.reset();
    m_gestureTarget.reset();
}

void AnnotationCanvas::updateCursor(QPointF widgetPoint) {
    if (m_model.zoom().handToolActive())
        return;
    const QPointF at = toImage(widgetPoint);
    Qt::CursorShape shape = Qt::CrossCursor;
    if (m_model.ocrSelecting()) {
        shape = Qt::IBeamCursor;
    } else {
        switch (m_model.tool()) {
        case AnnotationTool::Select: {
            shape = Qt::ArrowCursor;
            const auto& selected = m_model.document().selectedIDs();
            if (selected.size() == 1)
                if (const Annotation* a = m_model.document().annotation(*selected.cbegin())) {
                    const double tolerance = handleTolerancePoints / std::max(m_scale, 0.01);
                    if (const auto ends = editableEnds(*a)) {
                        if (distance(at, ends->first) <= tolerance ||
                            distance(at, ends->second) <= tolerance)
                            shape = Qt::CrossCursor;
                    } else if (const auto r = editableRect(*a)) {
                        if (const auto h = hitTestHandle(at, r->normalized(), m_scale)) {
                            setCursor(handleCursor(*h));
                            return;
                        }
                    }
                }
            if (shape == Qt::ArrowCursor && m_model.document().hitTest(at))
                shape = Qt::SizeAllCursor;
            break;
        }
        case AnnotationTool::Text:
            shape = Qt::IBeamCursor;
            break;
        case AnnotationTool::Crop:
            if (const auto frame = m_model.document().cropEdit()) {
                if (const auto h = hitTestHandle(at, frame->normalized(), m_scale)) {
                    setCursor(handleCursor(*h));
                    return;
                }
                if (frame->normalized().contains(at))
                    shape = Qt::SizeAllCursor;
            }
            break;
        default:
            break;
        }
    }
    setCursor(shape);
}

// --- Text ---

void AnnotationCanvas::textClick(QPointF at) {
    m_model.document().commitPendingText();
    for (auto it = m_model.document().annotations().crbegin();
         it != m_model.document().annotations().crend(); ++it)
        if (const auto* text = it->as<Annotation::Text>())
            if (AnnotationRenderer::textRect(*text, this).adjusted(-6, -6, 6, 6).contains(at)) {
                beginTextEditing(it->id());
                return;
            }
    const double width = std::max(0.2 * m_model.pixelSize().width(), 200.0);
    const double fontSize = m_model.styles().textFontSize();
    Annotation text(
        Annotation::Text{QRectF(at.x(), at.y(), width, 1.6 * fontSize), QString(), fontSize},
        m_model.color(), m_model.lineWidth(), m_model.styles().textHasBackground());
    m_model.document().beginChange();
    m_model.document().appendAnnotation(text);
    beginTextEditing(text.id());
}

QPlainTextEdit* AnnotationCanvas::textEditor() const {
    return m_textEditID ? m_textEdit : nullptr;
}

void AnnotationCanvas::beginTextEditing(const QUuid& id) {
    const Annotation* a = m_model.document().annotation(id);
    if (!a || !a->is<Annotation::Text>())
        return;
    if (m_textEditID && *m_textEditID != id)
        endTextEditing();
    if (!m_textEdit) {
        m_textEdit = new InlineTextEdit(this, [this] { endTextEditing(); });
        connect(m_textEdit, &QPlainTextEdit::textChanged, this, [this] {
            if (m_syncingText || !m_textEditID)
                return;
            const QString string = m_textEdit->toPlainText();
            m_syncingText = true;
            m_model.document().updateAnnotation(*m_textEditID, [&](Annotation& annotation) {
                if (auto* text = annotation.as<Annotation::Text>())
                    text->string = string;
            });
            m_syncingText = false;
            syncTextEditor();
        });
    }
    m_textEditID = id;
    m_model.document().setEditingTextID(id);
    if (m_model.document().selectedIDs().contains(id))
        m_model.document().setSelection({});
    syncTextEditor();
    m_textEdit->show();
    m_textEdit->setFocus(Qt::OtherFocusReason);
    m_textEdit->moveCursor(QTextCursor::End);
    update();
}

void AnnotationCanvas::endTextEditing() {
    if (!m_textEditID)
        return;
    const QUuid id = *m_textEditID;
    m_textEditID.reset();
    const bool hadFocus = m_textEdit->hasFocus();
    m_textEdit->hide();
    if (hadFocus)
        setFocus(Qt::OtherFocusReason);
    if (m_model.document().editingTextID() == id)
        m_model.document().commitPendingText();
    if (m_model.tool() == AnnotationTool::Select && m_model.document().annotation(id))
        m_model.document().selectOnly(id);
    update();
}

void AnnotationCanvas::syncTextEditor() {
    if (!m_textEditID || !m_textEdit)
        return;
    const Annotation* a = m_model.document().annotation(*m_textEditID);
    const auto* text = a ? a->as<Annotation::Text>() : nullptr;
    if (!text)
        return;
    m_syncingText = true;
    const QFont font = AnnotationRenderer::textFont(text->fontSize * m_scale, this);
    if (m_textEdit->font() != font)
        m_textEdit->setFont(font);
    QPalette palette = m_textEdit->palette();
    const QColor ink = a->textBackground ? Annotation::contrastingTextColor(a->color) : a->color;
    palette.setColor(QPalette::Text, ink);
    palette.setColor(QPalette::Base, Qt::transparent);
    m_textEdit->setPalette(palette);
    if (m_textEdit->toPlainText() != text->string)
        m_textEdit->setPlainText(text->string);
    // A little room below for the caret on a new empty line.
    const QRectF r = toWidget(AnnotationRenderer::textRect(*text, this));
    const double line = QFontMetricsF(font).lineSpacing();
    m_textEdit->setGeometry(
        QRectF(r.topLeft(), QSizeF(r.width() + 2, r.height() + line * 0.2)).toAlignedRect());
    m_syncingText = false;
    update();
}

// --- Copy text ---

void AnnotationCanvas::copyTextInRegion(const QRectF& rect) {
    const QImage& base = m_model.document().baseImage();
    if (base.isNull() || m_model.pixelSize().isEmpty())
        return;
    // Image pixels to the raster's own grid (they differ for images with a device ratio).
    const double sx = double(base.width()) / m_model.pixelSize().width();
    const double sy = double(base.height()) / m_model.pixelSize().height();
    const QRect cut = QRectF(rect.x() * sx, rect.y() * sy, rect.width() * sx, rect.height() * sy)
                          .toAlignedRect()
                          .intersected(base.rect());
    if (cut.isEmpty())
        return;
    QImage region = base.copy(cut);
    if (region.isNull())
        return;
    region.setDevicePixelRatio(1);
    m_ocrRunning = true;
    m_ocrMessage = tr("Reading text…");
    m_ocrMessageTimer.stop();
    Q_EMIT capsuleChanged();
    TextRecognizer::copyText(region, this, [this](const Result<QString>& text) {
        m_ocrRunning = false;
        const bool found = text.ok() && !text->isEmpty();
        if (!text.ok())
            flashOCRMessage(tr("Could not read text: %1").arg(text.error().reason));
        else
            flashOCRMessage(found ? tr("Copied") : tr("No text in selection"));
        Q_EMIT textCopied(found);
    });
}

void AnnotationCanvas::flashOCRMessage(const QString& text) {
    m_ocrMessage = text;
    m_ocrMessageTimer.start();
    Q_EMIT capsuleChanged();
}

std::optional<QString> AnnotationCanvas::capsuleText() const {
    if (m_ocrMessage)
        return m_ocrMessage;
    if (m_model.ocrSelecting())
        return tr("Drag across the text you want to copy — Esc cancels");
    return std::nullopt;
}

} // namespace qm
