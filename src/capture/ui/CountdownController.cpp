#include "capture/ui/CountdownController.h"

#include "base/Screens.h"
#include "capture/ui/CountdownView.h"
#include "platform/sound/api/SoundPlayer.h"
#include "ui/FloatingWindow.h"

#include <QPointer>
#include <QScreen>
#include <QWindow>
#include <cmath>

namespace qm {

void CountdownState::setRemaining(int remaining) {
    if (remaining == remaining_)
        return;
    remaining_ = remaining;
    Q_EMIT remainingChanged(remaining_);
}

void CountdownController::DeleteLater::operator()(CountdownView* view) const {
    // The Cancel button's click handler may still be running.
    view->hide();
    view->deleteLater();
}

CountdownController::CountdownController(SoundPlayer& sounds, QObject* parent)
    : CountdownController(sounds, std::make_unique<TimerTicker>(tickInterval), parent) {}

CountdownController::CountdownController(SoundPlayer& sounds,
                                         std::unique_ptr<CountdownTicker> ticker, QObject* parent)
    : QObject(parent)
    , sounds_(sounds)
    , ticker_(std::move(ticker)) {}

CountdownController::~CountdownController() {
    teardown();
}

void CountdownController::begin(int seconds, std::function<void()> onFire,
                                std::function<void()> onCancel) {
    teardown();
    onFire_ = std::move(onFire);
    onCancel_ = std::move(onCancel);
    state_.setRemaining(seconds);

    QPointer<CountdownController> self(this);
    panel_.reset(new CountdownView(state_, [self] {
        if (self)
            self->cancel();
    }));
    panel_->resize(panel_->sizeHint());
    if (QScreen* screen = screenUnderPointer()) {
        const QRect visible = screen->availableGeometry();
        const QSize size = panel_->size();
        panel_->winId();
        panel_->windowHandle()->setScreen(screen);
        panel_->move(int(std::lround(visible.x() + visible.width() / 2.0 - size.width() / 2.0)),
                     visible.y() + visible.height() - bottomMargin - size.height());
    }
    panel_->show();
    panel_->raise();
    ticker_->start([this] { tick(); });
}

void CountdownController::cancel() {
    if (!panel_ && !ticker_->isActive())
        return;
    std::function<void()> onCancel = std::exchange(onCancel_, nullptr);
    teardown();
    if (onCancel)
        onCancel();
}

void CountdownController::tick() {
    state_.setRemaining(state_.remaining() - 1);
    sounds_.play(SystemSound::Alert);
    if (state_.remaining() < 1) {
        std::function<void()> onFire = std::exchange(onFire_, nullptr);
        teardown();
        if (onFire)
            onFire();
    }
}

void CountdownController::teardown() {
    ticker_->stop();
    panel_.reset();
    onFire_ = nullptr;
    onCancel_ = nullptr;
}

} // namespace qm
