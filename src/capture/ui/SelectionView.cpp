#include "capture/ui/SelectionView.h"

#include "base/Log.h"

#include <QFontMetricsF>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPalette>
#include <QWindow>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <xcb/xcb.h>

namespace qm {

namespace {

constexpr double kDimAlpha = 0.35;
constexpr double kReadoutGap = 14.0; // between the loupe and its readout pills

// The pointer's position in a window's device pixels, asked of the X server.
std::optional<QPoint> pointerInWindow(WId window) {
    const auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    if (!x11 || !x11->connection())
        return std::nullopt;
    xcb_connection_t* connection = x11->connection();
    const std::unique_ptr<xcb_query_pointer_reply_t, decltype(&std::free)> reply(
        xcb_query_pointer_reply(connection, xcb_query_pointer(connection, xcb_window_t(window)),
                                nullptr),
        &std::free);
    if (!reply || !reply->same_screen)
        return std::nullopt;
    return QPoint(reply->win_x, reply->win_y);
}

QColor accentColor() {
    return QGuiApplication::palette().color(QPalette::Highlight);
}

QColor withAlpha(QColor color, double alpha) {
    color.setAlphaF(float(alpha));
    return color;
}

// Clamps without asserting when the range is empty (a view narrower than the margins).
double clampInto(double value, double low, double high) {
    return std::max(low, std::min(value, high));
}

QFont pillFont(bool emphasized) {
    QFont font = QGuiApplication::font();
    font.setPixelSize(emphasized ? 13 : 11);
    font.setWeight(QFont::DemiBold);
    return font;
}

} // namespace

SelectionView::SelectionView(DisplayCapture background, QString verb, FinishCallback onFinish)
    : QWidget(nullptr, Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                           Qt::X11BypassWindowManagerHint | Qt::NoDropShadowWindowHint)
    , background_(std::move(background))
    , windows_(background_.windows)
    , verb_(verb.isEmpty() ? QStringLiteral("Capture") : std::move(verb))
    , onFinish_(std::move(onFinish)) {
    setObjectName(QStringLiteral("SelectionView"));
    setWindowTitle(QStringLiteral("Quillmark Selection"));
    // The frozen picture covers every pixel, so nothing underneath needs clearing.
    setAttribute(Qt::WA_OpaquePaintEvent);
    setAttribute(Qt::WA_NoSystemBackground);
    // A tray program has no main window; the overlay closing must not end it.
    setAttribute(Qt::WA_QuitOnClose, false);
    setMouseTracking(true);
    setFocusPolicy(Qt::StrongFocus);
    setCursor(Qt::CrossCursor);
    setGeometry(background_.geometry.toAlignedRect());
    mousePoint_ = QCursor::pos() - screenOrigin();

    // Grabs only succeed once the window is viewable, and another client may hold a grab for
    // a moment (a menu closing, the shortcut still held): retry briefly.
    grabTimer_.setInterval(20);
    connect(&grabTimer_, &QTimer::timeout, this, &SelectionView::tryGrabInput);
}

SelectionView::~SelectionView() {
    releaseInput();
}

std::optional<CapturedWindow> SelectionView::hoveredWindow() const {
    const QPointF global = mousePoint_ + screenOrigin();
    for (const CapturedWindow& window : windows_)
        if (window.frame.contains(global))
            return window;
    return std::nullopt;
}

QString SelectionView::windowLabel(const CapturedWindow& window) const {
    if (window.appName && !window.appName->isEmpty())
        return verb_ + QLatin1Char(' ') + *window.appName + QStringLiteral(" Window");
    return verb_ + QStringLiteral(" Window");
}

QRectF SelectionView::loupeRect() const {
    if (background_.image.isNull())
        return {};
    const QPointF center(clampInto(mousePoint_.x(), loupeEdgeMargin, width() - loupeEdgeMargin),
                         clampInto(mousePoint_.y(), loupeEdgeMargin, height() - loupeEdgeMargin));
    return {center - QPointF(loupeDiameter / 2, loupeDiameter / 2),
            QSizeF(loupeDiameter, loupeDiameter)};
}

QPoint SelectionView::pixelUnderPointer() const {
    const double scale = background_.scale;
    const int maxX = std::max(0, background_.image.width() - 1);
    const int maxY = std::max(0, background_.image.height() - 1);
    return {std::clamp(int(std::lround(mousePoint_.x() * scale)), 0, maxX),
            std::clamp(int(std::lround(mousePoint_.y() * scale)), 0, maxY)};
}

QString SelectionView::colorReadout() const {
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

std::optional<QString> SelectionView::sizeReadout() const {
    if (!isDragging_ || currentRect_.isEmpty())
        return std::nullopt;
    // Rounded rather than truncated: at 1.5× a 150-pixel drag is 99.999… points.
    const double scale = background_.scale;
    return QStringLiteral("%1 × %2")
        .arg(std::lround(currentRect_.width() * scale))
        .arg(std::lround(currentRect_.height() * scale));
}

void SelectionView::cancel() {
    finish(std::nullopt);
}

void SelectionView::finish(std::optional<SelectionResult> result) {
    if (finished_)
        return;
    finished_ = true;
    releaseInput();
    if (onFinish_)
        onFinish_(std::move(result));
}

void SelectionView::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    grabAttempts_ = 0;
    grabTimer_.start();
    tryGrabInput();
}

void SelectionView::hideEvent(QHideEvent* event) {
    releaseInput();
    QWidget::hideEvent(event);
}

void SelectionView::tryGrabInput() {
    QWindow* window = windowHandle();
    if (grabbed_ || finished_ || !window || !window->isExposed()) {
        if (!grabbed_ && ++grabAttempts_ > 150)
            grabTimer_.stop();
        return;
    }
    // Focus first, so keys that slip past the grab still land here.
    activateWindow();
    setFocus(Qt::ActiveWindowFocusReason);
    // The QWidget calls route Qt's own delivery to this view; the window calls tell whether
    // the X server granted the grabs.
    grabKeyboard();
    grabMouse(Qt::CrossCursor);
    const bool keyboard = window->setKeyboardGrabEnabled(true);
    const bool pointer = window->setMouseGrabEnabled(true);
    if (keyboard && pointer) {
        grabbed_ = true;
        grabTimer_.stop();
    } else if (++grabAttempts_ > 150) {
        grabTimer_.stop();
        qCWarning(lcCapture).noquote()
            << QStringLiteral("Quillmark capture error: another program holds the %1")
                   .arg(keyboard ? QStringLiteral("pointer") : QStringLiteral("keyboard"));
    }
}

void SelectionView::releaseInput() {
    grabTimer_.stop();
    if (QWidget::keyboardGrabber() == this)
        releaseKeyboard();
    if (QWidget::mouseGrabber() == this)
        releaseMouse();
    grabbed_ = false;
}

void SelectionView::changeState(const std::function<void()>& change) {
    const QRegion before = overlayRegion();
    change();
    update(before + overlayRegion());
}

void SelectionView::pointerMoved(QPointF point) {
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

QPointF SelectionView::viewPoint(const QMouseEvent* event) const {
    const QPointF reported = event->globalPosition() - screenOrigin();
    QWindow* window = windowHandle();
    if (!window || window->devicePixelRatio() == 1.0)
        return reported;
    // Qt rounds pointer positions to whole points, so on a scaled screen every other pixel
    // could not be pointed at. The server knows the exact pixel; it is used unless the
    // pointer has moved on since this event.
    const std::optional<QPoint> device = pointerInWindow(winId());
    if (!device)
        return reported;
    const QPointF exact = QPointF(*device) / window->devicePixelRatio();
    const QPointF difference = exact - reported;
    return std::abs(difference.x()) <= 0.5 && std::abs(difference.y()) <= 0.5 ? exact : reported;
}

void SelectionView::mouseMoveEvent(QMouseEvent* event) {
    changeState([&] { pointerMoved(viewPoint(event)); });
}

void SelectionView::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton)
        return;
    changeState([&] {
        mousePoint_ = viewPoint(event);
        mouseDownPoint_ = mousePoint_;
        clickedWindow_ = hoveredWindow();
        currentRect_ = QRectF();
        isDragging_ = false;
    });
}

void SelectionView::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || !mouseDownPoint_)
        return;
    // The release may carry a position no motion event reported yet.
    changeState([&] { pointerMoved(viewPoint(event)); });
    std::optional<SelectionResult> result;
    if (isDragging_ && currentRect_.width() >= minimumSide && currentRect_.height() >= minimumSide)
        result = SelectionResult(currentRect_.translated(screenOrigin()));
    else if (clickedWindow_) // a click, or a drag too small to mean a region
        result = SelectionResult(*clickedWindow_);
    mouseDownPoint_.reset();
    clickedWindow_.reset();
    isDragging_ = false;
    finish(std::move(result));
}

void SelectionView::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape) {
        finish(std::nullopt);
        return;
    }
    QWidget::keyPressEvent(event);
}

const QImage& SelectionView::dimmedBackdrop() const {
    if (dimmedBackdrop_.isNull() && !background_.image.isNull()) {
        dimmedBackdrop_ = background_.image.convertToFormat(QImage::Format_RGB32);
        dimmedBackdrop_.setDevicePixelRatio(1.0);
        QPainter painter(&dimmedBackdrop_);
        painter.fillRect(dimmedBackdrop_.rect(), QColor(0, 0, 0, qRound(255 * kDimAlpha)));
        painter.end();
        dimmedBackdrop_.setDevicePixelRatio(background_.scale);
    }
    return dimmedBackdrop_;
}

void SelectionView::drawUndimmed(QPainter& painter, const QRectF& rect) const {
    painter.save();
    painter.setClipRect(rect, Qt::IntersectClip);
    painter.drawImage(QRectF(this->rect()), background_.image);
    painter.restore();
}

QRectF SelectionView::windowHighlightRect(const CapturedWindow& window) const {
    return window.frame.translated(-screenOrigin()).intersected(QRectF(rect()));
}

void SelectionView::drawWindowHighlight(QPainter& painter, const CapturedWindow& window) const {
    const QRectF area = windowHighlightRect(window);
    if (area.isEmpty())
        return;
    const QColor accent = accentColor();
    drawUndimmed(painter, area);
    painter.fillRect(area, withAlpha(accent, 0.18));
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(accent, 2.0));
    painter.setBrush(Qt::NoBrush);
    painter.drawRect(area.adjusted(1, 1, -1, -1));
    painter.restore();
    drawPill(painter, windowLabel(window), area.center(), true);
}

void SelectionView::drawLoupe(QPainter& painter) const {
    const QRectF loupe = loupeRect();
    if (loupe.isEmpty())
        return;
    const QPointF center = loupe.center();
    const QColor accent = accentColor();
    const double scale = background_.scale > 0 ? background_.scale : 1.0;
    // One source pixel becomes this many points: 8 device pixels at any scale, so the
    // magnified pixels and the grid stay crisp.
    const double cell = magnification / scale;
    const QPoint pixel = pixelUnderPointer();

    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath circle;
    circle.addEllipse(loupe);
    painter.setClipPath(circle, Qt::IntersectClip);
    painter.fillRect(loupe, Qt::black);

    // The pixel under the pointer sits in the centre cell; pixels past the picture's edge are
    // left black.
    const int reach = int(std::ceil(loupeDiameter / 2 / cell)) + 1;
    QImage source =
        background_.image.copy(pixel.x() - reach, pixel.y() - reach, 2 * reach + 1, 2 * reach + 1);
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
    const double firstLine = -cell / 2 - std::floor((loupeDiameter / 2 - cell / 2) / cell) * cell;
    for (double offset = firstLine; offset <= loupeDiameter / 2; offset += cell) {
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

void SelectionView::drawReadouts(QPainter& painter, const QRectF& loupe) const {
    if (const std::optional<QString> size = sizeReadout())
        drawPill(painter, *size, QPointF(loupe.center().x(), loupe.top() - kReadoutGap), false);
    drawPill(painter, colorReadout(), QPointF(loupe.center().x(), loupe.bottom() + kReadoutGap),
             false);
}

QRectF SelectionView::pillRect(const QString& text, QPointF center, bool emphasized) const {
    const QFontMetricsF metrics(pillFont(emphasized));
    const QSizeF size(metrics.horizontalAdvance(text) + 18, metrics.height() + 8);
    return {center - QPointF(size.width() / 2, size.height() / 2), size};
}

void SelectionView::drawPill(QPainter& painter, const QString& text, QPointF center,
                             bool emphasized) const {
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

QRegion SelectionView::overlayRegion() const {
    QRegion region;
    const auto add = [&](const QRectF& r) {
        if (!r.isEmpty())
            region += r.toAlignedRect().adjusted(-3, -3, 3, 3);
    };
    if (isDragging_) {
        add(currentRect_);
    } else if (const std::optional<CapturedWindow> window = hoveredWindow()) {
        const QRectF area = windowHighlightRect(*window);
        add(area);
        add(pillRect(windowLabel(*window), area.center(), true));
    }
    const QRectF loupe = loupeRect();
    if (!loupe.isEmpty()) {
        add(loupe);
        if (const std::optional<QString> size = sizeReadout())
            add(pillRect(*size, QPointF(loupe.center().x(), loupe.top() - kReadoutGap), false));
        add(pillRect(colorReadout(), QPointF(loupe.center().x(), loupe.bottom() + kReadoutGap),
                     false));
    }
    return region;
}

void SelectionView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    const QImage& backdrop = dimmedBackdrop();
    if (!backdrop.isNull()) {
        painter.drawImage(QRectF(rect()), backdrop);
    } else {
        painter.fillRect(rect(), Qt::black);
    }

    if (!isDragging_) {
        if (const std::optional<CapturedWindow> window = hoveredWindow())
            drawWindowHighlight(painter, *window);
    } else if (!currentRect_.isEmpty()) {
        drawUndimmed(painter, currentRect_);
        painter.save();
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(QPen(accentColor(), 1.5));
        painter.setBrush(Qt::NoBrush);
        painter.drawRect(currentRect_);
        painter.restore();
    }
    drawLoupe(painter);
}

} // namespace qm
