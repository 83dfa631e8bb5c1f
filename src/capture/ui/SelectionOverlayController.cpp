#include "capture/ui/SelectionOverlayController.h"

#include "capture/ui/SelectionView.h"

#include <QGuiApplication>
#include <QPointer>
#include <QWindow>
#include <cstdlib>
#include <memory>
#include <xcb/xcb.h>

namespace qm {

namespace {
// Waits until the X server has handled every request sent so far, so the overlay is off the
// screen before a caller grabs the screen again.
void syncWithDisplay() {
    const auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    if (!x11 || !x11->connection())
        return;
    xcb_connection_t* connection = x11->connection();
    const std::unique_ptr<xcb_get_input_focus_reply_t, decltype(&std::free)> reply(
        xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr),
        &std::free);
}
} // namespace

void SelectionOverlayController::DeleteLater::operator()(SelectionView* view) const {
    // The view may be inside its own event handler when the selection ends.
    view->hide();
    view->deleteLater();
}

SelectionOverlayController::SelectionOverlayController(QObject* parent)
    : QObject(parent) {}

SelectionOverlayController::~SelectionOverlayController() = default;

void SelectionOverlayController::begin(const DisplayCapture& background, const QString& verb,
                                       Completion onComplete) {
    closeView();
    onComplete_ = std::move(onComplete);

    QPointer<SelectionOverlayController> self(this);
    view_.reset(new SelectionView(background, verb, [self](std::optional<SelectionResult> result) {
        if (self)
            self->finish(std::move(result));
    }));
    if (background.screen) {
        view_->winId(); // creates the native window so it can be put on its screen
        view_->windowHandle()->setScreen(background.screen);
        view_->setGeometry(background.geometry.toAlignedRect());
    }
    view_->show();
    view_->raise();
    view_->activateWindow();
}

void SelectionOverlayController::cancel() {
    if (view_)
        view_->cancel();
}

void SelectionOverlayController::closeView() {
    view_.reset();
}

void SelectionOverlayController::finish(std::optional<SelectionResult> result) {
    closeView();
    syncWithDisplay();
    Completion completion = std::exchange(onComplete_, nullptr);
    if (completion)
        completion(std::move(result));
}

} // namespace qm
