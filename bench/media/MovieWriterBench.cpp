#include "TestSupport.h"
#include "media/MovieWriter.h"

#include <QImage>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cmath>
#include <ctime>
#include <vector>

// What a recording costs: 1920 × 1080 at 30 frames a second with both sound tracks, per x264
// preset. "fps" is how many frames a second the writer takes when fed as fast as it can (30
// keeps up with the screen); "cpu_per_s" is the processor seconds (all threads) one second
// of movie costs, out of the 2 a two-core machine has.

namespace {

using namespace std::chrono_literals;

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr int kFps = 30;
constexpr int kFrames = 10 * kFps;

// A screenshot twice the screen's height, so a frame can be any window onto it.
const QImage& page() {
    static const QImage image = qm::test::makeScreenshotLikeImage(kWidth, 2 * kHeight)
                                    .convertToFormat(QImage::Format_RGB32); // BGRX in memory
    return image;
}

enum class Motion {
    Scrolling, // the whole screen moves: a page scrolled, 6 pixels a frame
    Typing,    // a still screen where a small area changes: a cursor moving, text typed
};

double processSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

void record(benchmark::State& state, const char* preset, Motion motion) {
    const QImage& source = page();
    QImage still = source.copy(0, 0, kWidth, kHeight);
    std::vector<float> sound(std::size_t(48000 / kFps) * 2);
    for (std::size_t i = 0; i < sound.size() / 2; ++i)
        sound[2 * i] = sound[2 * i + 1] =
            0.3f * float(std::sin(2 * M_PI * 440 * double(i) / 48000));
    double cpu = 0, wall = 0;
    for (auto _ : state) {
        QTemporaryDir dir;
        auto writer = qm::media::MovieWriter::create(dir.filePath(QStringLiteral("bench.mov")),
                                                     {.size = {kWidth, kHeight},
                                                      .fps = kFps,
                                                      .systemAudio = true,
                                                      .microphone = true,
                                                      .x264Preset = QString::fromLatin1(preset)});
        if (!writer) {
            state.SkipWithError(writer.error().reason.toUtf8().constData());
            return;
        }
        const double cpuStart = processSeconds();
        const auto wallStart = std::chrono::steady_clock::now();
        for (int frame = 0; frame < kFrames; ++frame) {
            const qm::MediaTime t = frame * 1'000'000'000ns / kFps;
            const std::uint8_t* pixels = nullptr;
            if (motion == Motion::Scrolling) {
                pixels = source.constScanLine((frame * 6) % kHeight);
            } else {
                // A 64 × 24 block moves along a line of text and leaves a trail of changes.
                const int x = (frame * 16) % (kWidth - 64), y = 400 + (frame / 110) * 30;
                for (int row = y; row < y + 24; ++row)
                    std::fill_n(reinterpret_cast<QRgb*>(still.scanLine(row)) + x, 64,
                                qRgb(frame * 7 % 255, 40, 200));
                pixels = still.constBits();
            }
            bool ok = (*writer)->writeVideo(pixels, int(source.bytesPerLine()), t).ok();
            ok =
                ok && (*writer)
                          ->writeAudio(qm::media::AudioTrack::System, sound.data(), 48000 / kFps, t)
                          .ok();
            ok = ok &&
                 (*writer)
                     ->writeAudio(qm::media::AudioTrack::Microphone, sound.data(), 48000 / kFps, t)
                     .ok();
            if (!ok) {
                state.SkipWithError("writing failed");
                return;
            }
        }
        if (!(*writer)->finish().ok()) {
            state.SkipWithError("finishing failed");
            return;
        }
        wall += std::chrono::duration<double>(std::chrono::steady_clock::now() - wallStart).count();
        cpu += processSeconds() - cpuStart;
    }
    const double movieSeconds = double(state.iterations()) * kFrames / kFps;
    state.counters["fps"] = double(state.iterations()) * kFrames / wall;
    state.counters["cpu_per_s"] = cpu / movieSeconds;
}

void registerAll() {
    for (const char* preset : {"ultrafast", "superfast", "veryfast", "faster"})
        for (auto [motion, name] :
             {std::pair{Motion::Scrolling, "scrolling"}, std::pair{Motion::Typing, "typing"}})
            benchmark::RegisterBenchmark(
                (std::string("BM_movie_1080p30_") + preset + "_" + name).c_str(),
                [preset = preset, motion = motion](benchmark::State& s) {
                    record(s, preset, motion);
                })
                ->Unit(benchmark::kSecond)
                ->Iterations(1)
                ->UseRealTime();
}

const bool registered = (registerAll(), true);

} // namespace
