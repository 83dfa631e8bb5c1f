#include "capture/ui/SelectionPainter.h"

#include "capture/core/SelectionModel.h"

#include <QFont>
#include <QFontMetricsF>
#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>
#include <QPalette>
#include <cmath>

namespace qm {

namespace {

constexpr double kDimAlpha = 0.35;
constexpr double kReadoutGap = 14.0;    // between the loupe and its readout pills
constexpr double kHintBottomGap = 28.0; // from the screen's bottom edge to the hint's centre

QColor accentColor() {
    return QGuiApplication::palette().color(QPalette::Highlight);
}

QColor withAlpha(QColor color, double alpha) {
    color.setAlphaF(float(alpha));
    return color;
}

QFont pillFont(bool emphasized) {
    QFont font = QGuiApplication::font();
    font.setPixelSize(emphasized ? 13 : 11);
    font.setWeight(QFont::DemiBold);
    return font;
}

QRectF pillRect(const QString& text, QPointF center, bool emphasized) {
    const QFontMetricsF metrics(pillFont(emphasized));
    const QSizeF size(metrics.horizontalAdvance(text) + 18, metrics.height() + 8);
    return {center - QPointF(size.width() / 2, size.height() / 2), size};
}

void drawPill(QPainter& painter, const QString& text, QPointF center, bool emphasized) {
    const QRectF pill = pillRect(text, center, emphasized);
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::TextAntialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(emphasized ? withAlpha(accentColor(), 0.92) : QColor(0, 0, 0, 184));
    painter.drawRoundedRect(pill, 6, 6);
    painter.setFont(pillFont(emphasized));
    painter.setPen(Qt::white);
    painter.drawText(pill, Qt::AlignCenter, text);
    painter.restore();
}

QPointF sizePillCenter(const QRectF& loupe) {
    return {loupe.center().x(), loupe.top() - kReadoutGap};
}

QPointF colorPillCenter(const QRectF& loupe) {
    return {loupe.center().x(), loupe.bottom() + kReadoutGap};
}

} // namespace

SelectionPainter::SelectionPainter(const SelectionModel& selection, int display)
    : selection_(selection)
    , display_(display) {}

QRectF SelectionPainter::screenRect() const {
    return selection_.desktop().displays[std::size_t(display_)].geometry;
}

bool SelectionPainter::hasPointer() const {
    return selection_.pointerDisplay() == display_;
}

const QImage& SelectionPainter::dimmedBackdrop() const {
    const DisplayCapture& background = selection_.desktop().displays[std::size_t(display_)];
    if (dimmedBackdrop_.isNull() && !background.image.isNull()) {
        dimmedBackdrop_ = background.image.convertToFormat(QImage::Format_RGB32);
        dimmedBackdrop_.setDevicePixelRatio(1.0);
        QPainter painter(&dimmedBackdrop_);
        painter.fillRect(dimmedBackdrop_.rect(), QColor(0, 0, 0, qRound(255 * kDimAlpha)));
        painter.end();
        dimmedBackdrop_.setDevicePixelRatio(background.scale);
    }
    return dimmedBackdrop_;
}

void SelectionPainter::drawUndimmed(QPainter& painter, const QRectF& rect) const {
    painter.save();
    painter.setClipRect(rect, Qt::IntersectClip);
    painter.drawImage(screenRect(), selection_.desktop().displays[std::size_t(display_)].image);
    painter.restore();
}

QRectF SelectionPainter::windowLabelRect() const {
    const std::optional<CapturedWindow> window = selection_.hoveredWindow();
    if (!window)
        return {};
    const QString label = selection_.windowLabel(*window);
    return selection_.windowLabelRect(*window, pillRect(label, {}, true).size());
}

QRectF SelectionPainter::hintRect() const {
    const std::optional<QString> hint = selection_.hint();
    const int pointer = selection_.pointerDisplay();
    if (!hint || pointer < 0)
        return {};
    const QRectF screen = selection_.desktop().displays[std::size_t(pointer)].geometry;
    return pillRect(*hint, QPointF(screen.center().x(), screen.bottom() - kHintBottomGap), false);
}

void SelectionPainter::drawWindowHighlight(QPainter& painter, const CapturedWindow& window) const {
    const QRectF area = window.frame.intersected(screenRect());
    if (!area.isEmpty()) {
        const QColor accent = accentColor();
        drawUndimmed(painter, area);
        painter.fillRect(area, withAlpha(accent, 0.18));
        painter.save();
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(QPen(accent, 2.0));
        painter.setBrush(Qt::NoBrush);
        painter.drawRect(area.adjusted(1, 1, -1, -1));
        painter.restore();
    }
    const QRectF label = windowLabelRect();
    if (label.intersects(screenRect()))
        drawPill(painter, selection_.windowLabel(window), label.center(), true);
}

void SelectionPainter::drawArea(QPainter& painter) const {
    const QRectF area = selection_.currentRect();
    if (area.isEmpty())
        return;
    drawUndimmed(painter, area.intersected(screenRect()));
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(accentColor(), 1.5));
    painter.setBrush(Qt::NoBrush);
    painter.drawRect(area);
    painter.setPen(QPen(accentColor(), 1.0));
    painter.setBrush(Qt::white);
    for (const QRectF& handle : selection_.handleRects())
        painter.drawRect(handle);
    painter.restore();
}
void SelectionPainter::drawLoupe(QPainter& painter) const {
    const QRectF loupe = selection_.loupeRect();
    if (loupe.isEmpty())
        return;
    const DisplayCapture& background = selection_.desktop().displays[std::size_t(display_)];
    const double diameter = SelectionModel::loupeDiameter;
    const QPointF center = loupe.center();
    const QColor accent = accentColor();
    const double scale = background.scale > 0 ? background.scale : 1.0;
    // One source pixel becomes this many points: 8 device pixels at any scale, so the
    // magnified pixels and the grid stay crisp.
    const double cell = SelectionModel::magnification / scale;
    const QPoint pixel = selection_.pixelUnderPointer();

    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath circle;
    circle.addEllipse(loupe);
    painter.setClipPath(circle, Qt::IntersectClip);
    painter.fillRect(loupe, Qt::black);

    // The pixel under the pointer sits in the centre cell; pixels past the picture's edge are
    // left black.
    const int reach = int(std::ceil(diameter / 2 / cell)) + 1;
    QImage source =
        background.image.copy(pixel.x() - reach, pixel.y() - reach, 2 * reach + 1, 2 * reach + 1);
    source.setDevicePixelRatio(1.0);
    const QPointF firstCell = center - QPointF(cell / 2, cell / 2) - QPointF(reach, reach) * cell;
    painter.save();
    painter.setRenderHint(QPainter::SmoothPixmapTransform, false);
    painter.translate(firstCell);
    painter.scale(cell, cell);
    painter.drawImage(QPointF(0, 0), source);
    painter.restore();

    // Grid on the pixel boundaries.
    painter.setRenderHint(QPainter::Antialiasing, false);
    painter.setPen(QPen(QColor(255, 255, 255, qRound(255 * 0.12)), 0.5));
    const double firstLine = -cell / 2 - std::floor((diameter / 2 - cell / 2) / cell) * cell;
    for (double offset = firstLine; offset <= diameter / 2; offset += cell) {
        painter.drawLine(QPointF(center.x() + offset, loupe.top()),
                         QPointF(center.x() + offset, loupe.bottom()));
        painter.drawLine(QPointF(loupe.left(), center.y() + offset),
                         QPointF(loupe.right(), center.y() + offset));
    }

    // The centre cell: the pixel the readout describes. Its 1.5-point frame straddles the
    // cell's edges on whole device pixels, so it stays sharp at any scale.
    const QRectF centreCell(center - QPointF(cell / 2, cell / 2), QSizeF(cell, cell));
    const double frame = std::max(1.0, std::round(1.5 * scale));
    const double outside = std::ceil(frame / 2) / scale;
    const double inside = std::floor(frame / 2) / scale;
    QPainterPath ring;
    ring.setFillRule(Qt::OddEvenFill);
    ring.addRect(centreCell.adjusted(-outside, -outside, outside, outside));
    ring.addRect(centreCell.adjusted(inside, inside, -inside, -inside));
    painter.fillPath(ring, accent);
    painter.restore();

    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(QColor(255, 255, 255, qRound(255 * 0.85)), 2.0));
    painter.setBrush(Qt::NoBrush);
    painter.drawEllipse(loupe);
    painter.restore();

    drawReadouts(painter, loupe);
}

void SelectionPainter::drawReadouts(QPainter& painter, const QRectF& loupe) const {
    if (const std::optional<QString> size = selection_.sizeReadout())
        drawPill(painter, *size, sizePillCenter(loupe), false);
    drawPill(painter, selection_.colorReadout(), colorPillCenter(loupe), false);
}

QRegion SelectionPainter::overlayRegion() const {
    QRegion region;
    const QPointF origin = screenRect().topLeft();
    const auto add = [&](const QRectF& r) {
        if (!r.isEmpty())
            region += r.translated(-origin).toAlignedRect().adjusted(-3, -3, 3, 3);
    };
    if (selection_.isDragging() || selection_.isAdjusting()) {
        add(selection_.currentRect().adjusted(
            -SelectionModel::handleSize, -SelectionModel::handleSize, SelectionModel::handleSize,
            SelectionModel::handleSize));
    } else if (const std::optional<CapturedWindow> window = selection_.hoveredWindow()) {
        add(window->frame.intersected(screenRect()));
        add(windowLabelRect());
    }
    if (hasPointer()) {
        const QRectF loupe = selection_.loupeRect();
        if (!loupe.isEmpty()) {
            add(loupe);
            if (const std::optional<QString> size = selection_.sizeReadout())
                add(pillRect(*size, sizePillCenter(loupe), false));
            add(pillRect(selection_.colorReadout(), colorPillCenter(loupe), false));
        }
        add(hintRect());
    }
    return region;
}

void SelectionPainter::paint(QPainter& painter) const {
    // Everything is drawn in global points; the view shows its own screen's part.
    painter.translate(-screenRect().topLeft());
    const QImage& backdrop = dimmedBackdrop();
    if (!backdrop.isNull())
        painter.drawImage(screenRect(), backdrop);
    else
        painter.fillRect(screenRect(), Qt::black);

    if (selection_.isDragging() || selection_.isAdjusting())
        drawArea(painter);
    else if (const std::optional<CapturedWindow> window = selection_.hoveredWindow())
        drawWindowHighlight(painter, *window);
    if (hasPointer()) {
        drawLoupe(painter);
        if (const std::optional<QString> hint = selection_.hint())
            drawPill(painter, *hint, hintRect().center(), false);
    }
}

} // namespace qm
