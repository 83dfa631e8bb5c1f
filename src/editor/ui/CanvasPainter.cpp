#include "editor/ui/CanvasPainter.h"

#include "editor/model/EditorModel.h"
#include "editor/render/AnnotationRenderer.h"
#include "editor/render/Flatten.h"

#include <QPainter>
#include <QPainterPath>
#include <QWidget>
#include <algorithm>
#include <cmath>

namespace qm {

using namespace canvas;

namespace {

const QColor accent(10, 132, 255);

} // namespace

std::optional<BackgroundStyle> canvas::shownBackdrop(const EditorModel& model) {
    if (model.tool() == AnnotationTool::Crop && model.document().cropEdit())
        return std::nullopt;
    return model.backdrop().background();
}

QRectF canvas::shownExtent(const EditorModel& model) {
    const auto backdrop = shownBackdrop(model);
    if (!backdrop)
        return QRectF(QPointF(0, 0), QSizeF(model.pixelSize()));
    const QRect area = exportArea(model.document());
    const double p = backdrop->padding;
    // The export's own size rule: whole pixels of the padded area.
    return QRectF(area.topLeft() - QPointF(p, p),
                  QSizeF(std::trunc(area.width() + 2 * p), std::trunc(area.height() + 2 * p)));
}

CanvasPainter::CanvasPainter(const EditorModel& model, QWidget& canvas,
                             const canvas::CanvasTransform& transform)
    : QObject(&canvas)
    , m_model(model)
    , m_canvas(canvas)
    , m_transform(transform) {
    m_scaledBaseTimer.setSingleShot(true);
    m_scaledBaseTimer.setInterval(120);
    connect(&m_scaledBaseTimer, &QTimer::timeout, this, &CanvasPainter::makeScaledBase);
}

void CanvasPainter::scaleChanged() {
    m_scaledBaseTimer.start(); // wait for the zoom to settle before making the reduced copy
}

void CanvasPainter::makeScaledBase() {
    // Screen pixels per image pixel: on a high-density screen a 50 % view may be full size.
    const double dpr = m_canvas.devicePixelRatioF();
    if (m_transform.scale * dpr >= 1 || m_scaledBaseScale == m_transform.scale)
        return;
    const QSize size = (QSizeF(m_model.pixelSize()) * m_transform.scale * dpr).toSize();
    QImage reduced =
        m_model.document().cgBase().scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    reduced.setDevicePixelRatio(dpr);
    m_scaledBase = QPixmap::fromImage(std::move(reduced));
    m_scaledBaseScale = m_transform.scale;
    m_canvas.update();
}

const QImage& CanvasPainter::backdropLayer(const BackgroundStyle& style, const QRect& area) {
    if (!m_backdropKey || m_backdropKey->first != style || m_backdropKey->second != area) {
        QImage hole(area.size(), QImage::Format_RGB32);
        hole.fill(Qt::black);
        m_backdrop = AnnotationRenderer::applyBackground(hole, style);
        m_backdropKey = std::pair(style, area);
    }
    return m_backdrop;
}

void CanvasPainter::paint(QPainter& painter, const QRect& dirty, const canvas::Gesture& gesture,
                          const std::optional<QUuid>& editingText) {
    // The viewport behind the canvas sets this colour, so margins and viewport match.
    painter.fillRect(dirty, m_canvas.palette().color(QPalette::Window));

    const QRectF imageRect =
        m_transform.toWidget(QRectF(QPointF(0, 0), QSizeF(m_model.pixelSize())));
    painter.save();
    painter.setPen(Qt::NoPen);
    if (const auto backdrop = canvas::shownBackdrop(m_model)) {
        // The backdrop as the export paints it; the capture and its marks show only inside
        // the rounded corners of the part the export keeps.
        const QRect area = exportArea(m_model.document());
        const QImage& layer = backdropLayer(*backdrop, area);
        const double p = backdrop->padding;
        painter.setRenderHint(QPainter::SmoothPixmapTransform, m_transform.scale != 1);
        painter.drawImage(
            m_transform.toWidget(QRectF(QPointF(area.topLeft()) - QPointF(p, p), layer.size())),
            layer);
        QPainterPath kept;
        const double radius = backdrop->cornerRadius * m_transform.scale;
        kept.addRoundedRect(m_transform.toWidget(QRectF(area)), radius, radius);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setClipPath(kept);
    } else {
        // A soft edge lifts the capture off the background.
        for (int i = 6; i >= 1; --i) {
            painter.setBrush(QColor(0, 0, 0, 7 + 3 * (6 - i)));
            painter.drawRect(imageRect.adjusted(-i, -i + 2, i, i + 2));
        }
    }
    const bool reduced = m_transform.scale * m_canvas.devicePixelRatioF() < 1;
    if (reduced && m_scaledBaseScale == m_transform.scale) {
        // Reduced views show a box-filtered copy made once per zoom level: sharper than
        // sampling the full image on every paint, and far cheaper.
        painter.drawPixmap(imageRect.topLeft(), m_scaledBase);
    } else {
        // Only the exposed part of the capture is sampled. While the zoom is still changing,
        // reduced views sample it directly and make their sharper copy once it settles.
        if (reduced && !m_scaledBaseTimer.isActive())
            m_scaledBaseTimer.start();
        const QRectF source =
            QRectF(m_transform.toImage(dirty.topLeft()),
                   m_transform.toImage(QPointF(dirty.bottomRight()) + QPointF(1, 1)))
                .toAlignedRect()
                .intersected(m_model.document().cgBase().rect());
        painter.setRenderHint(QPainter::SmoothPixmapTransform, m_transform.scale < 2);
        painter.drawImage(m_transform.toWidget(source), m_model.document().cgBase(), source);
    }

    painter.save();
    painter.setClipRect(imageRect.intersected(QRectF(dirty)), Qt::IntersectClip);
    painter.translate(m_transform.margin, m_transform.margin);
    painter.scale(m_transform.scale, m_transform.scale);
    painter.translate(-m_transform.origin);
    painter.setRenderHint(QPainter::SmoothPixmapTransform, m_transform.scale < 2);
    const QList<Annotation>& marks = m_model.document().annotations();
    const bool anyPixelate = std::any_of(marks.cbegin(), marks.cend(), [](const Annotation& a) {
        return a.is<Annotation::Pixelate>();
    });
    const QUuid skip = editingText.value_or(QUuid());
    AnnotationRenderer::drawMarks(
        painter, anyPixelate ? &m_model.document().pixelatedImage() : nullptr, marks, skip);
    // The text being typed shows in its field; only its chip is painted here.
    if (const Annotation* editing =
            editingText ? m_model.document().annotation(*editingText) : nullptr) {
        if (const auto* text = editing->as<Annotation::Text>(); text && editing->textBackground) {
            const double fs = text->fontSize;
            const QRectF r = AnnotationRenderer::textRect(*text, &m_canvas);
            painter.setRenderHint(QPainter::Antialiasing);
            painter.setPen(Qt::NoPen);
            painter.setBrush(editing->color);
            painter.drawRoundedRect(r.adjusted(-0.35 * fs, -0.2 * fs, 0.35 * fs, 0.2 * fs),
                                    0.3 * fs, 0.3 * fs);
        }
    }
    if (const auto* drawing = std::get_if<canvas::DrawShape>(&gesture)) {
        if (drawing->draft.is<Annotation::Pixelate>())
            AnnotationRenderer::drawPixelation(painter, m_model.document().pixelatedImage(),
                                               drawing->draft);
        else
            AnnotationRenderer::draw(painter, drawing->draft);
    }
    painter.restore();
    painter.restore();

    paintOverlays(painter, gesture, editingText);
}

void CanvasPainter::paintOverlays(QPainter& painter, const canvas::Gesture& gesture,
                                  const std::optional<QUuid>& editingText) {
    painter.setRenderHint(QPainter::Antialiasing);
    if (m_model.document().cropEdit() && m_model.tool() == AnnotationTool::Crop) {
        drawCropFrame(painter, m_model.document().cropEdit()->normalized(),
                      std::holds_alternative<canvas::EditCrop>(gesture));
    } else if (const auto crop = m_model.document().cropRect();
               crop && !canvas::shownBackdrop(m_model)) {
        // (On a backdrop the cropped-away part is not shown at all, as in the export.)
        // What the crop leaves out fades into the background, so the kept part reads at once.
        QPainterPath outside;
        outside.addRect(m_transform.toWidget(QRectF(QPointF(0, 0), QSizeF(m_model.pixelSize()))));
        QPainterPath kept;
        kept.addRect(m_transform.toWidget(*crop));
        QColor veil = m_canvas.palette().color(QPalette::Window);
        veil.setAlphaF(0.82f);
        painter.setPen(Qt::NoPen);
        painter.setBrush(veil);
        painter.drawPath(outside.subtracted(kept));
    }
    drawSelection(painter, editingText);

    if (editingText)
        if (const Annotation* a = m_model.document().annotation(*editingText))
            if (const auto* text = a->as<Annotation::Text>()) {
                QPen pen(accent, 1, Qt::DashLine);
                painter.setPen(pen);
                painter.setBrush(Qt::NoBrush);
                painter.drawRect(
                    m_transform.toWidget(AnnotationRenderer::textRect(*text, &m_canvas))
                        .adjusted(-4, -3, 4, 3));
            }

    if (const auto* drawing = std::get_if<canvas::DrawShape>(&gesture)) {
        if (const auto r = editableRect(drawing->draft))
            drawSizeBadge(painter, r->normalized());
    } else if (const auto* resizing = std::get_if<canvas::ResizeMark>(&gesture)) {
        if (const Annotation* a = m_model.document().annotation(resizing->target))
            if (const auto r = editableRect(*a))
                drawSizeBadge(painter, *r);
    } else if (const auto* marquee = std::get_if<canvas::Marquee>(&gesture)) {
        const QRectF r = m_transform.toWidget(marquee->rect);
        QColor fill = accent;
        fill.setAlphaF(0.12f);
        painter.setPen(QPen(accent, 1));
        painter.setBrush(fill);
        painter.drawRect(r);
    } else if (const auto* region = std::get_if<canvas::SelectTextRegion>(&gesture)) {
        const QRectF r = m_transform.toWidget(region->rect.normalized());
        QColor fill = accent;
        fill.setAlphaF(0.18f);
        painter.setPen(QPen(accent, 1.5, Qt::DashLine));
        painter.setBrush(fill);
        painter.drawRect(r);
    }
}

void CanvasPainter::drawSelection(QPainter& painter, const std::optional<QUuid>& editingText) {
    const QSet<QUuid>& selected = m_model.document().selectedIDs();
    if (selected.isEmpty())
        return;
    for (const Annotation& a : m_model.document().annotations()) {
        if (!selected.contains(a.id()) || a.id() == editingText)
            continue;
        const QRectF r = m_transform.toWidget(a.bounds()).adjusted(-1.5, -1.5, 1.5, 1.5);
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

void CanvasPainter::drawHandles(QPainter& painter, const QRectF& imageRect) {
    painter.setPen(QPen(accent, 1.5));
    painter.setBrush(Qt::white);
    for (const auto& [handle, at] : handlePositions(imageRect)) {
        const QPointF c = m_transform.toWidget(at);
        painter.drawRoundedRect(QRectF(c - QPointF(4.5, 4.5), QSizeF(9, 9)), 2, 2);
    }
}

void CanvasPainter::drawEndHandles(QPainter& painter, QPointF a, QPointF b) {
    painter.setPen(QPen(accent, 2));
    painter.setBrush(Qt::white);
    for (QPointF p : {a, b})
        painter.drawEllipse(m_transform.toWidget(p), 5.5, 5.5);
}

void CanvasPainter::drawSizeBadge(QPainter& painter, const QRectF& imageRect) {
    const QString label = QString::asprintf("%lld × %lld", qint64(std::llround(imageRect.width())),
                                            qint64(std::llround(imageRect.height())));
    QFont font = m_canvas.font();
    font.setPixelSize(11);
    font.setWeight(QFont::Medium);
    painter.setFont(font);
    const QFontMetricsF metrics(font);
    const QSizeF size(metrics.horizontalAdvance(label) + 14, metrics.height() + 6);
    const QRectF r = m_transform.toWidget(imageRect);
    QRectF badge(QPointF(r.right() - size.width(), r.bottom() + 8), size);
    const QRectF visible = m_canvas.visibleRegion().boundingRect();
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

void CanvasPainter::drawCropFrame(QPainter& painter, const QRectF& imageRect, bool editing) {
    const QRectF image = m_transform.toWidget(QRectF(QPointF(0, 0), QSizeF(m_model.pixelSize())));
    const QRectF frame = m_transform.toWidget(imageRect);
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
        const QPointF c = m_transform.toWidget(at);
        painter.drawRoundedRect(QRectF(c - QPointF(5, 5), QSizeF(10, 10)), 2, 2);
    }
    if (editing)
        drawSizeBadge(painter, imageRect);
}

} // namespace qm
