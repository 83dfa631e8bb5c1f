#include "recorder/ui/RecordingControlsController.h"

#include "recorder/controls/BarPlacement.h"
#include "recorder/ui/RecordingControlsView.h"

#include <QGuiApplication>
#include <QScreen>
#include <QWindow>

namespace qm {

RecordingControlsController::RecordingControlsController(RecordingState::Clock clock,
                                                         QObject* parent)
    : QObject(parent)
    , m_clock(std::move(clock)) {}

RecordingControlsController::~RecordingControlsController() {
    close();
}

bool RecordingControlsController::show(const QRect& area, const QList<QScreen*>& screens,
                                       std::function<void()> onStop,
                                       std::function<void(bool paused)> onPauseToggle) {
    close();
    m_state = std::make_unique<RecordingState>(m_clock);
    m_state->startTicking();

    RecordingState* state = m_state.get();
    auto toggle = [state, onPauseToggle = std::move(onPauseToggle)] {
        const bool paused = !state->isPaused();
        state->setPaused(paused);
        if (onPauseToggle)
            onPauseToggle(paused);
    };
    auto* panel = new RecordingControlsView(*state, std::move(toggle), std::move(onStop));
    panel->setAttribute(Qt::WA_DeleteOnClose);
    panel->adjustSize();

    std::vector<QRect> frames;
    for (QScreen* screen : screens)
        if (screen)
            frames.push_back(screen->availableGeometry());
    const auto place = BarPlacement::place(area, frames, panel->size());
    if (!place) {
        delete panel;
        return false;
    }
    m_panel = panel;
    panel->winId();
    if (QScreen* screen = QGuiApplication::screenAt(place->center()))
        panel->windowHandle()->setScreen(screen);
    panel->setGeometry(*place);
    panel->show();
    panel->raise();
    return true;
}

void RecordingControlsController::setPaused(bool paused) {
    if (m_state)
        m_state->setPaused(paused);
}

void RecordingControlsController::close() {
    if (m_panel)
        m_panel->close();
    m_panel = nullptr;
    // The panel is deleted later; it must not outlive the state it reads, so it goes now.
    m_state.reset();
}

} // namespace qm
