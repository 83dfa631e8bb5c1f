#include "recorder/ui/RecordingDot.h"

#include <QPainter>

namespace qm {

RecordingDot::RecordingDot(QWidget* parent)
    : QWidget(parent) {
    setFixedSize(sizeHint());
    // Bright to dim in 0.8 s and back, eased at both ends.
    m_pulse.setStartValue(1.0);
    m_pulse.setKeyValueAt(0.5, dimOpacity);
    m_pulse.setEndValue(1.0);
    m_pulse.setDuration(1600);
    m_pulse.setEasingCurve(QEasingCurve::InOutSine);
    m_pulse.setLoopCount(-1);
    connect(&m_pulse, &QVariantAnimation::valueChanged, this, [this] { update(); });
    m_pulse.start();
}

void RecordingDot::setPaused(bool paused) {
    if (paused == m_paused)
        return;
    m_paused = paused;
    if (paused)
        m_pulse.pause();
    else
        m_pulse.resume();
    update();
}

double RecordingDot::opacity() const {
    return m_paused ? dimOpacity : m_pulse.currentValue().toDouble();
}

void RecordingDot::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setOpacity(opacity());
    painter.setPen(Qt::NoPen);
    painter.setBrush(red());
    painter.drawEllipse(QRectF(rect()).adjusted(1, 1, -1, -1));
}

} // namespace qm
