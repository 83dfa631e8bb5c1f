#include "recorder/ui/ControlButton.h"

#include "ui/Icons.h"

#include <QPainter>

namespace qm {

ControlButton::ControlButton(QString iconName, const QString& help, QColor tint, QWidget* parent)
    : QAbstractButton(parent)
    , m_iconName(std::move(iconName))
    , m_tint(tint) {
    setToolTip(help);
    setAccessibleName(help);
    setFocusPolicy(Qt::NoFocus);
    setCursor(Qt::PointingHandCursor);
    setFixedSize(sizeHint());
}

void ControlButton::setSymbol(const QString& iconName, const QString& help) {
    m_iconName = iconName;
    setToolTip(help);
    setAccessibleName(help);
    update();
}

void ControlButton::enterEvent(QEnterEvent* event) {
    m_hovering = true;
    update();
    QAbstractButton::enterEvent(event);
}

void ControlButton::leaveEvent(QEvent* event) {
    m_hovering = false;
    update();
    QAbstractButton::leaveEvent(event);
}

void ControlButton::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(255, 255, 255, isDown() ? 70 : m_hovering ? 46 : 22));
    painter.drawEllipse(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5));
    const double side = width() * 0.55;
    paintIcon(painter, m_iconName, QRectF((width() - side) / 2, (height() - side) / 2, side, side),
              m_tint);
}

} // namespace qm
