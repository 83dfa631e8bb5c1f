// A minute of recording a 1920×1080 screen that changes on every frame, with the system sound
// and the microphone, side by side with the command a user would otherwise run:
//   ffmpeg -f x11grab -framerate 30 + -f pulse twice, with the same codec, preset and bit rate.
// Each run reports the frames a 30 fps movie should hold, the frames written, the frames
// dropped and the CPU seconds (user + system) spent. Run it on a display of 1920×1080 or more,
// with a sound server (scripts/bench.sh provides both):
//   tests/run-test.sh --display 1920x1080 -- bench_recorder
// QM_RECORD_SECONDS shortens the minute for a quick look.
#include "MovieProbe.h"
#include "TestSupport.h"
#include "media/MovieWriter.h"
#include "platform/audio/pulse/PulseAudioCaptureBackend.h"
#include "platform/video/x11/X11ScreenVideoBackend.h"
#include "recorder/core/ScreenRecorder.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <memory>
#include <sys/resource.h>

namespace {

const QSize kSize(1920, 1080);

int seconds() {
    bool ok = false;
    const int s = qEnvironmentVariableIntValue("QM_RECORD_SECONDS", &ok);
    return ok && s > 0 ? s : 60;
}

double cpuSeconds(int who) {
    rusage usage{};
    getrusage(who, &usage);
    const auto toSeconds = [](const timeval& t) {
        return double(t.tv_sec) + double(t.tv_usec) / 1e6;
    };
    return toSeconds(usage.ru_utime) + toSeconds(usage.ru_stime);
}

// Waits in the event loop for a span of wall-clock time: the recording itself is what runs.
void spend(int ms) {
    QElapsedTimer timer;
    timer.start();
    qm::test::waitUntil([&] { return timer.elapsed() >= ms; },
                        std::chrono::milliseconds(ms + 1000));
}

// The moving pattern, a program of its own, for the life of the benchmark.
class Pattern {
public:
    Pattern() {
        m_process.start(QCoreApplication::applicationDirPath() +
                            QStringLiteral("/recorder_moving_pattern"),
                        {});
        m_ok = m_process.waitForStarted();
        // The pattern is up once it changes the screen under its top-left corner.
        spend(1500);
    }
    ~Pattern() {
        m_process.kill();
        m_process.waitForFinished();
    }
    bool ok() const { return m_ok; }

private:
    QProcess m_process;
    bool m_ok = false;
};

Pattern& pattern() {
    static Pattern running;
    return running;
}

void report(benchmark::State& state, double expected, double written, double dropped, double cpu,
            double wall) {
    state.SetIterationTime(wall);
    state.counters["frames_expected"] = expected;
    state.counters["frames_written"] = written;
    state.counters["frames_dropped"] = dropped;
    state.counters["cpu_s"] = cpu;
    state.counters["cpu_per_s"] = cpu / wall;
}

void BM_Quillmark(benchmark::State& state) {
    if (!pattern().ok())
        return state.SkipWithError("the moving pattern did not start");
    qm::platform::X11ScreenVideoBackend video;
    qm::platform::PulseAudioCaptureBackend audio;
    for (auto _ : state) {
        QTemporaryDir dir;
        qm::recorder::ScreenRecorder recorder(video, audio);
        qm::recorder::RecordingConfig config{QRect(QPoint(0, 0), kSize), true, true};
        const QString path = dir.filePath(QStringLiteral("bench.partial.mov"));
        const double cpuBefore = cpuSeconds(RUSAGE_SELF);
        QElapsedTimer wall;
        wall.start();
        auto started = recorder.start(config, path);
        if (!started.ok())
            return state.SkipWithError(started.error().reason.toStdString().c_str());
        if (!started->systemAudio || !started->microphone)
            return state.SkipWithError(
                "both sound inputs are needed (run under scripts/test-services.sh)");
        spend(seconds() * 1000);
        std::optional<qm::Result<qm::recorder::RecordedMovie>> movie;
        recorder.stop([&](qm::Result<qm::recorder::RecordedMovie> m) { movie = std::move(m); });
        qm::test::waitUntil([&] { return movie.has_value(); }, std::chrono::seconds(60));
        const double elapsed = wall.elapsed() / 1000.0;
        const double cpu = cpuSeconds(RUSAGE_SELF) - cpuBefore;
        if (!movie || !movie->ok())
            return state.SkipWithError("the recording failed");
        const auto& stats = movie->value().stats;
        const double written = double(qm::test::videoFrameTimes(path).size());
        report(state, seconds() * 30.0, written, double(stats.framesDropped + stats.framesMissed),
               cpu, elapsed);
        state.counters["encoder_busy"] = double(stats.framesDropped);
        state.counters["grab_late"] = double(stats.framesMissed);
    }
}

void BM_Ffmpeg(benchmark::State& state) {
    if (!pattern().ok())
        return state.SkipWithError("the moving pattern did not start");
    const qm::media::MovieSettings settings{kSize, 30, true, true};
    for (auto _ : state) {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("ffmpeg.mov"));
        const QString display = qEnvironmentVariable("DISPLAY") + QStringLiteral("+0,0");
        QProcess ffmpeg;
        const double cpuBefore = cpuSeconds(RUSAGE_CHILDREN);
        QElapsedTimer wall;
        wall.start();
        ffmpeg.start(QStringLiteral("ffmpeg"), {QStringLiteral("-hide_banner"),
                                                QStringLiteral("-y"),
                                                QStringLiteral("-f"),
                                                QStringLiteral("x11grab"),
                                                QStringLiteral("-framerate"),
                                                QStringLiteral("30"),
                                                QStringLiteral("-video_size"),
                                                QStringLiteral("1920x1080"),
                                                QStringLiteral("-i"),
                                                display,
                                                QStringLiteral("-f"),
                                                QStringLiteral("pulse"),
                                                QStringLiteral("-i"),
                                                QStringLiteral("ci_sink.monitor"),
                                                QStringLiteral("-f"),
                                                QStringLiteral("pulse"),
                                                QStringLiteral("-i"),
                                                QStringLiteral("default"),
                                                QStringLiteral("-map"),
                                                QStringLiteral("0"),
                                                QStringLiteral("-map"),
                                                QStringLiteral("1"),
                                                QStringLiteral("-map"),
                                                QStringLiteral("2"),
                                                QStringLiteral("-c:v"),
                                                QStringLiteral("libx264"),
                                                QStringLiteral("-preset"),
                                                settings.x264Preset,
                                                QStringLiteral("-profile:v"),
                                                QStringLiteral("high"),
                                                QStringLiteral("-pix_fmt"),
                                                QStringLiteral("yuv420p"),
                                                QStringLiteral("-b:v"),
                                                QString::number(qm::media::videoBitRate(kSize)),
                                                QStringLiteral("-g"),
                                                QStringLiteral("60"),
                                                QStringLiteral("-c:a"),
                                                QStringLiteral("aac"),
                                                QStringLiteral("-b:a"),
                                                QStringLiteral("160k"),
                                                QStringLiteral("-ar"),
                                                QStringLiteral("48000"),
                                                QStringLiteral("-ac"),
                                                QStringLiteral("2"),
                                                QStringLiteral("-t"),
                                                QString::number(seconds()),
                                                path});
        if (!ffmpeg.waitForStarted())
            return state.SkipWithError("ffmpeg did not start");
        qm::test::waitUntil([&] { return ffmpeg.state() == QProcess::NotRunning; },
                            std::chrono::seconds(seconds() + 60));
        const double elapsed = wall.elapsed() / 1000.0;
        const double cpu = cpuSeconds(RUSAGE_CHILDREN) - cpuBefore;
        if (ffmpeg.exitCode() != 0)
            return state.SkipWithError(ffmpeg.readAllStandardError().right(300).constData());
        // ffmpeg's last progress line says how many frames it dropped.
        const QString log = QString::fromUtf8(ffmpeg.readAllStandardError());
        double dropped = 0;
        static const QRegularExpression drop(QStringLiteral("drop=\\s*([0-9]+)"));
        for (auto it = drop.globalMatch(log); it.hasNext();)
            dropped = it.next().captured(1).toDouble();
        const double written = double(qm::test::videoFrameTimes(path).size());
        report(state, seconds() * 30.0, written, dropped, cpu, elapsed);
    }
}

BENCHMARK(BM_Quillmark)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(BM_Ffmpeg)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

} // namespace

int main(int argc, char** argv) {
    QGuiApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
