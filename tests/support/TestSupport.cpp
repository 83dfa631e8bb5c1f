#include "TestSupport.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QMutex>
#include <QPainter>
#include <QProcess>
#include <QRandomGenerator>
#include <QThread>

namespace qm::test {

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds deadline) {
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > deadline.count())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
    return true;
}

ProcessResult run(const QString& program, const QStringList& args,
                  std::chrono::milliseconds deadline) {
    QProcess process;
    process.start(program, args);
    ProcessResult result;
    if (!process.waitForStarted(int(deadline.count())))
        return result;
    process.closeWriteChannel();
    // Keep our own event loop running: the program may need answers from us (a clipboard
    // reader asks the owner for the data).
    if (!waitUntil([&] { return process.state() == QProcess::NotRunning; }, deadline)) {
        process.kill();
        process.waitForFinished();
        return result;
    }
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    return result;
}

namespace {
QMutex logMutex;
QStringList logLines;
QtMessageHandler previousHandler = nullptr;

void captureMessage(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    {
        QMutexLocker lock(&logMutex);
        logLines << message;
    }
    if (previousHandler)
        previousHandler(type, context, message);
}
} // namespace

LogCapture::LogCapture() {
    QMutexLocker lock(&logMutex);
    logLines.clear();
    previousHandler = qInstallMessageHandler(captureMessage);
}

LogCapture::~LogCapture() {
    qInstallMessageHandler(previousHandler);
}

QStringList LogCapture::lines() const {
    QMutexLocker lock(&logMutex);
    return logLines;
}

bool LogCapture::contains(const QString& fragment) const {
    const QStringList all = lines();
    return std::any_of(all.begin(), all.end(),
                       [&](const QString& line) { return line.contains(fragment); });
}

QImage makeScreenshotLikeImage(int width, int height, bool withAlpha) {
    QImage image(width, height, withAlpha ? QImage::Format_ARGB32 : QImage::Format_RGB32);
    image.fill(QColor(246, 246, 248));
    QRandomGenerator rng(42);
    QPainter p(&image);
    const bool fonts = qobject_cast<QGuiApplication*>(QCoreApplication::instance()) != nullptr;

    // Title bar, sidebar and toolbar: flat UI areas with thin borders.
    p.fillRect(0, 0, width, 32, QColor(222, 222, 226));
    p.fillRect(0, 32, width / 6, height - 32, QColor(235, 237, 240));
    p.setPen(QColor(200, 200, 205));
    p.drawLine(width / 6, 32, width / 6, height);
    // A soft gradient panel.
    QLinearGradient gradient(0, 0, width, height);
    gradient.setColorAt(0, QColor(40, 90, 200));
    gradient.setColorAt(1, QColor(160, 60, 180));
    p.fillRect(width / 6 + 20, 50, width / 3, height / 8, gradient);

    // Lines of text (or glyph-like marks without a font system).
    const int textLeft = width / 6 + 20;
    const int lineHeight = std::max(14, height / 60);
    QFont font = p.font();
    font.setPixelSize(lineHeight - 4);
    if (fonts)
        p.setFont(font);
    p.setPen(QColor(30, 30, 30));
    static const char* words[] = {"capture",    "window", "screen",  "the", "of",     "Quillmark",
                                  "annotation", "pixel",  "display", "and", "select", "area"};
    for (int y = 50 + height / 8 + 20; y < height * 2 / 3; y += lineHeight) {
        QString line;
        const int count = 4 + int(rng.bounded(10));
        for (int i = 0; i < count; ++i)
            line += QLatin1String(words[rng.bounded(12)]) + QLatin1Char(' ');
        if (fonts) {
            p.drawText(textLeft, y, line);
        } else {
            int x = textLeft;
            for (const QChar c : line) {
                if (c != QLatin1Char(' '))
                    p.fillRect(x, y - lineHeight + 6, 5, lineHeight - 8, QColor(30, 30, 30));
                x += 7;
            }
        }
    }

    // A photo-like region: smooth shading with sensor noise.
    const QRect photo(width * 2 / 3, height / 2, width / 3 - 20, height / 2 - 20);
    for (int y = photo.top(); y <= photo.bottom(); ++y) {
        auto* row = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = photo.left(); x <= photo.right(); ++x) {
            const int n = int(rng.bounded(24)) - 12;
            const int r = std::clamp(90 + (x - photo.left()) * 120 / photo.width() + n, 0, 255);
            const int g = std::clamp(120 + (y - photo.top()) * 80 / photo.height() + n, 0, 255);
            const int b = std::clamp(60 + n, 0, 255);
            row[x] = qRgb(r, g, b);
        }
    }
    p.end();

    if (withAlpha) {
        // A translucent band so the alpha channel carries real data.
        for (int y = 0; y < height; y += 3) {
            auto* row = reinterpret_cast<QRgb*>(image.scanLine(y));
            for (int x = 0; x < width; ++x)
                row[x] = qRgba(qRed(row[x]), qGreen(row[x]), qBlue(row[x]), (x * 255) / width);
        }
    }
    return image;
}

} // namespace qm::test
