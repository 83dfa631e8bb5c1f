#include "XtermShot.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QThread>

namespace qm::bench {

namespace {

// A child process ended by its id when this goes.
struct Child {
    QProcess process;
    ~Child() {
        if (process.state() != QProcess::NotRunning) {
            process.terminate();
            if (!process.waitForFinished(3000))
                process.kill();
            process.waitForFinished(3000);
        }
    }
};

QImage grab(const QString& display, const QString& path) {
    QProcess import;
    import.start(QStringLiteral("import"),
                 {QStringLiteral("-display"), display, QStringLiteral("-window"),
                  QStringLiteral("root"), QStringLiteral("png:") + path});
    import.waitForFinished(20'000);
    return QImage(path);
}

int darkPixels(const QImage& image) {
    int n = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            n += qGray(image.pixel(x, y)) < 128;
    return n;
}

// The white terminal area, without the black root window around it.
QImage cropToPaper(const QImage& image) {
    QRect paper;
    for (int y = 0; y < image.height(); y += 2)
        for (int x = 0; x < image.width(); x += 2)
            if (qGray(image.pixel(x, y)) > 240)
                paper |= QRect(x, y, 2, 2);
    return paper.isEmpty() ? image : image.copy(paper.intersected(image.rect()));
}

} // namespace

std::optional<TextSample> xtermScreenshot(const QString& name, const QStringList& lines,
                                          const QString& face, int points) {
    for (const char* tool : {"Xvfb", "xterm", "import", "xdpyinfo"})
        if (QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty())
            return std::nullopt;
    QTemporaryDir dir;
    const QString display =
        QStringLiteral(":%1").arg(180 + QCoreApplication::applicationPid() % 60);
    Child x;
    x.process.start(QStringLiteral("Xvfb"), {display, QStringLiteral("-screen"),
                                             QStringLiteral("0"), QStringLiteral("1280x720x24"),
                                             QStringLiteral("-nolisten"), QStringLiteral("tcp")});
    const QDeadlineTimer ready(10'000);
    for (;;) {
        QProcess probe;
        probe.start(QStringLiteral("xdpyinfo"), {QStringLiteral("-display"), display});
        probe.waitForFinished(5000);
        if (probe.exitCode() == 0 && probe.exitStatus() == QProcess::NormalExit)
            break;
        if (ready.hasExpired())
            return std::nullopt;
        QThread::msleep(100); // a bench, not a test: polling the server as it comes up
    }
    QFile text(dir.filePath(QStringLiteral("text.txt")));
    if (!text.open(QIODevice::WriteOnly))
        return std::nullopt;
    text.write(lines.join(QLatin1Char('\n')).toUtf8() + '\n');
    text.close();
    Child term;
    term.process.start(QStringLiteral("xterm"),
                       {QStringLiteral("-display"), display, QStringLiteral("-geometry"),
                        QStringLiteral("100x%1+0+0").arg(lines.size() + 2), QStringLiteral("-fa"),
                        face, QStringLiteral("-fs"), QString::number(points), QStringLiteral("-bg"),
                        QStringLiteral("white"), QStringLiteral("-fg"), QStringLiteral("black"),
                        QStringLiteral("-b"), QStringLiteral("12"), QStringLiteral("-hold"),
                        QStringLiteral("-e"), QStringLiteral("cat"), text.fileName()});
    // Drawn once the ink stops changing between two grabs.
    const QString shot = dir.filePath(QStringLiteral("shot.png"));
    int lastInk = -1;
    QImage image;
    const QDeadlineTimer drawn(20'000);
    while (!drawn.hasExpired()) {
        image = grab(display, shot);
        const int ink = image.isNull() ? 0 : darkPixels(image);
        if (ink > 1000 && ink == lastInk)
            break;
        lastInk = ink;
        QThread::msleep(200);
    }
    if (image.isNull())
        return std::nullopt;
    return TextSample{name, cropToPaper(image), lines.join(QLatin1Char('\n'))};
}

} // namespace qm::bench
