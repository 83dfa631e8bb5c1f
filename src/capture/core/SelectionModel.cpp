#include "capture/core/SelectionModel.h"

#include "capture/core/FrozenDesktop.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace qm {

namespace {

constexpr int kTitleLength = 60; // longer titles are cut with an ellipsis
constexpr double kLabelInset = 10.0;
constexpr double kEdgeGap = 24.0;

// Clamps without asserting when the range is empty (a view narrower than the margins).
double clampInto(double value, double low, double high) {
    return std::max(low, std::min(value, high));
}

FrozenDesktop desktopOf(DisplayCapture background) {
    FrozenDesktop desktop;
    desktop.windows = std::move(background.windows);
    background.windows.clear();
    desktop.displays.push_back(std::move(background));
    return desktop;
}

QRectF centredOn(QPointF centre, QSizeF size) {
    return {centre - QPointF(size.width() / 2, size.height() / 2), size};
}

} // namespace

SelectionModel::SelectionModel(FrozenDesktop desktop, QString verb, bool adjustBeforeCapturing)
    : desktop_(std::move(desktop))
    , verb_(verb.isEmpty() ? QStringLiteral("Capture") : std::move(verb))
    , adjustBeforeCapturing_(adjustBeforeCapturing)
    , pointerDisplay_(desktop_.displays.empty() ? -1 : 0) {}

SelectionModel::SelectionModel(DisplayCapture background, QString verb, bool adjustBeforeCapturing)
    : SelectionModel(desktopOf(std::move(background)), std::move(verb), adjustBeforeCapturing) {}

QRectF SelectionModel::spanned(QPointF from, QPointF to) const {
    if (isSquare_) {
        const double dx = to.x() - from.x();
        const double dy = to.y() - from.y();
        const double side = std::max(std::abs(dx), std::abs(dy));
        to = from + QPointF(dx < 0 ? -side : side, dy < 0 ? -side : side);
    }
    return QRectF(QPointF(std::min(from.x(), to.x()), std::min(from.y(), to.y())),
                  QPointF(std::max(from.x(), to.x()), std::max(from.y(), to.y())));
}

void SelectionModel::updateRect() {
    if (mouseDownPoint_ && isDragging_)
        currentRect_ = spanned(*mouseDownPoint_, mousePoint_);
}

void SelectionModel::move(QPointF point) {
    const QPointF delta = point - mousePoint_;
    mousePoint_ = point;
    pointerDisplay_ = desktop_.displayAt(point);
    if (!mouseDownPoint_)
        return;
    if (isAdjusting_ && grabbed_ != Handle::None) {
        currentRect_ = resized(grabbed_, point - *mouseDownPoint_);
        return;
    }
    // Moving takes the corner the drag started from along, so the whole area travels.
    if (isMoving_)
        *mouseDownPoint_ += delta;
    if (!isDragging_) {
        const QPointF distance = point - *mouseDownPoint_;
        if (std::hypot(distance.x(), distance.y()) <= dragThreshold)
            return;
        isDragging_ = true;
    }
    updateRect();
}

void SelectionModel::press(QPointF point) {
    mousePoint_ = point;
    pointerDisplay_ = desktop_.displayAt(point);
    mouseDownPoint_ = point;
    isDragging_ = false;
    if (isAdjusting_) {
        grabbed_ = handleAt(point);
        rectAtPress_ = currentRect_;
        return;
    }
    clickedWindow_ = hoveredWindow();
    currentRect_ = QRectF();
}

std::optional<SelectionResult> SelectionModel::release(QPointF point) {
    if (!mouseDownPoint_)
        return std::nullopt;
    // The release may carry a position no motion reported yet.
    move(point);
    const bool region =
        isDragging_ && currentRect_.width() >= minimumSide && currentRect_.height() >= minimumSide;
    std::optional<SelectionResult> result;
    if (isAdjusting_) {
        // A click or a small drag beside the area keeps it as it was.
        if (grabbed_ == Handle::None && !region)
            currentRect_ = rectAtPress_;
    } else if (region) {
        if (adjustBeforeCapturing_)
            isAdjusting_ = true;
        else
            result = SelectionResult(currentRect_);
    } else if (clickedWindow_) { // a click, or a drag too small to mean a region
        result = SelectionResult(*clickedWindow_);
    }
    mouseDownPoint_.reset();
    clickedWindow_.reset();
    isDragging_ = false;
    grabbed_ = Handle::None;
    return result;
}

std::optional<SelectionResult> SelectionModel::confirm() const {
    if (!isAdjusting_ || currentRect_.isEmpty())
        return std::nullopt;
    return SelectionResult(currentRect_);
}

void SelectionModel::setSquare(bool square) {
    isSquare_ = square;
    if (!isAdjusting_ || grabbed_ == Handle::None)
        updateRect();
}

double SelectionModel::pixelStep() const {
    const bool movesArea = isAdjusting_ && !mouseDownPoint_;
    const int display = movesArea ? desktop_.displayAt(currentRect_.center()) : pointerDisplay_;
    if (display < 0)
        return 1.0;
    const double scale = desktop_.displays[std::size_t(display)].scale;
    return scale > 0 ? 1.0 / scale : 1.0;
}

QPointF SelectionModel::nudge(QPoint pixels) {
    const QPointF offset = QPointF(pixels) * pixelStep();
    if (isAdjusting_ && !mouseDownPoint_) {
        currentRect_.translate(offset);
        return mousePoint_;
    }
    QPointF target = mousePoint_ + offset;
    const int here = desktop_.displayAt(target);
    if (here >= 0) {
        // The pointer cannot leave the monitors: it stops on the last pixel of the one it is on.
        const QRectF screen = desktop_.displays[std::size_t(here)].geometry;
        const double step = pixelStep();
        target = QPointF(clampInto(target.x(), screen.left(), screen.right() - step),
                         clampInto(target.y(), screen.top(), screen.bottom() - step));
    }
    move(target);
    return mousePoint_;
}

std::vector<QRectF> SelectionModel::handleRects() const {
    if (!isAdjusting_)
        return {};
    const QRectF r = currentRect_;
    const std::array<QPointF, 8> points{r.topLeft(),     QPointF(r.center().x(), r.top()),
                                        r.topRight(),    QPointF(r.right(), r.center().y()),
                                        r.bottomRight(), QPointF(r.center().x(), r.bottom()),
                                        r.bottomLeft(),  QPointF(r.left(), r.center().y())};
    std::vector<QRectF> squares;
    for (const QPointF& point : points)
        squares.push_back(centredOn(point, QSizeF(handleSize, handleSize)));
    return squares;
}

SelectionModel::Handle SelectionModel::handleAt(QPointF point) const {
    const std::vector<QRectF> squares = handleRects();
    for (std::size_t i = 0; i < squares.size(); ++i) {
        const QPointF d = point - squares[i].center();
        if (std::abs(d.x()) <= handleReach && std::abs(d.y()) <= handleReach)
            return Handle(int(i) + 1);
    }
    if (isAdjusting_ && currentRect_.contains(point))
        return Handle::Inside;
    return Handle::None;
}

QRectF SelectionModel::resized(Handle handle, QPointF delta) const {
    QRectF r = rectAtPress_;
    switch (handle) {
    case Handle::Inside:
        return r.translated(delta);
    case Handle::TopLeft:
        r.setTopLeft(r.topLeft() + delta);
        break;
    case Handle::Top:
        r.setTop(r.top() + delta.y());
        break;
    case Handle::TopRight:
        r.setTopRight(r.topRight() + delta);
        break;
    case Handle::Right:
        r.setRight(r.right() + delta.x());
        break;
    case Handle::BottomRight:
        r.setBottomRight(r.bottomRight() + delta);
        break;
    case Handle::Bottom:
        r.setBottom(r.bottom() + delta.y());
        break;
    case Handle::BottomLeft:
        r.setBottomLeft(r.bottomLeft() + delta);
        break;
    case Handle::Left:
        r.setLeft(r.left() + delta.x());
        break;
    case Handle::None:
        break;
    }
    // An edge dragged past the opposite one turns the area over rather than emptying it.
    return r.normalized();
}

std::optional<CapturedWindow> SelectionModel::hoveredWindow() const {
    if (isDragging_ || isAdjusting_)
        return std::nullopt;
    for (const CapturedWindow& window : desktop_.windows)
        if (window.frame.contains(mousePoint_))
            return window;
    return std::nullopt;
}

QString SelectionModel::windowLabel(const CapturedWindow& window) const {
    if (window.title && !window.title->isEmpty()) {
        QString title = *window.title;
        if (title.size() > kTitleLength)
            title = title.left(kTitleLength - 1).trimmed() + QChar(0x2026);
        return verb_ + QStringLiteral(" \u201C") + title + QStringLiteral("\u201D");
    }
    if (window.appName && !window.appName->isEmpty())
        return verb_ + QLatin1Char(' ') + *window.appName + QStringLiteral(" Window");
    return verb_ + QStringLiteral(" Window");
}

QRectF SelectionModel::windowLabelRect(const CapturedWindow& window, QSizeF size) const {
    const QRectF screen = pointerDisplay_ >= 0
                              ? desktop_.displays[std::size_t(pointerDisplay_)].geometry
                              : window.frame;
    QRectF area = window.frame.intersected(screen);
    if (area.isEmpty())
        area = window.frame;
    const QRectF avoid = loupeZone();
    const double h = size.height();
    const double x = area.center().x();
    const std::array<QPointF, 5> centres{area.center(),
                                         QPointF(x, area.top() + kLabelInset + h / 2),
                                         QPointF(x, area.bottom() - kLabelInset - h / 2),
                                         QPointF(x, area.top() - kLabelInset - h / 2),
                                         QPointF(x, area.bottom() + kLabelInset + h / 2)};
    const auto keptOnScreen = [&](QPointF centre) {
        const double half = size.width() / 2;
        centre.setX(clampInto(centre.x(), screen.left() + half, screen.right() - half));
        return centredOn(centre, size);
    };
    for (const QPointF& centre : centres) {
        const QRectF label = keptOnScreen(centre);
        if (screen.contains(label) && (avoid.isEmpty() || !label.intersects(avoid)))
            return label;
    }
    // A window too small for any of those: the screen edge farther from the loupe.
    const bool loupeHigh = avoid.center().y() < screen.center().y();
    return keptOnScreen(QPointF(x, loupeHigh ? screen.bottom() - kEdgeGap - h / 2
                                             : screen.top() + kEdgeGap + h / 2));
}

QRectF SelectionModel::loupeRect() const {
    if (pointerDisplay_ < 0)
        return {};
    const DisplayCapture& display = desktop_.displays[std::size_t(pointerDisplay_)];
    if (display.image.isNull())
        return {};
    const QRectF screen = display.geometry;
    const QPointF centre(clampInto(mousePoint_.x(), screen.left() + loupeEdgeMargin,
                                   screen.right() - loupeEdgeMargin),
                         clampInto(mousePoint_.y(), screen.top() + loupeEdgeMargin,
                                   screen.bottom() - loupeEdgeMargin));
    return centredOn(centre, QSizeF(loupeDiameter, loupeDiameter));
}

QRectF SelectionModel::loupeZone() const {
    const QRectF loupe = loupeRect();
    // The readout pills sit 14 points above and below and may be wider than the loupe.
    return loupe.isEmpty() ? loupe : loupe.adjusted(-24, -32, 24, 32);
}

QPoint SelectionModel::pixelUnderPointer() const {
    if (pointerDisplay_ < 0)
        return {};
    const DisplayCapture& display = desktop_.displays[std::size_t(pointerDisplay_)];
    const QPointF local = mousePoint_ - display.geometry.topLeft();
    const int maxX = std::max(0, display.image.width() - 1);
    const int maxY = std::max(0, display.image.height() - 1);
    return {std::clamp(int(std::lround(local.x() * display.scale)), 0, maxX),
            std::clamp(int(std::lround(local.y() * display.scale)), 0, maxY)};
}

QString SelectionModel::colorReadout() const {
    const QPoint pixel = pixelUnderPointer();
    QColor color(Qt::black);
    if (pointerDisplay_ >= 0)
        color = desktop_.displays[std::size_t(pointerDisplay_)]
                    .color(pixel.x(), pixel.y())
                    .value_or(QColor(Qt::black));
    return QStringLiteral("#%1%2%3 · %4, %5")
        .arg(color.red(), 2, 16, QLatin1Char('0'))
        .arg(color.green(), 2, 16, QLatin1Char('0'))
        .arg(color.blue(), 2, 16, QLatin1Char('0'))
        .toUpper()
        .arg(pixel.x())
        .arg(pixel.y());
}

std::optional<QString> SelectionModel::sizeReadout() const {
    if (!(isDragging_ || isAdjusting_) || currentRect_.isEmpty())
        return std::nullopt;
    // The size of the picture the capture will hold, across monitors and their scales.
    const auto plan = planDesktopCrop(desktop_, currentRect_);
    if (!plan)
        return std::nullopt;
    return QStringLiteral("%1 × %2").arg(plan->size.width()).arg(plan->size.height());
}

std::optional<QString> SelectionModel::hint() const {
    if (!hintPinned_ && !hintKeyHeld_)
        return std::nullopt;
    if (isAdjusting_)
        return QStringLiteral("Drag the area or its handles · Arrows: move 1 px (Shift: 10 px) · "
                              "Enter or double-click: capture · Esc: cancel");
    return QStringLiteral("Drag to select · Space: move · Shift: square · "
                          "Arrows: 1 px (Shift: 10 px) · Esc: cancel");
}

} // namespace qm
