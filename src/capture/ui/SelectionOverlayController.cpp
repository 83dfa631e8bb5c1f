#include "capture/ui/SelectionOverlayController.h"

#include "capture/core/SelectionModel.h"
#include "capture/ui/SelectionView.h"
#include "platform/surface/api/SurfaceBackend.h"

#include <QCursor>
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
    FrozenDesktop desktop;
    desktop.displays.push_back(background);
    desktop.displays.front().windows.clear();
    desktop.windows = background.windows;
    begin(desktop, verb, std::move(onComplete));
}

void SelectionOverlayController::begin(const FrozenDesktop& desktop, const QString& verb,
                                       Completion onComplete) {
    closeView();
    onComplete_ = std::move(onComplete);
    if (desktop.displays.empty()) {
        // Nothing to pick on: answer "cancelled" rather than never.
        QMetaObject::invokeMethod(
            this, [this] { finish(std::nullopt); }, Qt::QueuedConnection);
        return;
    }
    selection_ = std::make_shared<SelectionModel>(desktop, verb, adjustBeforeCapturing_);
    selection_->move(QCursor::pos());
    selection_->setHintPinned(selectionsShown_ < pinnedHintSelections);
    ++selectionsShown_;

    QPointer<SelectionOverlayController> self(this);
    SelectionView::Hooks hooks{[self](const std::function<void()>& change) {
                                   if (self)
                                       self->change(change);
                               },
                               [self](std::optional<SelectionResult> result) {
                                   if (self)
                                       self->finish(std::move(result));
                               }};
    const int pointer = std::max(0, selection_->pointerDisplay());
    for (int i = 0; i < int(desktop.displays.size()); ++i) {
        views_.emplace_back(new SelectionView(selection_, i, i == pointer, surface_, hooks));
        SelectionView* view = views_.back().get();
        const DisplayCapture& display = desktop.displays[std::size_t(i)];
        if (display.screen) {
            view->winId(); // creates the native window so it can be put on its screen
            view->windowHandle()->setScreen(display.screen);
            view->setGeometry(display.geometry.toAlignedRect());
        }
        if (i == pointer)
            inputView_ = view;
    }
    // The view taking input comes up last, so it ends up in front with the focus.
    for (const auto& view : views_)
        if (view.get() != inputView_)
            view->show();
    if (inputView_) {
        inputView_->show();
        inputView_->raise();
        inputView_->activateWindow();
    }
}

std::vector<SelectionView*> SelectionOverlayController::views() const {
    std::vector<SelectionView*> result;
    for (const auto& view : views_)
        result.push_back(view.get());
    return result;
}

void SelectionOverlayController::cancel() {
    if (inputView_)
        inputView_->cancel();
}

void SelectionOverlayController::change(const std::function<void()>& change) {
    // Repaints only what the overlays covered before and cover now, on every screen.
    std::vector<QRegion> before;
    for (const auto& view : views_)
        before.push_back(view->painter().overlayRegion());
    change();
    for (std::size_t i = 0; i < views_.size(); ++i)
        views_[i]->update(before[i] + views_[i]->painter().overlayRegion());
}

void SelectionOverlayController::closeView() {
    inputView_ = nullptr;
    views_.clear();
    selection_.reset();
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
