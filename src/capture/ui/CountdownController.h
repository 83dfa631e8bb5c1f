#pragma once

#include "capture/ui/CountdownTicker.h"

#include <QObject>
#include <chrono>
#include <functional>
#include <memory>

namespace qm {

class CountdownView;
class SoundPlayer;

// The seconds left of a running countdown.
class CountdownState final : public QObject {
    Q_OBJECT
    Q_PROPERTY(int remaining READ remaining NOTIFY remainingChanged)
public:
    using QObject::QObject;
    int remaining() const { return remaining_; }
    void setRemaining(int remaining);

Q_SIGNALS:
    void remainingChanged(int remaining);

private:
    int remaining_ = 0;
};

// Counts down before a delayed capture or recording: a small panel near the bottom of the
// screen under the pointer shows the seconds left and a Cancel button, and every second ticks
// with the "Tink" sound. A new begin ends a running countdown silently.
class CountdownController final : public QObject {
    Q_OBJECT
public:
    static constexpr std::chrono::milliseconds tickInterval{1000};
    static constexpr int bottomMargin = 24; // points above the screen's usable bottom

    explicit CountdownController(SoundPlayer& sounds, QObject* parent = nullptr);
    // Paced by `ticker` instead of a one-second timer.
    CountdownController(SoundPlayer& sounds, std::unique_ptr<CountdownTicker> ticker,
                        QObject* parent = nullptr);
    ~CountdownController() override;

    // onFire runs right after the last tick; onCancel when the user cancels. A countdown of
    // 0 seconds fires at its first tick.
    void begin(int seconds, std::function<void()> onFire, std::function<void()> onCancel);
    // Ends the countdown as the Cancel button does: onCancel, never onFire.
    void cancel();

    bool isRunning() const { return ticker_->isActive(); }
    const CountdownState& state() const { return state_; }
    // The panel on screen, or null when idle.
    CountdownView* panel() const { return panel_.get(); }

private:
    struct DeleteLater {
        void operator()(CountdownView* view) const;
    };
    void tick();
    void teardown();

    SoundPlayer& sounds_;
    std::unique_ptr<CountdownView, DeleteLater> panel_;
    std::unique_ptr<CountdownTicker> ticker_;
    std::function<void()> onFire_;
    std::function<void()> onCancel_;
    CountdownState state_;
};

} // namespace qm
