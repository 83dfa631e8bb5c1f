#include "cards/CardStack.h"

#include "cards/FloatingShotView.h"

#include <QGuiApplication>
#include <QPropertyAnimation>
#include <QScreen>
#include <QTimer>
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
                     QObject* parent)
    : QObject(parent)
    , m_items(items)
    , m_screenOf(std::move(screenOf)) {
    // A monitor that goes away takes its pins with it; its cards move to a remaining one once
    // the screen is gone for good.
    connect(qGuiApp, &QGuiApplication::screenRemoved, this,
            [this] { QTimer::singleShot(0, this, &CardStack::layout); });
    // Panels and docks that come and go change where the corner is.
    auto watch = [this](QScreen* screen) {
        connect(screen, &QScreen::availableGeometryChanged, this, &CardStack::layout);
    };
    for (QScreen* screen : QGuiApplication::screens())
        watch(screen);
    connect(qGuiApp, &QGuiApplication::screenAdded, this, watch);
}

void CardStack::layout() {
    // Group by screen, keeping the cards' order: the oldest sits lowest.
    std::map<QString, std::pair<QScreen*, std::vector<FloatingShotItemPtr>>> groups;
    for (const FloatingShotItemPtr& item : m_items) {
        QScreen* screen = m_screenOf(*item);
        if (!screen || !item->panel)
            continue;
        auto& group = groups[screen->name()];
        group.first = screen;
        group.second.push_back(item);
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
