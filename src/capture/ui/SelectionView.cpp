#include "capture/ui/SelectionView.h"

#include "base/Log.h"
#include "platform/surface/api/SurfaceBackend.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QWindow>
#include <cmath>

namespace qm {

SelectionView::SelectionView(DisplayCapture background, QString verb,
                             platform::SurfaceBackend& surface, FinishCallback onFinish)
    : QWidget(nullptr, Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                           Qt::X11BypassWindowManagerHint | Qt::NoDropShadowWindowHint)
    , selection_(std::move(background), std::move(verb))
    , surface_(surface)
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
    setGeometry(selection_.background().geometry.toAlignedRect());
    selection_.move(QCursor::pos() - selection_.screenOrigin());

    // Grabs only succeed once the window is viewable, and another client may hold a grab for
    // a moment (a menu closing, the shortcut still held): retry briefly.
    grabTimer_.setInterval(20);
    connect(&grabTimer_, &QTimer::timeout, this, &SelectionView::tryGrabInput);
}

SelectionView::~SelectionView() {
    releaseInput();
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
    const QRegion before = painter_.overlayRegion();
    change();
    update(before + painter_.overlayRegion());
}

QPointF SelectionView::viewPoint(const QMouseEvent* event) const {
    const QPointF reported = event->globalPosition() - selection_.screenOrigin();
    QWindow* window = windowHandle();
    if (!window || window->devicePixelRatio() == 1.0)
        return reported;
    // Qt rounds pointer positions to whole points, so on a scaled screen every other pixel
    // could not be pointed at. The display server's last report names the exact pixel; it is
    // used unless it is about a later position than this event's.
    const std::optional<QPoint> device = surface_.lastPointerPosition(winId());
    if (!device)
        return reported;
    const QPointF exact = QPointF(*device) / window->devicePixelRatio();
    const QPointF difference = exact - reported;
    return std::abs(difference.x()) <= 0.5 && std::abs(difference.y()) <= 0.5 ? exact : reported;
}

void SelectionView::mouseMoveEvent(QMouseEvent* event) {
    changeState([&] { selection_.move(viewPoint(event)); });
}

void SelectionView::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton)
        return;
    changeState([&] { selection_.press(viewPoint(event)); });
}

void SelectionView::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || !selection_.isPressed())
        return;
    std::optional<SelectionResult> result;
    changeState([&] { result = selection_.release(viewPoint(event)); });
    finish(std::move(result));
}

void SelectionView::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape) {
        finish(std::nullopt);
        return;
    }
    QWidget::keyPressEvent(event);
}

void SelectionView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter_.paint(painter);
}

} // namespace qm
