#include "ui/ToastView.h"

#include "ui/FloatingWindow.h"
#include "ui/Icons.h"

#include <QFontMetricsF>
#include <QGuiApplication>
#include <QMouseEvent>
#include <QPainter>
#include <cmath>

namespace qm {

namespace {
constexpr double kIconSize = 16.0;
constexpr double kIconGap = 8.0;
constexpr double kPaddingX = 16.0;
constexpr double kPaddingY = 10.0;
constexpr double kButtonGap = 12.0;
constexpr double kButtonPadding = 10.0;
} // namespace

ToastView::ToastView(QString text, QString iconName, QColor tint, ToastActions actions)
    : text_(std::move(text))
    , iconName_(std::move(iconName))
    , tint_(tint)
    , actions_(std::move(actions)) {
    setObjectName(QStringLiteral("ToastView"));
    setWindowTitle(QStringLiteral("Quillmark Toast"));
    makeFloatingWindow(this, actions_.any() ? PointerInput::Accept : PointerInput::PassThrough);
    if (actions_.any())
        setCursor(Qt::PointingHandCursor);
    setAttribute(Qt::WA_DeleteOnClose);
}

double ToastView::buttonWidth() const {
    if (actions_.buttonLabel.isEmpty() || !actions_.onButton)
        return 0;
    return QFontMetricsF(textFont()).horizontalAdvance(actions_.buttonLabel) + 2 * kButtonPadding;
}

QRectF ToastView::buttonRect() const {
    const double w = buttonWidth();
    if (w <= 0)
        return {};
    return {width() - kPaddingX / 2 - w, 4.0, w, height() - 8.0};
}

void ToastView::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || !rect().contains(event->position().toPoint()))
        return;
    // Copies: either action may close this toast.
    if (buttonRect().contains(event->position())) {
        if (auto button = actions_.onButton)
            button();
    } else if (auto click = actions_.onClick) {
        click();
    }
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
    if (const double button = buttonWidth(); button > 0)
        width += kButtonGap + button - kPaddingX / 2;
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
    const QRectF button = buttonRect();
    const double right = button.isEmpty() ? width() - kPaddingX : button.left() - kButtonGap;
    painter.drawText(QRectF(x, 0, right - x, height()), Qt::AlignVCenter | Qt::AlignLeft, text_);
    if (!button.isEmpty()) {
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(255, 255, 255, 40));
        painter.drawRoundedRect(button, button.height() / 2, button.height() / 2);
        painter.setPen(Qt::white);
        painter.drawText(button, Qt::AlignCenter, actions_.buttonLabel);
    }
}

} // namespace qm
