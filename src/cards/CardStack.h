#pragma once

#include "cards/FloatingShotItem.h"

#include <QObject>
#include <functional>
#include <vector>

class QScreen;

namespace qm {

// Where the cards stand: one stack per screen in the bottom-left corner of its visible area,
// the oldest lowest. Lays them out again when a monitor goes away or a panel changes the
// visible area.
class CardStack final : public QObject {
    Q_OBJECT
public:
    static constexpr int margin = 20;  // from the visible area's edges
    static constexpr int spacing = 14; // between stacked cards

    using ScreenOf = std::function<QScreen*(const FloatingShotItem&)>;
    CardStack(const std::vector<FloatingShotItemPtr>& items, ScreenOf screenOf,
              QObject* parent = nullptr);

    void layout();

private:
    const std::vector<FloatingShotItemPtr>& m_items;
    ScreenOf m_screenOf;
};

} // namespace qm
