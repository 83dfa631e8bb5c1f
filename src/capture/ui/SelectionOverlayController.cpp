#include "capture/ui/SelectionOverlayController.h"

#include "capture/ui/SelectionView.h"
#include "platform/surface/api/SurfaceBackend.h"
#include "ui/FloatingWindow.h"

#include <QPointer>
#include <QWindow>

namespace qm {

void SelectionOverlayController::DeleteLater::operator()(SelectionView* view) const {
    // The view may be inside its own event handler when the selection ends.
    view->hide();
    view->deleteLater();
}

SelectionOverlayController::SelectionOverlayController(platform::SurfaceBackend& surface,
                                                       QObject* parent)
    : QObject(parent)
    , surface_(surface) {}

SelectionOverlayController::~SelectionOverlayController() = default;

void SelectionOverlayController::begin(const DisplayCapture& background, const QString& verb,
                                       Completion onComplete) {
    closeView();
    onComplete_ = std::move(onComplete);

    QPointer<SelectionOverlayController> self(this);
    view_.reset(new SelectionView(background, verb, surface_,
                                  [self](std::optional<SelectionResult> result) {
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
    // The overlay must be off the screen before the caller grabs the screen again.
    surface_.sync();
    Completion completion = std::exchange(onComplete_, nullptr);
    if (completion)
        completion(std::move(result));
}

} // namespace qm
