#pragma once

#include <QTimer>
#include <chrono>
#include <functional>

namespace qm {

// What paces a countdown: a timer in the program, a hand-turned one in tests.
class CountdownTicker {
public:
    virtual ~CountdownTicker() = default;
    // Calls onTick once per period until stopped; a new start replaces the running one.
    virtual void start(std::function<void()> onTick) = 0;
    virtual void stop() = 0;
    virtual bool isActive() const = 0;
};

// Ticks on a precise Qt timer.
class TimerTicker final : public CountdownTicker {
public:
    explicit TimerTicker(std::chrono::milliseconds period);
    void start(std::function<void()> onTick) override;
    void stop() override;
    bool isActive() const override { return timer_.isActive(); }

private:
    QTimer timer_;
    std::function<void()> onTick_;
};

} // namespace qm
