#include "ocr/TextRecognizer.h"

#include <QFont>
#include <QImage>
#include <QPainter>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <thread>

// Reading the text of a screenshot-sized crop: with the thread's engine kept from one
// recognition to the next, with a fresh engine each time (what every recognition cost before
// engines were kept), and with the `tesseract` command a user would otherwise run.

namespace {

QImage screenText() {
    QImage image(QSize(900, 260), QImage::Format_RGB32);
    image.fill(QColor(250, 250, 252));
    QPainter p(&image);
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPixelSize(18);
    p.setFont(font);
    p.setPen(QColor(30, 30, 35));
    const QStringList lines{QStringLiteral("Deploy finished in 42 seconds"),
                            QStringLiteral("Open the settings window to continue"),
                            QStringLiteral("Quarterly report: revenue up 12%")};
    int y = 40;
    for (const QString& line : lines) {
        p.drawText(QPoint(30, y), line);
        y += 36;
    }
    return image;
}

void BM_recognizeWithTheThreadsEngine(benchmark::State& state) {
    const QImage image = screenText();
    if (!qm::TextRecognizer::text(image).ok()) { // starts this thread's engine
        state.SkipWithError("the text engine cannot start");
        return;
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(qm::TextRecognizer::text(image));
}
BENCHMARK(BM_recognizeWithTheThreadsEngine)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_recognizeWithAFreshEngine(benchmark::State& state) {
    const QImage image = screenText();
    for (auto _ : state) {
        // A new thread has no engine yet, so each recognition starts one.
        std::thread worker([&image] { benchmark::DoNotOptimize(qm::TextRecognizer::text(image)); });
        worker.join();
    }
}
BENCHMARK(BM_recognizeWithAFreshEngine)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_tesseractCommand(benchmark::State& state) {
    const QString tesseract = QStandardPaths::findExecutable(QStringLiteral("tesseract"));
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("text.png"));
    if (tesseract.isEmpty() || !screenText().save(path)) {
        state.SkipWithError("no tesseract command");
        return;
    }
    for (auto _ : state) {
        QProcess process;
        process.start(tesseract,
                      {path, QStringLiteral("stdout"), QStringLiteral("--psm"), QStringLiteral("6"),
                       QStringLiteral("-l"), QStringLiteral("eng")});
        process.waitForFinished(60'000);
        benchmark::DoNotOptimize(process.readAllStandardOutput());
    }
}
BENCHMARK(BM_tesseractCommand)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
