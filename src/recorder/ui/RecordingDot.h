#pragma once

#include <QVariantAnimation>
#include <QWidget>

namespace qm {

// The red dot of the control bar: it pulses while recording and rests dimmed while paused,
// so a glance tells the two apart.
class RecordingDot final : public QWidget {
    Q_OBJECT
public:
    static QColor red() { return QColor::fromRgbF(0.98f, 0.27f, 0.24f); }
    static constexpr double dimOpacity = 0.35;

    explicit RecordingDot(QWidget* parent = nullptr);

    void setPaused(bool paused);
    bool isPaused() const { return m_paused; }
    // The dot's opacity now.
    double opacity() const;

    QSize sizeHint() const override { return {12, 12}; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    bool m_paused = false;
    QVariantAnimation m_pulse;
};

} // namespace qm
