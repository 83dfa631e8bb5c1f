#include "capture/ui/CountdownView.h"

#include "capture/ui/CountdownController.h"
#include "ui/FloatingWindow.h"
#include "ui/Icons.h"

#include <QAbstractButton>
#include <QFontMetricsF>
#include <QGuiApplication>
#include <QPainter>
#include <cmath>

namespace qm {

namespace {

constexpr int kPadding = 12;
constexpr int kRadius = 14;
constexpr int kGap = 14;

QFont uiFont(int pixelSize, QFont::Weight weight) {
    QFont font = QGuiApplication::font();
    font.setPixelSize(pixelSize);
    font.setWeight(weight);
    return font;
}

// A capsule button with the "window-close" symbol and a label; lighter while hovered.
class CancelButton final : public QAbstractButton {
public:
    explicit CancelButton(QWidget* parent)
        : QAbstractButton(parent) {
        setText(QStringLiteral("Cancel"));
        setFocusPolicy(Qt::NoFocus);
        setAttribute(Qt::WA_Hover);
        setCursor(Qt::PointingHandCursor);
        setObjectName(QStringLiteral("CancelButton"));
    }

    QSize sizeHint() const override {
        const QFontMetricsF metrics(uiFont(13, QFont::DemiBold));
        return {int(std::ceil(metrics.horizontalAdvance(text()))) + 12 + 6 + 2 * 12, 30};
    }

protected:
    void enterEvent(QEnterEvent* event) override {
        QAbstractButton::enterEvent(event);
        update();
    }
    void leaveEvent(QEvent* event) override {
        QAbstractButton::leaveEvent(event);
        update();
    }

    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const QRectF bounds = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
        const int alpha = isDown() ? 80 : underMouse() ? 56 : 32;
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(255, 255, 255, alpha));
        painter.drawRoundedRect(bounds, bounds.height() / 2, bounds.height() / 2);
        const QImage symbol = renderIcon(QStringLiteral("window-close"), Qt::white, QSizeF(12, 12),
                                         devicePixelRatioF());
        painter.drawImage(QPointF(12, (height() - 12) / 2.0), symbol);
        painter.setFont(uiFont(13, QFont::DemiBold));
        painter.setPen(Qt::white);
        painter.drawText(QRectF(12 + 12 + 6, 0, width() - 30, height()),
                         Qt::AlignVCenter | Qt::AlignLeft, text());
    }
};

} // namespace

CountdownView::CountdownView(const CountdownState& state, std::function<void()> onCancel)
    : state_(state)
    , onCancel_(std::move(onCancel)) {
    setObjectName(QStringLiteral("CountdownView"));
    setWindowTitle(QStringLiteral("Quillmark Countdown"));
    makeFloatingWindow(this, PointerInput::Accept);
    cancelButton_ = new CancelButton(this);
    connect(cancelButton_, &QAbstractButton::clicked, this, [this] {
        if (onCancel_)
            onCancel_();
    });
    connect(&state_, &CountdownState::remainingChanged, this, [this] { update(); });
    resize(200, 60);
}

bool CountdownView::cancelHover() const {
    return cancelButton_->underMouse();
}

QFont CountdownView::digitFont() const {
    return uiFont(30, QFont::Bold);
}

QSize CountdownView::sizeHint() const {
    // Room for two digits, so the panel keeps its size while counting down from 10.
    const QFontMetricsF metrics(digitFont());
    const int digits = int(std::ceil(metrics.horizontalAdvance(QStringLiteral("00"))));
    const QSize button = cancelButton_->sizeHint();
    return {kPadding + 8 + digits + 8 + kGap + button.width() + kPadding,
            std::max(int(std::ceil(metrics.height())), button.height()) + 2 * kPadding};
}

void CountdownView::resizeEvent(QResizeEvent*) {
    const QSize button = cancelButton_->sizeHint();
    cancelButton_->setGeometry(width() - kPadding - button.width(),
                               (height() - button.height()) / 2, button.width(), button.height());
    shapeRounded(this, kRadius);
}

void CountdownView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    paintPanelFace(painter, this, kRadius);

    painter.setFont(digitFont());
    painter.setPen(Qt::white);
    const QRectF digits(kPadding, 0, cancelButton_->x() - kGap - kPadding, height());
    painter.drawText(digits, Qt::AlignCenter, QString::number(state_.remaining()));
}

} // namespace qm
