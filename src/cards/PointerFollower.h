#pragma once

#include <QObject>
#include <QPointer>
#include <QScreen>
#include <QTimer>
#include <chrono>
#include <functional>

namespace qm {

// Follows the pointer from monitor to monitor while cards are shown, so the unpinned ones can
// move with it. The pointer is looked at on a timer: X11 reports no motion outside our windows.
class PointerFollower final : public QObject {
    Q_OBJECT
public:
    static constexpr std::chrono::milliseconds interval{100};

    // onMoved runs when the pointer is on another screen than before.
    explicit PointerFollower(std::function<void()> onMoved, QObject* parent = nullptr);

    // The screen the cards are on: the pointer's when the first card came.
    QScreen* currentScreen() const { return m_current; }
    // Takes the screen under the pointer when there is none yet.
    void settle();
    void start();
    // Stops, and forgets the screen: the next card appears under the pointer, wherever it is.
    void stop();
    bool isActive() const { return m_timer.isActive(); }
    // Looks at the pointer now.
    void poll();

private:
    std::function<void()> m_onMoved;
    QPointer<QScreen> m_current;
    QTimer m_timer;
};

} // namespace qm
