#pragma once

#include "recorder/controls/RecordingState.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QRect>
#include <functional>
#include <memory>

class QScreen;

namespace qm {

class RecordingControlsView;

// The elapsed time of a recording and its floating control bar. The bar sits beside the
// recorded area, never on it, since the screen is recorded as shown; when no screen has room
// (a whole single screen is recorded) only the time runs, for the caller to show elsewhere.
class RecordingControlsController final : public QObject {
    Q_OBJECT
public:
    explicit RecordingControlsController(RecordingState::Clock clock = {},
                                         QObject* parent = nullptr);
    ~RecordingControlsController() override;

    // Starts a new elapsed time and shows the bar beside `area` (global logical coordinates)
    // on one of `screens`. The pause button toggles the time and reports the new flag; stop
    // only reports. Answers whether the bar is on screen.
    bool show(const QRect& area, const QList<QScreen*>& screens, std::function<void()> onStop,
              std::function<void(bool paused)> onPauseToggle);
    // Hides the bar and stops the time; the state goes with it.
    void close();

    // The running time, from show() to close(); null otherwise.
    RecordingState* state() const { return m_state.get(); }
    // Pauses or resumes from elsewhere (the tray) without reporting back.
    void setPaused(bool paused);
    // The bar, while shown.
    RecordingControlsView* panel() const { return m_panel; }

private:
    RecordingState::Clock m_clock;
    std::unique_ptr<RecordingState> m_state;
    QPointer<RecordingControlsView> m_panel;
};

} // namespace qm
