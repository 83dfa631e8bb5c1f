#pragma once

#include <QPointF>
#include <QTimer>
#include <QWidget>
#include <chrono>
#include <functional>
#include <vector>

namespace qm {

// A see-through window over one screen that draws a ripple at each click: a small ring that
// grows and fades out. Each ripple runs on its own and is forgotten once it has faded. Takes
// no input, so the click goes on to the window it was meant for.
class RippleView final : public QWidget {
    Q_OBJECT
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Clock = std::function<TimePoint()>;

    static constexpr double diameter = 28.0;
    static constexpr double lineWidth = 2.5;
    static constexpr double fillAlpha = 0.18;
    static constexpr double startScale = 0.4, endScale = 1.9;
    static constexpr double startOpacity = 0.85;
    static constexpr std::chrono::milliseconds duration{450};

    explicit RippleView(Clock clock = {});

    // `centre` in the view's coordinates.
    void addRipple(QPointF centre);
    int rippleCount() const { return int(m_ripples.size()); }
    // Moves every ripple to the present: drops finished ones and repaints the rest. The
    // animation timer calls it each frame.
    void advance();

    // Where a ripple of this age is, 0 … 1 of its run, eased out.
    static double eased(double progress);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    struct Ripple {
        QPointF centre;
        TimePoint start;
    };
    TimePoint now() const;
    double progress(const Ripple& ripple) const;
    QRectF reach(const Ripple& ripple) const; // the most a ripple ever covers
    void updateShape();

    Clock m_clock;
    std::vector<Ripple> m_ripples;
    QTimer m_frames;
};

} // namespace qm
