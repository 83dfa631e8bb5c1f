#include "capture/ui/CaptureFlash.h"

#include "base/Screens.h"
#include "ui/FloatingWindow.h"

#include <QApplication>
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
        m_fade.setTargetObject(this);
        m_fade.setPropertyName("windowOpacity");
        m_fade.setDuration(int(fadeDuration.count()));
        m_fade.setStartValue(1.0);
        m_fade.setEndValue(0.0);
        QObject::connect(&m_fade, &QPropertyAnimation::finished, this, &QWidget::hide);
    }

    void start(const QRect& geometry) {
        m_fade.stop();
        setWindowOpacity(1.0);
        if (QScreen* under = QGuiApplication::screenAt(geometry.center())) {
            winId();
            windowHandle()->setScreen(under);
        }
        setGeometry(geometry);
        show();
        raise();
        m_fade.start();
    }

protected:
    void paintEvent(QPaintEvent*) override { QPainter(this).fillRect(rect(), Qt::white); }

private:
    QPropertyAnimation m_fade;
};

// One flash window serves every capture, hidden in between: a new one would allocate and
// paint a fresh screen-sized buffer each time, just while the capture is being encoded.
FlashWindow* flashWindow() {
    static QPointer<FlashWindow> window;
    if (!window) {
        window = new FlashWindow;
        QObject::connect(qApp, &QCoreApplication::aboutToQuit, qApp, [] { delete window; });
    }
    return window;
}
} // namespace

QPointer<QWidget> flash(std::optional<QRectF> rect, QScreen* screen) {
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    const QRectF area = rect ? *rect : screen ? QRectF(screen->geometry()) : QRectF();
    if (!(area.width() > 1 && area.height() > 1))
        return nullptr;

    FlashWindow* window = flashWindow();
    window->start(area.toAlignedRect());
    return window;
}

QPointer<QWidget> flashScreenUnderMouse() {
    return flash(std::nullopt, screenUnderPointer());
}

} // namespace qm::CaptureFlash
