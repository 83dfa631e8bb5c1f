#include "OverlayTestSupport.h"

#include "TestSupport.h"

#include <QGuiApplication>
#include <cmath>
#include <gtest/gtest.h>

namespace qm::test {

QScreen* targetScreen() {
    return QGuiApplication::screens().constLast();
}

QColor syntheticColor(int x, int y) {
    return QColor(x & 0xff, y & 0xff, ((x >> 8) << 4 | (y >> 8)) & 0xff);
}

DisplayCapture syntheticCapture(QScreen* screen, std::vector<CapturedWindow> windows) {
    DisplayCapture capture;
    capture.screen = screen;
    capture.geometry = screen->geometry();
    capture.scale = screen->devicePixelRatio();
    capture.pixelOrigin = toDevice(screen, screen->geometry().topLeft());
    const QSize pixels(int(std::lround(capture.geometry.width() * capture.scale)),
                       int(std::lround(capture.geometry.height() * capture.scale)));
    QImage image(pixels, QImage::Format_RGB32);
    for (int y = 0; y < image.height(); ++y) {
        auto* line = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < image.width(); ++x)
            line[x] = syntheticColor(x, y).rgb();
    }
    image.setDevicePixelRatio(capture.scale);
    capture.image = image;
    capture.windows = std::move(windows);
    return capture;
}

QPoint toDevice(QScreen* screen, QPointF global) {
    // On X11 Qt keeps each screen's top-left in device pixels and scales only within it.
    const QPointF origin = screen->geometry().topLeft();
    const QPointF device = origin + (global - origin) * screen->devicePixelRatio();
    return {int(std::lround(device.x())), int(std::lround(device.y()))};
}

void xdotool(const QStringList& args) {
    const ProcessResult result = run(QStringLiteral("xdotool"), args);
    ASSERT_EQ(result.exitCode, 0) << args.join(QLatin1Char(' ')).toStdString() << ": "
                                  << result.err.toStdString();
}

} // namespace qm::test
