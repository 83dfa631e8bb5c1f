#include "TextCorpus.h"
#include "XtermShot.h"
#include "ocr/TextRecognizer.h"

#include <QElapsedTimer>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <limits>
#include <tuple>

// How well, and how fast, each page-segmentation mode and enlargement reads ordinary
// screenshots of text; the settings TextRecognizer uses were picked from this table.

namespace {

using qm::TextRecognizer;

const QStringList kTerminal{
    QStringLiteral("$ ls -l reports"),
    QStringLiteral("-rw-r--r-- 1 ada staff  48213 Mar  3 09:14 summary-2024.txt"),
    QStringLiteral("-rw-r--r-- 1 ada staff 310442 Mar  4 17:52 Invoice 2291.pdf"),
    QStringLiteral("$ git log --oneline -3"),
    QStringLiteral("8f65f36 Search prints the newest captures first"),
    QStringLiteral("f35ce86 The index keeps its records in one file"),
    QStringLiteral("$ make -j2 check"),
    QStringLiteral("PASS: 41 tests, FAIL: 0, time 12.7 s"),
};

// The drawn corpus and, where Xvfb and xterm are here, real terminal screenshots.
std::vector<qm::bench::TextSample> corpus() {
    auto samples = qm::bench::screenCorpus();
    for (const auto& [name, face, points] : {std::tuple{"xterm-dejavu-10", "DejaVu Sans Mono", 10},
                                             std::tuple{"xterm-nimbus-11", "Nimbus Mono PS", 11}}) {
        if (auto shot = qm::bench::xtermScreenshot(QString::fromLatin1(name), kTerminal,
                                                   QString::fromLatin1(face), points))
            samples.push_back(std::move(*shot));
        else
            std::fprintf(stderr, "no xterm screenshot (Xvfb, xterm or import missing)\n");
    }
    return samples;
}

struct Score {
    double meanCer = 0;
    double worstCer = 0;
    double msPerImage = 0;
};

Score score(const std::vector<qm::bench::TextSample>& corpus, TextRecognizer::Tuning tuning,
            bool print) {
    Score s;
    QElapsedTimer clock;
    clock.start();
    for (const auto& sample : corpus) {
        const auto text = TextRecognizer::text(sample.image, tuning);
        const double cer = qm::bench::characterErrorRate(text.valueOr(QString()), sample.truth);
        if (print)
            std::fprintf(stderr, "    %-18s %6.2f %%\n", qPrintable(sample.name), cer * 100);
        s.meanCer += cer / double(corpus.size());
        s.worstCer = std::max(s.worstCer, cer);
    }
    s.msPerImage = double(clock.elapsed()) / double(corpus.size());
    return s;
}

void BM_settingsSweep(benchmark::State& state) {
    const auto samples = corpus();
    if (!TextRecognizer::startEngine().ok()) {
        state.SkipWithError("the text engine cannot start");
        return;
    }
    for (auto _ : state) {
        TextRecognizer::Tuning best;
        Score bestScore{std::numeric_limits<double>::max(), 0, 0};
        std::fprintf(stderr, "PSM  scale   mean CER  worst CER   ms/image\n");
        for (const int psm : {3, 4, 6, 11}) {
            for (const double scale : {1.0, 1.5, 2.0, 3.0}) {
                const TextRecognizer::Tuning tuning{psm, scale, std::numeric_limits<qint64>::max(),
                                                    psm, std::numeric_limits<qint64>::max()};
                const Score s = score(samples, tuning, false);
                std::fprintf(stderr, "%3d  %5.1f   %7.2f %%  %7.2f %%  %9.0f\n", psm, scale,
                             s.meanCer * 100, s.worstCer * 100, s.msPerImage);
                // Within a tenth of a point the faster one wins.
                if (s.meanCer < bestScore.meanCer - 0.001 ||
                    (s.meanCer < bestScore.meanCer + 0.001 &&
                     s.msPerImage < bestScore.msPerImage)) {
                    best = tuning;
                    bestScore = s;
                }
            }
        }
        std::fprintf(stderr, "best: PSM %d at scale %.1f, mean CER %.2f %%\n",
                     best.pageSegmentation, best.scale, bestScore.meanCer * 100);
        state.counters["bestPSM"] = best.pageSegmentation;
        state.counters["bestScale"] = best.scale;
        state.counters["bestCER%"] = bestScore.meanCer * 100;
    }
}
BENCHMARK(BM_settingsSweep)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

// The settings in use, sample by sample.
void BM_defaultSettings(benchmark::State& state) {
    const auto samples = corpus();
    for (auto _ : state) {
        std::fprintf(stderr, "default settings:\n");
        const Score s = score(samples, TextRecognizer::defaultTuning(), true);
        state.counters["meanCER%"] = s.meanCer * 100;
        state.counters["worstCER%"] = s.worstCer * 100;
        state.counters["msPerImage"] = s.msPerImage;
    }
}
BENCHMARK(BM_defaultSettings)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

} // namespace
