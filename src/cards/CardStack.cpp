#include "cards/CardStack.h"

#include "cards/FloatingShotView.h"

#include <QCursor>
#include <QGuiApplication>
#include <QPropertyAnimation>
#include <QScreen>
#include <QTimer>
#include <algorithm>
#include <map>

namespace qm {

namespace {
constexpr int kMoveMillis = 220;

void moveWindow(QWidget* window, QPoint to, bool animated) {
    auto* running = window->findChild<QPropertyAnimation*>(QStringLiteral("cardMove"),
                                                           Qt::FindDirectChildrenOnly);
    if (running) {
        if (running->endValue().toPoint() == to)
            return;
        running->stop();
        delete running;
    }
    if (!animated || window->pos() == to) {
        window->move(to);
        return;
    }
    auto* animation = new QPropertyAnimation(window, "pos", window);
    animation->setObjectName(QStringLiteral("cardMove"));
    animation->setDuration(kMoveMillis);
    animation->setEasingCurve(QEasingCurve::OutCubic);
    animation->setStartValue(window->pos());
    animation->setEndValue(to);
    animation->start(QAbstractAnimation::DeleteWhenStopped);
}
} // namespace

CardStack::CardStack(const std::vector<FloatingShotItemPtr>& items, ScreenOf screenOf,
                     Overflow overflow, QObject* parent)
    : QObject(parent)
    , m_items(items)
    , m_screenOf(std::move(screenOf))
    , m_overflow(std::move(overflow)) {
    m_hold.setInterval(holdInterval);
    connect(&m_hold, &QTimer::timeout, this, [this] {
        if (!m_held.contains(QCursor::pos()))
            release();
    });
    // A monitor that goes away takes its pins with it; its cards move to a remaining one once
    // the screen is gone for good. The window system may still report where the cards were on
    // the old monitor after they were placed (on a busy machine, well after), so they are
    // placed again once that has settled.
    connect(qGuiApp, &QGuiApplication::screenRemoved, this, [this] {
        for (const int after : {0, 250, 1000})
            QTimer::singleShot(after, this, &CardStack::layout);
    });
    // Panels and docks that come and go change where the corner is.
    auto watch = [this](QScreen* screen) {
        connect(screen, &QScreen::availableGeometryChanged, this, &CardStack::layout);
    };
    for (QScreen* screen : QGuiApplication::screens())
        watch(screen);
    connect(qGuiApp, &QGuiApplication::screenAdded, this, watch);
}

int CardStack::capacity(const QScreen* screen, int cardHeight) {
    const int room = screen->availableGeometry().height() - 2 * margin;
    return std::max(1, (room + spacing) / (cardHeight + spacing));
}

void CardStack::holdWhilePointerIn(const QRect& area) {
    if (!area.contains(QCursor::pos()))
        return;
    m_held = area;
    m_hold.start();
}

void CardStack::release() {
    if (!m_hold.isActive())
        return;
    m_hold.stop();
    layout();
}

QRect CardStack::stackArea(const QScreen* screen) const {
    QRect area;
    for (const FloatingShotItemPtr& item : m_items)
        if (item->panel && m_screenOf(*item) == screen)
            area |= item->panel->geometry();
    return area;
}

void CardStack::layout() {
    if (isHeld())
        return;
    // Group by screen, keeping the cards' order: the oldest sits lowest.
    using Groups = std::map<QString, std::pair<QScreen*, std::vector<FloatingShotItemPtr>>>;
    auto grouped = [this] {
        Groups groups;
        for (const FloatingShotItemPtr& item : m_items) {
            QScreen* screen = m_screenOf(*item);
            if (!screen || !item->panel)
                continue;
            auto& group = groups[screen->name()];
            group.first = screen;
            group.second.push_back(item);
        }
        return groups;
    };
    Groups groups = grouped();
    std::vector<FloatingShotItemPtr> extra;
    for (const auto& [name, group] : groups) {
        const int fit = capacity(group.first, group.second.back()->panel->height());
        const int over = int(group.second.size()) - fit;
        for (int i = 0; i < over; ++i)
            extra.push_back(group.second[std::size_t(i)]);
    }
    if (!extra.empty() && m_overflow) {
        m_overflow(extra);
        groups = grouped();
    }
    for (const auto& [name, group] : groups) {
        const QRect visible = group.first->availableGeometry();
        const int x = visible.x() + margin;
        int bottom = visible.y() + visible.height() - margin;
        for (const FloatingShotItemPtr& item : group.second) {
            FloatingShotView* panel = item->panel;
            const QPoint to(x, bottom - panel->height());
            // Jumping to another monitor is immediate; restacking on one slides.
            const bool sameScreen = panel->screen() == group.first;
            moveWindow(panel, to, panel->isVisible() && sameScreen);
            bottom = to.y() - spacing;
        }
    }
}

} // namespace qm
