#include "recorder/controls/RecordingState.h"

#include <cmath>

namespace qm {

RecordingState::RecordingState(Clock clock, QObject* parent)
    : QObject(parent)
    , m_clock(std::move(clock)) {
    m_runStart = now();
    m_timer.setInterval(tickInterval);
    connect(&m_timer, &QTimer::timeout, this, &RecordingState::tick);
}

RecordingState::TimePoint RecordingState::now() const {
    return m_clock ? m_clock() : std::chrono::steady_clock::now();
}

QString RecordingState::format(double seconds) {
    const long long whole = seconds > 0 ? static_cast<long long>(std::floor(seconds)) : 0;
    return QString::asprintf("%02lld:%02lld", whole / 60, whole % 60);
}

QString RecordingState::display() const {
    return format(m_elapsed);
}

void RecordingState::startTicking() {
    m_timer.start();
}

void RecordingState::stopTicking() {
    m_timer.stop();
}

void RecordingState::tick() {
    if (!m_runStart)
        return;
    setElapsed(m_accumulated + std::chrono::duration<double>(now() - *m_runStart).count());
}

void RecordingState::setPaused(bool paused) {
    if (paused == m_paused)
        return;
    if (paused) {
        if (m_runStart)
            m_accumulated += std::chrono::duration<double>(now() - *m_runStart).count();
        m_runStart.reset();
    } else {
        m_runStart = now();
    }
    m_paused = paused;
    setElapsed(m_accumulated);
    Q_EMIT pausedChanged(m_paused);
}

void RecordingState::setElapsed(double seconds) {
    if (seconds == m_elapsed)
        return;
    m_elapsed = seconds;
    Q_EMIT elapsedChanged(m_elapsed);
}

} // namespace qm
