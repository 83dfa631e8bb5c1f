#include "editor/ui/AnnotationCanvas.h"

#include "editor/model/EditorModel.h"
#include "editor/render/AnnotationRenderer.h"
#include "editor/ui/CanvasPainter.h"
#include "editor/ui/CanvasTextEditor.h"
#include "editor/ui/RegionTextCopier.h"

#include <QMouseEvent>
#include <QPainter>
#include <algorithm>
#include <cmath>
#include <utility>

namespace qm {

using namespace canvas;

namespace {

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

template <class... Fs> struct Overloaded : Fs... { using Fs::operator()...; };
template <class... Fs> Overloaded(Fs...) -> Overloaded<Fs...>;

} // namespace

AnnotationCanvas::AnnotationCanvas(EditorModel& model, QWidget* parent)
    : QWidget(parent)
    , m_model(model)
    , m_painter(new CanvasPainter(model, *this, m_transform))
    , m_textEditor(new CanvasTextEditor(model, *this, m_transform))
    , m_copier(new RegionTextCopier(model, this)) {
    // Text frames follow their text, so selecting and hit testing cover all of it.
    m_model.document().setTextLayout(
        [](const Annotation::Text& text) { return AnnotationRenderer::textRect(text); });
    setAttribute(Qt::WA_OpaquePaintEvent);
    setMouseTracking(true);
    setFocusPolicy(Qt::ClickFocus);
    connect(m_copier, &RegionTextCopier::textCopied, this, &AnnotationCanvas::textCopied);
    connect(m_copier, &RegionTextCopier::capsuleChanged, this, &AnnotationCanvas::capsuleChanged);

    const auto repaint = [this] { update(); };
    const AnnotationDocument& document = m_model.document();
    connect(&document, &AnnotationDocument::annotationsChanged, this, repaint);
    connect(&document, &AnnotationDocument::selectedIDsChanged, this, repaint);
    // The backdrop, the crop and entering crop mode change what the canvas shows.
    connect(&document, &AnnotationDocument::cropEditChanged, this, &AnnotationCanvas::updateExtent);
    connect(&document, &AnnotationDocument::cropRectChanged, this, &AnnotationCanvas::updateExtent);
    connect(&m_model.backdrop(), &Backdrop::backgroundChanged, this,
            &AnnotationCanvas::updateExtent);
    connect(&m_model, &EditorModel::ocrSelectingChanged, this, [this] {
        updateCursor(mapFromGlobal(QCursor::pos()));
        update();
    });
    connect(&m_model, &EditorModel::toolChanged, this, [this] {
        // A drag with the old tool ends here, leaving nothing half done behind.
        m_gesture = Idle{};
        updateCursor(mapFromGlobal(QCursor::pos()));
        updateExtent();
        update();
    });
    m_transform.origin = canvas::shownExtent(m_model).topLeft();
}

AnnotationCanvas::~AnnotationCanvas() = default;

// --- Geometry ---

void AnnotationCanvas::setScale(double scale) {
    if (!(scale > 0) || scale == m_transform.scale)
        return;
    m_transform.scale = scale;
    m_painter->scaleChanged();
    resize(documentSize(scale));
    m_textEditor->sync();
    update();
}

void AnnotationCanvas::setMargins(double margin, double bottomExtra) {
    m_transform.margin = margin;
    m_bottomExtra = bottomExtra;
    resize(documentSize(m_transform.scale));
    update();
}

void AnnotationCanvas::updateExtent() {
    const QRectF extent = canvas::shownExtent(m_model);
    if (extent.topLeft() != m_transform.origin || documentSize(m_transform.scale) != size()) {
        m_transform.origin = extent.topLeft();
        resize(documentSize(m_transform.scale));
        m_textEditor->sync();
        Q_EMIT extentChanged();
    }
    update();
}

QSize AnnotationCanvas::documentSize(double scale) const {
    const QSizeF image = canvas::shownExtent(m_model).size() * scale;
    const double margin = m_transform.margin;
    return QSize(int(std::ceil(image.width() + 2 * margin)),
                 int(std::ceil(image.height() + 2 * margin + m_bottomExtra)));
}

// --- Helpers' faces ---

void AnnotationCanvas::copyTextInRegion(const QRectF& rect) {
    m_copier->copyTextInRegion(rect);
}

void AnnotationCanvas::flashOCRMessage(const QString& text) {
    m_copier->flashMessage(text);
}

std::optional<QString> AnnotationCanvas::capsuleText() const {
    return m_copier->capsuleText();
}

QPlainTextEdit* AnnotationCanvas::textEditor() const {
    return m_textEditor->field();
}

void AnnotationCanvas::beginTextEditing(const QUuid& id) {
    m_textEditor->begin(id);
}

void AnnotationCanvas::endTextEditing() {
    m_textEditor->end();
}

void AnnotationCanvas::paintEvent(QPaintEvent* event) {
    QPainter painter(this);
    m_painter->paint(painter, event->rect(), m_gesture, m_textEditor->editingID());
}

// --- Input ---

void AnnotationCanvas::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) {
        QWidget::mousePressEvent(event);
        return;
    }
    setFocus(Qt::MouseFocusReason);
    beginGesture(toImage(event->position()), event->modifiers());
}

void AnnotationCanvas::mouseMoveEvent(QMouseEvent* event) {
    if (std::holds_alternative<Idle>(m_gesture)) {
        updateCursor(event->position());
        return;
    }
    changeGesture(toImage(event->position()), event->modifiers());
}

void AnnotationCanvas::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || std::holds_alternative<Idle>(m_gesture))
        return;
    const QPointF at = toImage(event->position());
    changeGesture(at, event->modifiers());
    endGesture(at);
    updateCursor(event->position());
}

void AnnotationCanvas::mouseDoubleClickEvent(QMouseEvent* event) {
    // A double click on a text mark with the select tool opens it for typing.
    if (event->button() == Qt::LeftButton && m_model.tool() == AnnotationTool::Select) {
        if (const auto text = m_textEditor->textAt(toImage(event->position()))) {
            m_gesture = Idle{};
            m_textEditor->begin(*text);
            return;
        }
    }
    mousePressEvent(event);
}

// --- Gestures ---

void AnnotationCanvas::beginGesture(QPointF at, Qt::KeyboardModifiers modifiers) {
    m_gesture = Idle{};
    if (m_model.ocrSelecting()) {
        m_gesture = SelectTextRegion{at, QRectF(at, at)};
        update();
        return;
    }
    const AnnotationTool tool = m_model.tool();
    if (tool == AnnotationTool::Select) {
        m_gesture = selectGestureAt(at);
    } else if (tool == AnnotationTool::Crop) {
        m_gesture = cropGestureAt(at);
    } else if (isDrawingTool(tool)) {
        if (const auto shape = draftShape(tool, at)) {
            m_gesture =
                DrawShape{at, Annotation(*shape, m_model.color(), m_model.lineWidth(), false)};
            updateDraft(std::get<DrawShape>(m_gesture), at, modifiers);
        }
    } else {
        m_gesture = PlaceMark{at};
    }
}

Gesture AnnotationCanvas::selectGestureAt(QPointF at) {
    AnnotationDocument& document = m_model.document();
    // The handles of a single selected mark come first: they may lie outside its bounds.
    if (const auto id = document.selectedID())
        if (const Annotation* a = document.annotation(*id)) {
            const double tolerance = handleTolerancePoints / std::max(m_transform.scale, 0.01);
            if (const auto ends = editableEnds(*a)) {
                if (distance(at, ends->first) <= tolerance)
                    return DragEnd{*id, EndpointHandle::Start, ends->first, at};
                if (distance(at, ends->second) <= tolerance)
                    return DragEnd{*id, EndpointHandle::End, ends->second, at};
            } else if (const auto r = editableRect(*a)) {
                if (const auto handle = hitTestHandle(at, r->normalized(), m_transform.scale))
                    return ResizeMark{*id, *handle, r->normalized(), at};
            }
        }
    if (const auto hit = document.hitTest(at)) {
        if (!document.selectedIDs().contains(*hit))
            document.selectOnly(hit);
        return MoveSelection{at};
    }
    document.setSelection({});
    return Marquee{at, QRectF(at, at)};
}

Gesture AnnotationCanvas::cropGestureAt(QPointF at) const {
    const QRectF frame = m_model.document()
                             .cropEdit()
                             .value_or(QRectF(QPointF(0, 0), QSizeF(m_model.pixelSize())))
                             .normalized();
    if (const auto handle = hitTestHandle(at, frame, m_transform.scale))
        return EditCrop{at, frame, CropResize{*handle}};
    if (frame.contains(at))
        return EditCrop{at, frame, CropMove{}};
    return EditCrop{at, frame, CropDraw{}};
}

void AnnotationCanvas::updateDraft(DrawShape& drawing, QPointF at,
                                   Qt::KeyboardModifiers modifiers) {
    const bool shift = modifiers & Qt::ShiftModifier;
    const QPointF start = drawing.start;
    const QRectF span = QRectF(start, at).normalized();
    Annotation& draft = drawing.draft;
    QRectF dirty = draft.bounds();
    std::visit(
        [&](auto& s) {
            using T = std::decay_t<decltype(s)>;
            if constexpr (std::is_same_v<T, Annotation::Rectangle> ||
                          std::is_same_v<T, Annotation::Ellipse> ||
                          std::is_same_v<T, Annotation::Pixelate>) {
                s.rect = span;
            } else if constexpr (std::is_same_v<T, Annotation::Arrow> ||
                                 std::is_same_v<T, Annotation::Line>) {
                s.end = shift ? snapped45(start, at) : at;
            } else if constexpr (std::is_same_v<T, Annotation::Pen> ||
                                 std::is_same_v<T, Annotation::Highlight>) {
                if (shift) {
                    s.points = {start, snapped45(start, at)};
                } else if (s.points.isEmpty() || s.points.last() != at) {
                    // Only the new segment needs repainting.
                    if (!s.points.isEmpty())
                        dirty = QRectF(s.points.last(), at).normalized();
                    s.points.append(at);
                }
            }
        },
        draft.shape);
    if ((draft.is<Annotation::Pen>() || draft.is<Annotation::Highlight>()) && !shift) {
        const double grow = 3.5 * draft.lineWidth / 2 + 2;
        scheduleRepaint(dirty.adjusted(-grow, -grow, grow, grow));
        return;
    }
    update();
}

void AnnotationCanvas::scheduleRepaint(const QRectF& imageRect) {
    update(toWidget(imageRect).toAlignedRect().adjusted(-2, -2, 2, 2));
}

void AnnotationCanvas::changeGesture(QPointF at, Qt::KeyboardModifiers modifiers) {
    AnnotationDocument& document = m_model.document();
    // Each branch updates its gesture before it touches the document, whose signals may end
    // the gesture.
    std::visit(Overloaded{
                   [](Idle&) {},
                   [](PlaceMark&) {},
                   [&](SelectTextRegion& g) {
                       g.rect = QRectF(g.start, at).normalized();
                       update();
                   },
                   [&](DrawShape& g) { updateDraft(g, at, modifiers); },
                   [&](MoveSelection& g) {
                       if (at == g.last)
                           return;
                       const QPointF delta = at - std::exchange(g.last, at);
                       // One snapshot for the whole move, so undo puts everything back where it
                       // started.
                       if (!std::exchange(g.snapshotTaken, true))
                           document.beginChange();
                       document.translateSelection(delta);
                   },
                   [&](ResizeMark& g) {
                       if (!g.snapshotTaken && at == g.start)
                           return;
                       const QUuid target = g.target;
                       const QRectF r = resizedRect(g.startRect, g.handle, at);
                       if (!std::exchange(g.snapshotTaken, true))
                           document.beginChange();
                       document.updateAnnotation(target, [&](Annotation& a) { setRect(a, r); });
                   },
                   [&](DragEnd& g) {
                       const Annotation* a = document.annotation(g.target);
                       const auto ends = a ? editableEnds(*a) : std::nullopt;
                       if (!ends || (!g.snapshotTaken && at == g.start))
                           return;
                       const QUuid target = g.target;
                       const bool movingStart = g.handle == EndpointHandle::Start;
                       const QPointF fixed = movingStart ? ends->second : ends->first;
                       const QPointF aim =
                           (modifiers & Qt::ShiftModifier) ? snapped45(fixed, at) : at;
                       const QPointF p = separated(fixed, aim, g.previous);
                       g.previous = p;
                       if (!std::exchange(g.snapshotTaken, true))
                           document.beginChange();
                       document.updateAnnotation(target, [&](Annotation& annotation) {
                           if (movingStart)
                               setEnds(annotation, p, fixed);
                           else
                               setEnds(annotation, fixed, p);
                       });
                   },
                   [&](Marquee& g) {
                       g.rect = QRectF(g.start, at).normalized();
                       document.setSelection(document.annotationIDs(g.rect));
                       update();
                   },
                   [&](EditCrop& g) {
                       const QRectF image(QPointF(0, 0), QSizeF(m_model.pixelSize()));
                       QRectF frame;
                       if (const auto* resize = std::get_if<CropResize>(&g.kind)) {
                           frame = resizedRect(g.startFrame, resize->handle, at).intersected(image);
                       } else if (std::holds_alternative<CropMove>(g.kind)) {
                           frame = g.startFrame.translated(at - g.start);
                           // The frame slides along the image's edges rather than leaving it.
                           frame.moveLeft(std::clamp(frame.left(), 0.0,
                                                     std::max(0.0, image.width() - frame.width())));
                           frame.moveTop(std::clamp(
                               frame.top(), 0.0, std::max(0.0, image.height() - frame.height())));
                       } else {
                           if (distance(at, g.start) * m_transform.scale < 2)
                               return;
                           frame = QRectF(g.start, at).normalized().intersected(image);
                       }
                       document.setCropEdit(frame);
                   },
               },
               m_gesture);
}

void AnnotationCanvas::endGesture(QPointF at) {
    // The gesture is over whatever it does now.
    const Gesture ended = std::exchange(m_gesture, Idle{});
    if (const auto* region = std::get_if<SelectTextRegion>(&ended)) {
        const QRectF rect = region->rect.normalized();
        if (rect.width() > 4 && rect.height() > 4)
            m_copier->copyTextInRegion(rect);
        m_model.setOcrSelecting(false);
    } else if (const auto* drawing = std::get_if<DrawShape>(&ended)) {
        commitDraft(drawing->draft);
    } else if (const auto* placing = std::get_if<PlaceMark>(&ended)) {
        const AnnotationTool tool = m_model.tool();
        const bool click = distance(at, placing->start) < 4;
        if (tool == AnnotationTool::Text && click)
            m_textEditor->click(placing->start);
        else if (tool == AnnotationTool::Step && !m_model.zoom().handToolActive())
            m_model.addStep(placing->start);
    }
    update();
}

void AnnotationCanvas::commitDraft(const Annotation& draft) {
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

void AnnotationCanvas::updateCursor(QPointF widgetPoint) {
    if (m_model.zoom().handToolActive())
        return;
    const QPointF at = m_transform.toImage(widgetPoint);
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
                    const double tolerance =
                        handleTolerancePoints / std::max(m_transform.scale, 0.01);
                    if (const auto ends = editableEnds(*a)) {
                        if (distance(at, ends->first) <= tolerance ||
                            distance(at, ends->second) <= tolerance)
                            shape = Qt::CrossCursor;
                    } else if (const auto r = editableRect(*a)) {
                        if (const auto h = hitTestHandle(at, r->normalized(), m_transform.scale)) {
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
                if (const auto h = hitTestHandle(at, frame->normalized(), m_transform.scale)) {
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

} // namespace qm
