#include "capture/ui/SelectionView.h"

#include "base/Log.h"
#include "capture/core/FrozenDesktop.h"
#include "platform/surface/api/SurfaceBackend.h"

#include <QCursor>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QWindow>
#include <cmath>

namespace qm {

namespace {
constexpr int kLargeNudge = 10; // pixels per arrow press with Shift

bool isHintKey(int key) {
    return key == Qt::Key_Space || key == Qt::Key_Shift || key == Qt::Key_Left ||
           key == Qt::Key_Right || key == Qt::Key_Up || key == Qt::Key_Down;
}
} // namespace

SelectionView::SelectionView(std::shared_ptr<SelectionModel> selection, int display,
                             bool takesInput, platform::SurfaceBackend& surface, Hooks hooks)
    : QWidget(nullptr, Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                           Qt::X11BypassWindowManagerHint | Qt::NoDropShadowWindowHint)
    , selection_(std::move(selection))
    , display_(display)
    , takesInput_(takesInput)
    , painter_(*selection_, display)
    , surface_(surface)
    , hooks_(std::move(hooks)) {
    setObjectName(QStringLiteral("SelectionView"));
    setWindowTitle(QStringLiteral("Quillmark Selection"));
    // The frozen picture covers every pixel, so nothing underneath needs clearing.
    setAttribute(Qt::WA_OpaquePaintEvent);
    setAttribute(Qt::WA_NoSystemBackground);
    // A tray program has no main window; the overlay closing must not end it.
    setAttribute(Qt::WA_QuitOnClose, false);
    setAttribute(Qt::WA_ShowWithoutActivating, !takesInput_);
    setMouseTracking(true);
    setFocusPolicy(takesInput_ ? Qt::StrongFocus : Qt::NoFocus);
    setCursor(Qt::CrossCursor);
    setGeometry(selection_->desktop().displays[std::size_t(display_)].geometry.toAlignedRect());

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
    if (hooks_.finish)
        hooks_.finish(std::move(result));
}

void SelectionView::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    if (!takesInput_)
        return;
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

QPointF SelectionView::globalPoint(const QMouseEvent* event) const {
    const QPointF reported = event->globalPosition();
    // After a nudge the cursor sits as near the pointer as whole points allow; while it stays
    // there, the pointer is where the nudge put it.
    if (nudgedCursor_ && reported.toPoint() == *nudgedCursor_)
        return selection_->mousePoint();
    // Qt rounds pointer positions to whole points, so on a scaled screen every other pixel
    // could not be pointed at. The display server's last report names the exact pixel, on
    // whichever monitor it is (this view grabs the pointer, so reports are relative to it); it
    // is used unless it is about a later position than this event's.
    const std::optional<QPoint> device = surface_.lastPointerPosition(winId());
    if (!device)
        return reported;
    const DisplayCapture& own = selection_->desktop().displays[std::size_t(display_)];
    const std::optional<QPointF> exact =
        globalPointOfPixel(selection_->desktop(), QPointF(own.pixelOrigin + *device));
    if (!exact)
        return reported;
    const QPointF difference = *exact - reported;
    return std::abs(difference.x()) <= 0.5 && std::abs(difference.y()) <= 0.5 ? *exact : reported;
}

void SelectionView::mouseMoveEvent(QMouseEvent* event) {
    if (nudgedCursor_ && event->globalPosition().toPoint() != *nudgedCursor_)
        nudgedCursor_.reset(); // the user moved the pointer on
    const bool square = event->modifiers().testFlag(Qt::ShiftModifier);
    hooks_.change([&] {
        selection_->setSquare(square);
        selection_->move(globalPoint(event));
    });
}

void SelectionView::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton)
        return;
    hooks_.change([&] { selection_->press(globalPoint(event)); });
}

void SelectionView::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || !selection_->isPressed())
        return;
    std::optional<SelectionResult> result;
    hooks_.change([&] { result = selection_->release(globalPoint(event)); });
    if (!selection_->isAdjusting())
        finish(std::move(result));
}

void SelectionView::mouseDoubleClickEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton)
        return;
    if (selection_->isAdjusting() && selection_->currentRect().contains(globalPoint(event)))
        return finish(selection_->confirm());
    // Otherwise the second press of a quick pair is an ordinary press.
    mousePressEvent(event);
}

void SelectionView::nudge(QPoint pixels) {
    const bool movesPointer = !(selection_->isAdjusting() && !selection_->isPressed());
    QPointF pointer;
    hooks_.change([&] { pointer = selection_->nudge(pixels); });
    if (!movesPointer)
        return;
    // The cursor follows as closely as whole points allow.
    nudgedCursor_ = pointer.toPoint();
    const int display = selection_->pointerDisplay();
    QScreen* target =
        display >= 0 ? selection_->desktop().displays[std::size_t(display)].screen : nullptr;
    QCursor::setPos(target ? target : screen(), *nudgedCursor_);
}

void SelectionView::keyHeld(int key, bool held) {
    if (held)
        heldKeys_.insert(key);
    else
        heldKeys_.remove(key);
    hooks_.change([&] { selection_->setHintKeyHeld(!heldKeys_.isEmpty()); });
}

void SelectionView::keyPressEvent(QKeyEvent* event) {
    const int key = event->key();
    const int step = event->modifiers().testFlag(Qt::ShiftModifier) ? kLargeNudge : 1;
    switch (key) {
    case Qt::Key_Escape:
        return finish(std::nullopt);
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (selection_->isAdjusting() && !selection_->isPressed())
            finish(selection_->confirm());
        return;
    case Qt::Key_Space:
        hooks_.change([&] { selection_->setMoving(true); });
        break;
    case Qt::Key_Shift:
        hooks_.change([&] { selection_->setSquare(true); });
        break;
    case Qt::Key_Left:
        nudge({-step, 0});
        break;
    case Qt::Key_Right:
        nudge({step, 0});
        break;
    case Qt::Key_Up:
        nudge({0, -step});
        break;
    case Qt::Key_Down:
        nudge({0, step});
        break;
    default:
        return QWidget::keyPressEvent(event);
    }
    if (isHintKey(key) && !event->isAutoRepeat())
        keyHeld(key, true);
}

void SelectionView::keyReleaseEvent(QKeyEvent* event) {
    if (event->isAutoRepeat())
        return;
    const int key = event->key();
    if (key == Qt::Key_Space)
        hooks_.change([&] { selection_->setMoving(false); });
    else if (key == Qt::Key_Shift)
        hooks_.change([&] { selection_->setSquare(false); });
    if (isHintKey(key))
        keyHeld(key, false);
    else
        QWidget::keyReleaseEvent(event);
}

void SelectionView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter_.paint(painter);
}

} // namespace qm
