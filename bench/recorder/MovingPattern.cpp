// A full-screen test pattern that changes on every frame (moving bars, a sweeping block and
// a frame counter), so a screen recorder has new pixels to encode all the time. Used by the
// recording benchmark; it paints at 60 frames a second, twice the recording rate.
#include <QApplication>
#include <QElapsedTimer>
#include <QPainter>
#include <QScreen>
#include <QTimer>
#include <QWidget>

namespace {

class Pattern : public QWidget {
public:
    Pattern() {
        setWindowFlags(Qt::FramelessWindowHint | Qt::X11BypassWindowManagerHint);
        setAttribute(Qt::WA_OpaquePaintEvent);
        connect(&m_timer, &QTimer::timeout, this, [this] { update(); });
        m_timer.setTimerType(Qt::PreciseTimer);
        m_timer.start(16);
        m_clock.start();
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        const qint64 ms = m_clock.elapsed();
        const int shift = int(ms / 4) % 160;
        for (int x = -160; x < width(); x += 40) {
            const int hue = ((x + 160) / 40 * 23) % 360;
            p.fillRect(x + shift, 0, 40, height(), QColor::fromHsv(hue, 180, 220));
        }
        const int bx = int(ms / 2) % qMax(1, width() - 300);
        p.fillRect(bx, height() / 3, 300, height() / 3, Qt::black);
        p.setPen(Qt::white);
        QFont font = p.font();
        font.setPixelSize(64);
        p.setFont(font);
        p.drawText(bx + 20, height() / 2, QString::number(ms));
    }

private:
    QTimer m_timer;
    QElapsedTimer m_clock;
};

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    Pattern pattern;
    // The recorded area: full HD in the top-left corner, whatever the screen size.
    pattern.setGeometry(
        QRect(0, 0, 1920, 1080).intersected(QGuiApplication::primaryScreen()->geometry()));
    pattern.show();
    return QApplication::exec();
}
