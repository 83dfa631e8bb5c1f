#include "capture/ui/CaptureFlash.h"

#include "base/Screens.h"
#include "ui/FloatingWindow.h"

#include <QGuiApplication>
#include <QPainter>
#include <QPropertyAnimation>
#include <QScreen>
#include <QWindow>

namespace qm::CaptureFlash {

namespace {
class FlashWindow final : public QWidget {
public:
    FlashWindow() {
        setObjectName(QStringLiteral("CaptureFlash"));
        setWindowTitle(QStringLiteral("Quillmark Flash"));
        makeFloatingWindow(this, PointerInput::PassThrough);
        setAttribute(Qt::WA_DeleteOnClose);
    }

protected:
    void paintEvent(QPaintEvent*) override { QPainter(this).fillRect(rect(), Qt::white); }
};
} // namespace

QPointer<QWidget> flash(std::optional<QRectF> rect, QScreen* screen) {
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    const QRectF area = rect ? *rect : screen ? QRectF(screen->geometry()) : QRectF();
    if (!(area.width() > 1 && area.height() > 1))
        return nullptr;

    auto* window = new FlashWindow;
    const QRect geometry = area.toAlignedRect();
    if (QScreen* under = QGuiApplication::screenAt(geometry.center())) {
        window->winId();
        window->windowHandle()->setScreen(under);
    }
    window->setGeometry(geometry);
    window->show();
    auto* animation = new QPropertyAnimation(window, "windowOpacity", window);
    animation->setDuration(int(fadeDuration.count()));
    animation->setStartValue(1.0);
    animation->setEndValue(0.0);
    QObject::connect(animation, &QPropertyAnimation::finished, window, &QWidget::close);
    animation->start(QAbstractAnimation::DeleteWhenStopped);
    return window;
}

QPointer<QWidget> flashScreenUnderMouse() {
    return flash(std::nullopt, screenUnderPointer());
}

} // namespace qm::CaptureFlash
