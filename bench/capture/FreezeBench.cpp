#include "TestSupport.h"
#include "capture/core/ScreenCaptureManager.h"
#include "platform/capture/x11/X11CaptureBackend.h"

#include <QEventLoop>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QPixmap>
#include <QProcess>
#include <QScreen>
#include <benchmark/benchmark.h>
#include <memory>
#include <vector>

// Freezing the screen under the pointer, as the area shortcut does, against what a user would
// otherwise reach for: Qt's own screen grab and ImageMagick's `import`. Run it on the screen
// size that matters, e.g. a 3840 × 2160 Xvfb.

namespace {

// A few foreign windows, so the window list has something to walk.
class Desktop {
public:
    explicit Desktop(int windows) {
        for (int i = 0; i < windows; ++i) {
            auto term = std::make_unique<QProcess>();
            term->start(QStringLiteral("xterm"),
                        {QStringLiteral("-geometry"),
                         QStringLiteral("60x20+%1+%2").arg(80 + i * 160).arg(60 + i * 120),
                         QStringLiteral("-e"), QStringLiteral("sleep"), QStringLiteral("600")});
            m_terms.push_back(std::move(term));
        }
    }
    ~Desktop() {
        for (auto& term : m_terms) {
            term->kill();
            term->waitForFinished();
        }
    }

private:
    std::vector<std::unique_ptr<QProcess>> m_terms;
};

void BM_freezeScreenWithWindowList(benchmark::State& state) {
    std::unique_ptr<qm::platform::ScreenCaptureBackend> backend =
        qm::platform::X11CaptureBackend::connect();
    if (!backend) {
        state.SkipWithError("no X11 display");
        return;
    }
    Desktop desktop(5);
    qm::ShareableContentCache cache(*backend);
    qm::ScreenCaptureManager manager(*backend, cache);
    QScreen* screen = QGuiApplication::primaryScreen();
    // As at start-up: the cache is warm before the first shortcut.
    qm::test::waitUntil([&] { return backend->windowList().size() >= 5; });
    cache.prewarm();
    qm::test::waitUntil([&] { return cache.cached().has_value(); });

    // The freeze logs its timing every time; the benchmark reports it instead.
    QLoggingCategory::setFilterRules(QStringLiteral("quillmark.capture.info=false"));
    QObject context;
    std::size_t windows = 0;
    qint64 pixels = 0;
    for (auto _ : state) {
        QEventLoop loop;
        manager.capture(screen, &context, [&](const qm::CaptureResult<qm::DisplayCapture>& r) {
            if (r.ok()) {
                windows = r->windows.size();
                pixels = qint64(r->image.width()) * r->image.height();
            }
            loop.quit();
        });
        loop.exec();
    }
    state.counters["windows"] = double(windows);
    state.counters["megapixels"] = double(pixels) / 1e6;
}
BENCHMARK(BM_freezeScreenWithWindowList)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

// The pixels alone, through shared memory: the floor under the freeze.
void BM_xshmPixelsOnly(benchmark::State& state) {
    auto backend = qm::platform::X11CaptureBackend::connect();
    if (!backend) {
        state.SkipWithError("no X11 display");
        return;
    }
    const QScreen* screen = QGuiApplication::primaryScreen();
    const QRect rect(QPoint(0, 0), screen->size() * screen->devicePixelRatio());
    for (auto _ : state)
        benchmark::DoNotOptimize(backend->grabDisplayNow(rect));
}
BENCHMARK(BM_xshmPixelsOnly)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_grabWindow(benchmark::State& state) {
    QScreen* screen = QGuiApplication::primaryScreen();
    for (auto _ : state)
        benchmark::DoNotOptimize(screen->grabWindow(0));
}
BENCHMARK(BM_grabWindow)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

void BM_import(benchmark::State& state) {
    for (auto _ : state) {
        QProcess import;
        import.setStandardOutputFile(QProcess::nullDevice());
        import.start(QStringLiteral("import"),
                     {QStringLiteral("-window"), QStringLiteral("root"), QStringLiteral("miff:-")});
        if (!import.waitForFinished(60000) || import.exitCode() != 0) {
            state.SkipWithError("import failed");
            break;
        }
    }
}
BENCHMARK(BM_import)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(3)
    ->Repetitions(3)
    ->ReportAggregatesOnly(true);

} // namespace
