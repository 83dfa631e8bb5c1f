#include "platform/video/x11/X11FrameGrabber.h"
#include "platform/video/x11/X11ScreenVideoSource.h"
#include "platform/video/x11/X11VideoDisplay.h"

#include <QGuiApplication>
#include <QProcess>
#include <QScreen>
#include <atomic>
#include <benchmark/benchmark.h>
#include <chrono>
#include <ctime>
#include <sys/resource.h>
#include <thread>

// What one frame of a screen recording costs on X11, and what a whole stream at 30 fps costs
// the program, next to what a user would otherwise reach for (ffmpeg's x11grab, which draws
// the pointer too). Run it on an Xvfb of the size that matters:
//   tests/run-test.sh --display 1920x1080 -- build/…/bench/video/bench_video_grab

namespace {

using namespace std::chrono_literals;

QRect wholeScreen() {
    const QScreen* screen = QGuiApplication::primaryScreen();
    return QRect(QPoint(0, 0), screen->size() * screen->devicePixelRatio());
}

double processCpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) / 1e9;
}

double childrenCpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    auto seconds = [](timeval v) { return double(v.tv_sec) + double(v.tv_usec) / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// One frame: the pixels through shared memory and, with the argument 1, the pointer's
// position and drawing (its picture is fetched once, then only when it changes).
void BM_grabFrame(benchmark::State& state) {
    auto display = qm::platform::x11::X11VideoDisplay::open({});
    if (!display) {
        state.SkipWithError("no X11 display");
        return;
    }
    const QRect area = wholeScreen();
    qm::platform::x11::X11FrameGrabber grabber(**display, area, state.range(0) != 0);
    for (auto _ : state) {
        auto frame = grabber.grab();
        if (!frame) {
            state.SkipWithError("the grab failed");
            break;
        }
        benchmark::DoNotOptimize(frame->pixels);
    }
    state.counters["megapixels"] = double(area.width()) * area.height() / 1e6;
    state.counters["shm"] = grabber.sharesMemory() ? 1 : 0;
}
BENCHMARK(BM_grabFrame)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// Two seconds of a 30 fps stream of the whole screen: the share of one core the program
// spends on it (the X server's own copy into shared memory is not counted here).
void BM_streamAt30fps(benchmark::State& state) {
    for (auto _ : state) {
        qm::platform::X11ScreenVideoSource source;
        std::atomic<int> frames{0};
        const double cpuBefore = processCpuSeconds();
        const auto wallBefore = std::chrono::steady_clock::now();
        const auto started = source.start({wholeScreen(), 30, true},
                                          [&](const qm::platform::VideoFrame&) { ++frames; }, {});
        if (!started) {
            state.SkipWithError("the stream did not start");
            break;
        }
        std::this_thread::sleep_for(2s); // the stream runs on its own thread meanwhile
        source.stop();
        const double wall =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - wallBefore).count();
        state.counters["cpu_percent"] = 100.0 * (processCpuSeconds() - cpuBefore) / wall;
        state.counters["fps"] = frames / wall;
        state.counters["missed"] = double(source.missedFrames());
    }
}
BENCHMARK(BM_streamAt30fps)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

// The same two seconds through ffmpeg's x11grab into a null sink: its share of one core.
void BM_ffmpegX11grabAt30fps(benchmark::State& state) {
    const QRect area = wholeScreen();
    for (auto _ : state) {
        const double cpuBefore = childrenCpuSeconds();
        const auto wallBefore = std::chrono::steady_clock::now();
        QProcess ffmpeg;
        ffmpeg.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        ffmpeg.start(QStringLiteral("ffmpeg"),
                     {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-f"),
                      QStringLiteral("x11grab"), QStringLiteral("-framerate"), QStringLiteral("30"),
                      QStringLiteral("-video_size"),
                      QStringLiteral("%1x%2").arg(area.width()).arg(area.height()),
                      QStringLiteral("-i"), qEnvironmentVariable("DISPLAY"), QStringLiteral("-t"),
                      QStringLiteral("2"), QStringLiteral("-f"), QStringLiteral("null"),
                      QStringLiteral("-")});
        if (!ffmpeg.waitForFinished(30000) || ffmpeg.exitCode() != 0) {
            state.SkipWithError("ffmpeg failed");
            break;
        }
        const double wall =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - wallBefore).count();
        state.counters["cpu_percent"] = 100.0 * (childrenCpuSeconds() - cpuBefore) / wall;
    }
}
BENCHMARK(BM_ffmpegX11grabAt30fps)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

} // namespace
