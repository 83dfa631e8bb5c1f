#pragma once

#include "cards/FloatingShotItem.h"

#include <QObject>
#include <QRect>
#include <QTimer>
#include <chrono>
#include <functional>
#include <vector>

class QScreen;

namespace qm {

// Where the cards stand: one stack per screen in the bottom-left corner of its visible area,
// the oldest lowest. A stack never runs off its screen: the cards that no longer fit, the
// oldest first, are handed to `overflow` to be closed. Lays them out again when a monitor goes
// away or a panel changes the visible area.
class CardStack final : public QObject {
    Q_OBJECT
public:
    static constexpr int margin = 20;  // from the visible area's edges
    static constexpr int spacing = 14; // between stacked cards
    // How often a held stack looks whether the pointer has left it.
    static constexpr std::chrono::milliseconds holdInterval{50};

    using ScreenOf = std::function<QScreen*(const FloatingShotItem&)>;
    using Overflow = std::function<void(const std::vector<FloatingShotItemPtr>& extra)>;
    CardStack(const std::vector<FloatingShotItemPtr>& items, ScreenOf screenOf, Overflow overflow,
              QObject* parent = nullptr);

    void layout();
    // How many cards of this height fit one above the other on the screen.
    static int capacity(const QScreen* screen, int cardHeight);

    // Keeps every card where it is while the pointer is inside `area` (global points), so the
    // card that slides under it after one closes cannot take the second click of a double
    // click; lays out once the pointer is gone.
    void holdWhilePointerIn(const QRect& area);
    // Ends a hold at once (a new card needs its place now).
    void release();
    bool isHeld() const { return m_hold.isActive(); }
    // The cards on one screen, bottom to top, as they stand.
    QRect stackArea(const QScreen* screen) const;

private:
    const std::vector<FloatingShotItemPtr>& m_items;
    ScreenOf m_screenOf;
    Overflow m_overflow;
    QRect m_held;
    QTimer m_hold;
};

} // namespace qm
