#include "cards/HoverIconButton.h"

#include "ui/Icons.h"

#include <QPainter>

namespace qm {

HoverIconButton::HoverIconButton(QString iconName, const QString& help, QWidget* parent)
    : QAbstractButton(parent)
    , m_iconName(std::move(iconName)) {
    setFocusPolicy(Qt::NoFocus);
    setCursor(Qt::PointingHandCursor);
    setHelp(help);
    resize(sizeHint());
}

void HoverIconButton::setIconName(const QString& iconName) {
    if (iconName == m_iconName)
        return;
    m_iconName = iconName;
    update();
}

void HoverIconButton::setHelp(const QString& help) {
    setToolTip(help);
    setAccessibleName(help);
}

void HoverIconButton::setDestructive(bool destructive) {
    m_destructive = destructive;
    update();
}

void HoverIconButton::setTint(QColor tint) {
    m_tint = tint;
    update();
}

void HoverIconButton::setReveal(double reveal) {
    if (qFuzzyCompare(reveal + 1.0, m_reveal + 1.0))
        return;
    m_reveal = reveal;
    update();
}

QSize HoverIconButton::sizeHint() const {
    return {26, 26};
}

void HoverIconButton::enterEvent(QEnterEvent* event) {
    m_hovering = true;
    update();
    QAbstractButton::enterEvent(event);
}

void HoverIconButton::leaveEvent(QEvent* event) {
    m_hovering = false;
    update();
    QAbstractButton::leaveEvent(event);
}

void HoverIconButton::paintEvent(QPaintEvent*) {
    if (m_reveal <= 0.0)
        return;
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setOpacity(m_reveal * (isEnabled() ? 1.0 : 0.45));

    QColor disc(22, 22, 24, 200);
    if (m_hovering && isEnabled())
        disc = m_destructive ? QColor(255, 69, 58, 235) : QColor(72, 72, 78, 235);
    if (isDown())
        disc = disc.darker(125);
    const QRectF bounds = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    painter.setPen(QPen(QColor(255, 255, 255, 38), 1.0));
    painter.setBrush(disc);
    painter.drawEllipse(bounds);

    const double side = std::min(width(), height()) * 0.56;
    const QImage icon = renderIcon(m_iconName, m_tint, QSizeF(side, side), devicePixelRatioF());
    if (!icon.isNull())
        painter.drawImage(QPointF((width() - side) / 2.0, (height() - side) / 2.0), icon);
}

} // namespace qm
