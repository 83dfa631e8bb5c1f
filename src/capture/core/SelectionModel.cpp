#include "capture/core/SelectionModel.h"

#include <algorithm>
#include <cmath>

namespace qm {

namespace {
// Clamps without asserting when the range is empty (a view narrower than the margins).
double clampInto(double value, double low, double high) {
    return std::max(low, std::min(value, high));
}
} // namespace

SelectionModel::SelectionModel(DisplayCapture background, QString verb)
    : background_(std::move(background))
    , verb_(verb.isEmpty() ? QStringLiteral("Capture") : std::move(verb)) {}

void SelectionModel::move(QPointF point) {
    mousePoint_ = point;
    if (!mouseDownPoint_)
        return;
    if (!isDragging_) {
        const QPointF delta = point - *mouseDownPoint_;
        if (std::hypot(delta.x(), delta.y()) <= dragThreshold)
            return;
        isDragging_ = true;
    }
    currentRect_ = QRectF(QPointF(std::min(mouseDownPoint_->x(), point.x()),
                                  std::min(mouseDownPoint_->y(), point.y())),
                          QPointF(std::max(mouseDownPoint_->x(), point.x()),
                                  std::max(mouseDownPoint_->y(), point.y())));
}

void SelectionModel::press(QPointF point) {
    mousePoint_ = point;
    mouseDownPoint_ = point;
    clickedWindow_ = hoveredWindow();
    currentRect_ = QRectF();
    isDragging_ = false;
}

std::optional<SelectionResult> SelectionModel::release(QPointF point) {
    if (!mouseDownPoint_)
        return std::nullopt;
    // The release may carry a position no motion reported yet.
    move(point);
    std::optional<SelectionResult> result;
    if (isDragging_ && currentRect_.width() >= minimumSide && currentRect_.height() >= minimumSide)
        result = SelectionResult(currentRect_.translated(screenOrigin()));
    else if (clickedWindow_) // a click, or a drag too small to mean a region
        result = SelectionResult(*clickedWindow_);
    mouseDownPoint_.reset();
    clickedWindow_.reset();
    isDragging_ = false;
    return result;
}

std::optional<CapturedWindow> SelectionModel::hoveredWindow() const {
    const QPointF global = mousePoint_ + screenOrigin();
    for (const CapturedWindow& window : background_.windows)
        if (window.frame.contains(global))
            return window;
    return std::nullopt;
}

QString SelectionModel::windowLabel(const CapturedWindow& window) const {
    if (window.appName && !window.appName->isEmpty())
        return verb_ + QLatin1Char(' ') + *window.appName + QStringLiteral(" Window");
    return verb_ + QStringLiteral(" Window");
}

QRectF SelectionModel::loupeRect() const {
    if (background_.image.isNull())
        return {};
    const QSizeF view = viewSize();
    const QPointF center(
        clampInto(mousePoint_.x(), loupeEdgeMargin, view.width() - loupeEdgeMargin),
        clampInto(mousePoint_.y(), loupeEdgeMargin, view.height() - loupeEdgeMargin));
    return {center - QPointF(loupeDiameter / 2, loupeDiameter / 2),
            QSizeF(loupeDiameter, loupeDiameter)};
}

QPoint SelectionModel::pixelUnderPointer() const {
    const double scale = background_.scale;
    const int maxX = std::max(0, background_.image.width() - 1);
    const int maxY = std::max(0, background_.image.height() - 1);
    return {std::clamp(int(std::lround(mousePoint_.x() * scale)), 0, maxX),
            std::clamp(int(std::lround(mousePoint_.y() * scale)), 0, maxY)};
}

QString SelectionModel::colorReadout() const {
    const QPoint pixel = pixelUnderPointer();
    const QColor color = background_.color(pixel.x(), pixel.y()).value_or(QColor(Qt::black));
    return QStringLiteral("#%1%2%3 · %4, %5")
        .arg(color.red(), 2, 16, QLatin1Char('0'))
        .arg(color.green(), 2, 16, QLatin1Char('0'))
        .arg(color.blue(), 2, 16, QLatin1Char('0'))
        .toUpper()
        .arg(pixel.x())
        .arg(pixel.y());
}

std::optional<QString> SelectionModel::sizeReadout() const {
    if (!isDragging_ || currentRect_.isEmpty())
        return std::nullopt;
    // Rounded rather than truncated: at 1.5× a 150-pixel drag is 99.999… points.
    const double scale = background_.scale;
    return QStringLiteral("%1 × %2")
        .arg(std::lround(currentRect_.width() * scale))
        .arg(std::lround(currentRect_.height() * scale));
}

} // namespace qm
