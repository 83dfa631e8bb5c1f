#pragma once

#include <QLabel>
#include <QWidget>
#include <functional>

namespace qm {

class ControlButton;
class RecordingDot;
class RecordingState;

// The control bar's face, left to right: the red dot, the elapsed time, pause/resume and
// stop. It follows `state`; the buttons only report presses.
class RecordingControlsView final : public QWidget {
    Q_OBJECT
public:
    RecordingControlsView(RecordingState& state, std::function<void()> onPauseToggle,
                          std::function<void()> onStop);

    ControlButton* pauseButton() const { return m_pause; }
    ControlButton* stopButton() const { return m_stop; }
    RecordingDot* dot() const { return m_dot; }
    QString timeText() const { return m_time->text(); }

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void showPaused(bool paused);

    RecordingState& m_state;
    RecordingDot* m_dot;
    QLabel* m_time;
    ControlButton* m_pause;
    ControlButton* m_stop;
};

} // namespace qm
