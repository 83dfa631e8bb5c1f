#include "cards/PointerFollower.h"

#include "base/Screens.h"
#include "ui/FloatingWindow.h"

#include <QCursor>
#include <QGuiApplication>

namespace qm {

PointerFollower::PointerFollower(std::function<void()> onMoved, QObject* parent)
    : QObject(parent)
    , m_onMoved(std::move(onMoved)) {
    m_timer.setInterval(interval);
    connect(&m_timer, &QTimer::timeout, this, &PointerFollower::poll);
}

void PointerFollower::settle() {
    if (!m_current)
        m_current = screenUnderPointer();
}

void PointerFollower::start() {
    if (!m_timer.isActive())
        m_timer.start();
}

void PointerFollower::stop() {
    m_timer.stop();
    m_current.clear();
}

void PointerFollower::poll() {
    QScreen* screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen || screen == m_current)
        return;
    m_current = screen;
    if (m_onMoved)
        m_onMoved();
}

} // namespace qm
