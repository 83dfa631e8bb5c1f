#include "ui/ToastView.h"

#include "ui/FloatingWindow.h"
#include "ui/Icons.h"

#include <QFontMetricsF>
#include <QGuiApplication>
#include <QPainter>
#include <cmath>

namespace qm {

namespace {
constexpr double kIconSize = 16.0;
constexpr double kIconGap = 8.0;
constexpr double kPaddingX = 16.0;
constexpr double kPaddingY = 10.0;
} // namespace

ToastView::ToastView(QString text, QString iconName, QColor tint)
    : text_(std::move(text))
    , iconName_(std::move(iconName))
    , tint_(tint) {
    setObjectName(QStringLiteral("ToastView"));
    setWindowTitle(QStringLiteral("Quillmark Toast"));
    makeFloatingWindow(this, PointerInput::PassThrough);
    setAttribute(Qt::WA_DeleteOnClose);
}

QFont ToastView::textFont() const {
    QFont font = QGuiApplication::font();
    font.setPixelSize(13);
    font.setWeight(QFont::DemiBold);
    return font;
}

QSize ToastView::sizeHint() const {
    const QFontMetricsF metrics(textFont());
    double width = metrics.horizontalAdvance(text_) + 2 * kPaddingX;
    if (hasIcon(iconName_))
        width += kIconSize + kIconGap;
    const double height = std::max(metrics.height(), kIconSize) + 2 * kPaddingY;
    return {int(std::ceil(width)), int(std::ceil(height))};
}

void ToastView::resizeEvent(QResizeEvent*) {
    shapeRounded(this, height() / 2.0);
}

void ToastView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    paintPanelFace(painter, this, height() / 2.0);

    double x = kPaddingX;
    if (hasIcon(iconName_)) {
        const QImage icon =
            renderIcon(iconName_, tint_, QSizeF(kIconSize, kIconSize), devicePixelRatioF());
        painter.drawImage(QPointF(x, (height() - kIconSize) / 2), icon);
        x += kIconSize + kIconGap;
    }
    painter.setFont(textFont());
    painter.setPen(Qt::white);
    painter.drawText(QRectF(x, 0, width() - x - kPaddingX, height()),
                     Qt::AlignVCenter | Qt::AlignLeft, text_);
}

} // namespace qm
