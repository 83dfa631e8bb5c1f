#pragma once

#include <QObject>
#include <QString>
#include <QTimer>
#include <chrono>
#include <functional>
#include <optional>

namespace qm {

// The elapsed time of a recording as its controls show it: seconds recorded, not counting
// pauses. The clock starts when the state is made. Main thread only.
class RecordingState final : public QObject {
    Q_OBJECT
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Clock = std::function<TimePoint()>;

    static constexpr std::chrono::milliseconds tickInterval{250};

    // Without a clock the steady clock is used; tests pass their own and drive tick().
    explicit RecordingState(Clock clock = {}, QObject* parent = nullptr);

    double elapsed() const { return m_elapsed; }
    bool isPaused() const { return m_paused; }
    // "MM:SS" of the whole seconds elapsed; minutes go on past 59 ("75:00").
    QString display() const;
    static QString format(double seconds);

    // Brings the elapsed time up to date every tickInterval from now on (again from now when
    // already ticking).
    void startTicking();
    void stopTicking();
    bool isTicking() const { return m_timer.isActive(); }
    // What each tick does: the elapsed time, up to date. Nothing changes while paused.
    void tick();

    // A flag equal to the current one is ignored, so repeated presses cannot count a pause
    // twice.
    void setPaused(bool paused);

Q_SIGNALS:
    void elapsedChanged(double seconds);
    void pausedChanged(bool paused);

private:
    TimePoint now() const;
    void setElapsed(double seconds);

    Clock m_clock;
    double m_elapsed = 0;
    bool m_paused = false;
    double m_accumulated = 0;
    std::optional<TimePoint> m_runStart;
    QTimer m_timer;
};

} // namespace qm
