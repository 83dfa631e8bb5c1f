#include "ui/ToastCenter.h"

#include "base/Screens.h"
#include "platform/desktop/Notifications.h"
#include "platform/desktop/Reveal.h"
#include "ui/Brand.h"
#include "ui/FloatingWindow.h"
#include "ui/ToastView.h"

#include <QFileInfo>
#include <QPropertyAnimation>
#include <QScreen>
#include <QWindow>
#include <cmath>

namespace qm {

namespace {
void fade(QWidget* window, double to, std::chrono::milliseconds duration,
          const std::function<void()>& then = {}) {
    auto* animation = new QPropertyAnimation(window, "windowOpacity", window);
    animation->setDuration(int(duration.count()));
    animation->setStartValue(window->windowOpacity());
    animation->setEndValue(to);
    if (then)
        QObject::connect(animation, &QPropertyAnimation::finished, window, then);
    animation->start(QAbstractAnimation::DeleteWhenStopped);
}
} // namespace

ToastCenter::ToastCenter(QObject* parent, std::chrono::milliseconds hold)
    : QObject(parent)
    , hold_(hold) {
    dismissTimer_.setSingleShot(true);
    connect(&dismissTimer_, &QTimer::timeout, this, [this] {
        if (window_)
            dismiss(window_);
    });
}

ToastCenter::~ToastCenter() {
    if (window_)
        window_->close();
}

std::chrono::milliseconds ToastCenter::timeLeft() const {
    return dismissTimer_.isActive() ? dismissTimer_.remainingTimeAsDuration()
                                    : std::chrono::milliseconds(0);
}

QColor ToastCenter::tint(Style style) {
    switch (style) {
    case Style::Plain:
        return Qt::white;
    case Style::Accent:
        return Brand::yellow();
    case Style::Error:
        return QColor(255, 69, 58);
    }
    return Qt::white;
}

void ToastCenter::present(const QString& text, const QString& iconName, Style style,
                          ToastActions actions) {
    // A replaced toast goes at once, and its pending dismissal with it.
    dismissTimer_.stop();
    if (window_) {
        window_->close();
        window_.clear();
    }

    const auto hold = actions.any() ? 2 * hold_ : hold_;
    // An action ends the toast: it has done its job.
    auto closing = [this](std::function<void()> action) -> std::function<void()> {
        if (!action)
            return {};
        return [this, action = std::move(action)] {
            if (window_)
                dismiss(window_);
            action();
        };
    };
    actions.onClick = closing(std::move(actions.onClick));
    actions.onButton = closing(std::move(actions.onButton));
    auto* toast = new ToastView(text, iconName, tint(style), std::move(actions));
    const QSize size = toast->sizeHint();
    QScreen* screen = screenUnderPointer();
    if (size.width() <= 1 || size.height() <= 1 || !screen) {
        toast->close();
        return;
    }
    const QRect visible = screen->availableGeometry();
    const int x = int(std::lround(visible.x() + visible.width() / 2.0 - size.width() / 2.0));
    const int y = visible.y() + visible.height() - bottomMargin - size.height();
    toast->winId();
    toast->windowHandle()->setScreen(screen);
    toast->setGeometry(QRect(QPoint(x, y), size));
    toast->setWindowOpacity(0.0);
    toast->show();
    fade(toast, 1.0, fadeIn);

    window_ = toast;
    dismissTimer_.start(hold);
}

void ToastCenter::presentSaved(const QString& path) {
    if (notifications_)
        return notifications_->notify(QStringLiteral("Saved"), QFileInfo(path).fileName(),
                                      QStringLiteral("document-save"),
                                      [path] { revealInFolder(path); });
    present(QStringLiteral("Saved “%1”").arg(QFileInfo(path).fileName()),
            QStringLiteral("document-save"), Style::Plain,
            {[path] { revealInFolder(path); }, {}, {}});
}

void ToastCenter::presentNotSaved(const QString& reason, std::function<void()> saveAs) {
    if (notifications_)
        return notifications_->notify(QStringLiteral("Not saved"), reason,
                                      QStringLiteral("dialog-warning"), std::move(saveAs));
    ToastActions actions;
    if (saveAs) {
        actions.buttonLabel = QStringLiteral("Save As…");
        actions.onButton = std::move(saveAs);
    }
    present(QStringLiteral("Not saved: ") + reason, QStringLiteral("dialog-warning"), Style::Error,
            std::move(actions));
}

void ToastCenter::dismiss(ToastView* window) {
    if (!window)
        return;
    QPointer<ToastView> target(window);
    QPointer<ToastCenter> self(this);
    fade(window, 0.0, fadeOut, [self, target] {
        if (!target)
            return;
        if (self && target == self->window_)
            self->window_.clear();
        target->close();
    });
}

} // namespace qm
