#include "TextCorpus.h"
#include "library/index/OcrTextIndex.h"

#include <QDateTime>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <cstdio>

// Screenshots per second on full screens of text: the library's index (decoding, scaling and
// all its workers) beside the `tesseract` command a user would otherwise run on the same
// files, with the character error rate of each.

namespace {

constexpr int kScreens = 3;

struct Screens {
    QTemporaryDir dir;
    QStringList paths;
    QStringList enlarged;
    QStringList truths;
    Screens() {
        // QM_BENCH_KEEP=1 leaves the screens behind for a look at them.
        if (qEnvironmentVariableIsSet("QM_BENCH_KEEP")) {
            dir.setAutoRemove(false);
            std::fprintf(stderr, "screens in %s\n", qPrintable(dir.path()));
        }
        for (int i = 0; i < kScreens; ++i) {
            const auto sample = qm::bench::fullScreenOfText(i);
            const QString path = dir.filePath(QStringLiteral("screen %1.png").arg(i));
            sample.image.save(path);
            paths << path;
            truths << sample.truth;
            // The same screen at twice its size, as the index reads it, for the command.
            const QString large = dir.filePath(QStringLiteral("screen %1 2x.png").arg(i));
            sample.image
                .scaled(sample.image.size() * 2, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                .save(large);
            enlarged << large;
        }
    }
};

// The index as the tray keeps it: its workers' engines start in the first round (argument 0:
// that round alone) or are warm from the round before (1: the later rounds; every file is
// touched in between so it is read again).
void BM_indexAllWorkers(benchmark::State& state) {
    Screens screens;
    QTemporaryDir data;
    qm::library::OcrTextIndex::Options options;
    options.file = data.filePath(QStringLiteral("ocr-index.json"));
    qm::library::OcrTextIndex index(options);
    QEventLoop loop;
    QObject::connect(&index, &qm::library::OcrTextIndex::isIndexingChanged, &loop,
                     [&loop](bool on) {
                         if (!on)
                             loop.quit();
                     });
    const auto readAll = [&] {
        index.index(screens.paths);
        if (index.isIndexing())
            loop.exec();
    };
    if (state.range(0) == 1)
        readAll();
    double cer = 0;
    int round = 0;
    for (auto _ : state) {
        state.PauseTiming();
        for (const QString& path : screens.paths) {
            QFile file(path);
            file.open(QIODevice::ReadWrite);
            file.setFileTime(QDateTime::currentDateTime().addSecs(++round * 10),
                             QFileDevice::FileModificationTime);
        }
        state.ResumeTiming();
        readAll();
        state.PauseTiming();
        cer = 0;
        for (int i = 0; i < kScreens; ++i)
            cer += qm::bench::characterErrorRate(
                       index.record(screens.paths[i]).value_or(qm::library::OcrRecord{}).text,
                       screens.truths[i]) /
                   kScreens;
        state.ResumeTiming();
    }
    state.counters["screenshots/s"] = benchmark::Counter(
        double(kScreens) * double(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["CER%"] = cer * 100;
    state.counters["workers"] = qm::library::OcrTextIndex::defaultWorkerCount();
}
BENCHMARK(BM_indexAllWorkers)->Arg(0)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK(BM_indexAllWorkers)->Arg(1)->Iterations(2)->Unit(benchmark::kSecond)->UseRealTime();

// The command on each file in turn, as a script would run it. Arguments: its OpenMP threads
// limited to one (1) or left at their default (0); and whether it runs at the index workers'
// lowered priority (1), for a fair race on a busy machine, or at the normal one (0); and
// whether it reads the screens at their own size (0) or enlarged as the index does (1).
void BM_tesseractCommand(benchmark::State& state) {
    const QString tesseract = QStandardPaths::findExecutable(QStringLiteral("tesseract"));
    if (tesseract.isEmpty()) {
        state.SkipWithError("no tesseract command (scripts/setup.sh installs it)");
        return;
    }
    const bool lowered = state.range(1) == 1;
    // Given the screens already enlarged (1), the command reads what the index reads; the
    // enlarging is not timed.
    const bool enlarged = state.range(2) == 1;
    const QString program =
        lowered ? QStandardPaths::findExecutable(QStringLiteral("nice")) : tesseract;
    const QStringList prefix =
        lowered ? QStringList{QStringLiteral("-n"), QStringLiteral("10"), tesseract}
                : QStringList{};
    Screens screens;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    if (state.range(0) == 1)
        env.insert(QStringLiteral("OMP_THREAD_LIMIT"), QStringLiteral("1"));
    double cer = 0;
    for (auto _ : state) {
        cer = 0;
        for (int i = 0; i < kScreens; ++i) {
            QProcess process;
            process.setProcessEnvironment(env);
            process.start(program,
                          prefix + QStringList{enlarged ? screens.enlarged[i] : screens.paths[i],
                                               QStringLiteral("stdout")});
            process.waitForFinished(300'000);
            state.PauseTiming();
            cer += qm::bench::characterErrorRate(QString::fromUtf8(process.readAllStandardOutput()),
                                                 screens.truths[i]) /
                   kScreens;
            state.ResumeTiming();
        }
    }
    state.counters["screenshots/s"] = benchmark::Counter(
        double(kScreens) * double(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["CER%"] = cer * 100;
}
BENCHMARK(BM_tesseractCommand)
    ->Args({1, 1, 1})
    ->Args({1, 1, 0})
    ->Args({1, 0, 0})
    ->Args({0, 0, 0})
    ->Iterations(1)
    ->Unit(benchmark::kSecond)
    ->UseRealTime();

} // namespace
