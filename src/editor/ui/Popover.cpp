#include "editor/ui/Popover.h"

#include "editor/model/Annotation.h"

#include <QColorDialog>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QScreen>
#include <algorithm>

namespace qm {

namespace {

const QList<QColor>& swatchColors() {
    static const QList<QColor> colors{
        QColor(255, 59, 48), QColor(255, 149, 0),  QColor(255, 214, 10), QColor(52, 199, 89),
        QColor(0, 199, 190), QColor(10, 132, 255), QColor(175, 82, 222), QColor(255, 45, 85),
        QColor(0, 0, 0),     QColor(255, 255, 255)};
    return colors;
}

const QString popoverStyle = QStringLiteral(
    "QToolButton { border: 1px solid transparent; border-radius: 6px; padding: 4px 8px; }"
    "QToolButton:hover { background: rgba(127,127,127,0.18); }"
    "QToolButton:checked { background: rgba(10,132,255,0.20); border-color: rgba(10,132,255,0.7); "
    "}");

} // namespace

namespace popover {

QIcon colorDotIcon(const QColor& color) {
    QPixmap pm(QSize(40, 40));
    pm.fill(Qt::transparent);
    QPainter p(&pm);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(QColor(127, 127, 127, 150), 2));
    p.setBrush(color);
    p.drawEllipse(QRectF(6, 6, 28, 28));
    p.end();
    return QIcon(pm);
}

QLabel* sectionTitle(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    QFont f = label->font();
    f.setWeight(QFont::DemiBold);
    label->setFont(f);
    return label;
}

QLabel* footnoteLabel(QWidget* parent) {
    auto* label = new QLabel(parent);
    label->setWordWrap(true);
    QFont f = label->font();
    f.setPointSizeF(f.pointSizeF() * 0.88);
    label->setFont(f);
    QPalette p = label->palette();
    QColor c = p.color(QPalette::WindowText);
    c.setAlphaF(0.62f);
    p.setColor(QPalette::WindowText, c);
    label->setPalette(p);
    return label;
}

} // namespace popover

// --- Popover ---

Popover::Popover(QWidget* parent)
    : QFrame(parent, Qt::Popup) {
    setFrameShape(QFrame::StyledPanel);
    setStyleSheet(popoverStyle);
}

void Popover::showBelow(QWidget* anchor) {
    adjustSize();
    QPoint at =
        anchor->mapToGlobal(QPoint(anchor->width() / 2 - width() / 2, anchor->height() + 6));
    if (QScreen* screen = anchor->screen()) {
        const QRect area = screen->availableGeometry();
        at.setX(std::clamp(at.x(), area.left() + 4,
                           std::max(area.left() + 4, area.right() - width() - 4)));
    }
    move(at);
    show();
}

// --- Colour row ---

ColorRow::ColorRow(const QString& tooltip, QWidget* parent)
    : QWidget(parent) {
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    setToolTip(tooltip);
    for (const QColor& c : swatchColors()) {
        auto* b = new QToolButton(this);
        b->setIcon(popover::colorDotIcon(c));
        b->setIconSize(QSize(20, 20));
        b->setCheckable(true);
        b->setAutoRaise(true);
        b->setToolTip(tooltip);
        b->setAccessibleName(hexRGB(c));
        b->setFocusPolicy(Qt::NoFocus);
        connect(b, &QToolButton::clicked, this, [this, c] { Q_EMIT picked(c); });
        layout->addWidget(b);
        m_swatches << b;
    }
    m_custom = new QToolButton(this);
    m_custom->setText(tr("Custom…"));
    m_custom->setToolTip(tooltip);
    m_custom->setFocusPolicy(Qt::NoFocus);
    connect(m_custom, &QToolButton::clicked, this, [this] {
        const QColor c = QColorDialog::getColor(m_current, window(), tr("Color"));
        if (c.isValid())
            Q_EMIT picked(c);
    });
    layout->addSpacing(4);
    layout->addWidget(m_custom);
}

void ColorRow::setCurrent(const QColor& color) {
    m_current = color;
    for (qsizetype i = 0; i < m_swatches.size(); ++i)
        m_swatches[i]->setChecked(hexRGB(swatchColors()[i]) == hexRGB(color));
}

} // namespace qm
