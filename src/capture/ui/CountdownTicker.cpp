#include "capture/ui/CountdownTicker.h"

namespace qm {

TimerTicker::TimerTicker(std::chrono::milliseconds period) {
    timer_.setInterval(period);
    timer_.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer_, &QTimer::timeout, &timer_, [this] {
        if (onTick_)
            onTick_();
    });
}

void TimerTicker::start(std::function<void()> onTick) {
    onTick_ = std::move(onTick);
    timer_.start();
}

void TimerTicker::stop() {
    timer_.stop(); // onTick_ stays: stop may be called from inside it
}

} // namespace qm
