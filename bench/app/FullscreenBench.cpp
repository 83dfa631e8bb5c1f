#include "CompletePng.h"
#include "TestSupport.h"
#include "X11TestDesktop.h"
#include "base/Result.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImageReader>
#include <QProcess>
#include <QScreen>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

// A full-screen capture from the request to a complete file in the save folder, for the real
// program as a user runs it (`quillmark capture fullscreen` handed to the running instance)
// side by side with Flameshot, the tool a user would otherwise reach for (`flameshot full`).
// Both capture the same desktop; the clock stops when the PNG ends in its IEND chunk, so
// neither is charged for our decoding. Run it on the screen size that matters:
//   tests/run-test.sh --display 3840x2160 -- bench_app_fullscreen
// The console shows the statistics over the repetitions; --benchmark_out=FILE keeps each one.
//
// Quillmark runs with its default settings, so every capture leaves a floating card in the
// bottom-left corner that never goes by itself. The cards stack upwards (off the top of the
// screen after a few) and are on the screen both tools capture from then on, which is why the
// files grow over the first repetitions.

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

// Everything one capture takes, from starting the request to the file.
struct Shot {
    double seconds = 0;
    qint64 bytes = 0;
};

// A background whose pixels all differ and a few terminals full of text, so the PNG is not
// trivially compressible. Both tools see the same.
class Desktop {
public:
    Desktop() {
        for (int i = 0; i < 3; ++i) {
            const QString cls = QStringLiteral("QmBenchText%1").arg(i);
            auto term = std::make_unique<QProcess>();
            term->start(
                QStringLiteral("xterm"),
                {QStringLiteral("-class"), cls, QStringLiteral("-geometry"),
                 QStringLiteral("110x60+%1+%2").arg(200 + i * 1100).arg(150 + i * 200),
                 QStringLiteral("-e"), QStringLiteral("sh"), QStringLiteral("-c"),
                 QStringLiteral("ls -la /usr/bin | tail -n +%1 | head -n 58; exec sleep 3600")
                     .arg(1 + i * 60)});
            if (!term->waitForStarted())
                return;
            const bool shown = qm::test::waitUntil([&] {
                return qm::test::run(QStringLiteral("xdotool"),
                                     {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                      QStringLiteral("--class"), cls})
                           .exitCode == 0;
            });
            m_terms.push_back(std::move(term));
            if (!shown)
                return;
        }
        m_ok = m_pattern.ok();
    }
    ~Desktop() {
        for (auto& term : m_terms) {
            term->kill();
            term->waitForFinished();
        }
    }
    bool ok() const { return m_ok; }

private:
    qm::test::RootPattern m_pattern;
    std::vector<std::unique_ptr<QProcess>> m_terms;
    bool m_ok = false;
};

// CPU time the process has used, in clock ticks, from /proc.
std::optional<qint64> cpuTicks(qint64 pid) {
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray line = stat.readAll();
    // The command name may hold spaces; the fields after its closing parenthesis do not.
    const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
    if (fields.size() < 13)
        return std::nullopt;
    return fields[11].toLongLong() + fields[12].toLongLong(); // utime + stime
}

// Waits until the process has used no CPU for a while: the card's animations, the clipboard
// and any follow-up work of one capture end before the next request starts. The capture flash
// fades for a third of a second using next to no CPU, so at least a second passes since the
// last request began, as between two captures a person takes.
void waitForIdle(qint64 pid, Clock::time_point lastRequest) {
    qm::test::waitUntil([] { return false; }, std::chrono::duration_cast<std::chrono::milliseconds>(
                                                  lastRequest + 1s - Clock::now()));
    std::optional<qint64> last = cpuTicks(pid);
    int quiet = 0;
    const auto deadline = Clock::now() + 10s;
    while (quiet < 4 && Clock::now() < deadline) {
        qm::test::waitUntil([] { return false; }, 50ms); // our own event loop runs meanwhile
        const std::optional<qint64> now = cpuTicks(pid);
        quiet = now == last ? quiet + 1 : 0;
        last = now;
    }
}

// The running Quillmark, saving into its own folder; started once for every run.
class Quillmark {
public:
    Quillmark() {
        if (!m_folder.isValid() || !m_logs.isValid())
            return;
        const QString config =
            qEnvironmentVariableIsSet("XDG_CONFIG_HOME")
                ? qEnvironmentVariable("XDG_CONFIG_HOME")
                : QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
        {
            QSettings settings(config + QStringLiteral("/quillworks/Quillmark.conf"),
                               QSettings::IniFormat);
            settings.setValue(QStringLiteral("outputDirectoryPath"), m_folder.path());
        }
        // Its log goes to a file: an unread pipe would fill up and stall it.
        m_process.setStandardErrorFile(m_logs.filePath(QStringLiteral("stderr.log")));
        m_process.setStandardOutputFile(QProcess::nullDevice());
        m_process.start(QStringLiteral(QUILLMARK_BINARY), {});
        if (!m_process.waitForStarted())
            return;
        m_ready = qm::test::waitUntil(
            [] {
                return qm::test::run(QStringLiteral("gdbus"),
                                     {QStringLiteral("introspect"), QStringLiteral("--session"),
                                      QStringLiteral("--dest"),
                                      QStringLiteral("com.quillworks.Quillmark"),
                                      QStringLiteral("--object-path"),
                                      QStringLiteral("/com/quillworks/Quillmark")})
                           .exitCode == 0;
            },
            30s);
    }
    ~Quillmark() {
        m_process.terminate();
        if (!m_process.waitForFinished(5000))
            m_process.kill();
        m_process.waitForFinished();
    }
    bool ready() const { return m_ready && m_process.state() == QProcess::Running; }
    QString folder() const { return m_folder.path(); }
    qint64 pid() const { return m_process.processId(); }
    QString log() const {
        QFile file(m_logs.filePath(QStringLiteral("stderr.log")));
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll().right(2000))
                                              : QString();
    }

private:
    QTemporaryDir m_folder{QDir::tempPath() + QStringLiteral("/quillmark-shots-XXXXXX")};
    QTemporaryDir m_logs;
    QProcess m_process;
    bool m_ready = false;
};

// Skips the run with the reason, also on stderr, from inside the benchmark loop.
void skip(benchmark::State& state, const QString& reason) {
    qWarning("bench_app_fullscreen: %s", qPrintable(reason));
    state.SkipWithError(reason.toStdString().c_str());
}

// The same before the loop. The loop still runs (empty) so that this repetition reports the
// same iteration count as the others: a mismatch stops the whole program in the statistics.
void skipRun(benchmark::State& state, const QString& reason) {
    skip(state, reason);
    for (auto _ : state) {
    }
}

// The desktop and the running program, made on first use and ended by main() while the
// application still exists.
struct Stage {
    Desktop desktop;
    std::unique_ptr<Quillmark> quillmark;
};
std::unique_ptr<Stage> g_stage;

// The stage, or why there is none.
qm::Result<Stage*> stage() {
    if (qEnvironmentVariableIsEmpty("DISPLAY"))
        return qm::failure(QStringLiteral(
            "needs an X display: run it through tests/run-test.sh --display 3840x2160"));
    if (!g_stage)
        g_stage = std::make_unique<Stage>();
    if (!g_stage->desktop.ok())
        return qm::failure(QStringLiteral("could not put xterm windows on the desktop"));
    return g_stage.get();
}

// Runs `program args` and times it until a complete PNG is in `folder`; the file is checked,
// measured and deleted afterwards.
qm::Result<Shot> shoot(const QString& program, const QStringList& args, const QString& folder) {
    const QDir dir(folder);
    for (const QString& left : dir.entryList(QDir::Files))
        QFile::remove(dir.filePath(left));
    qm::bench::FolderWatch watch(folder);
    if (!watch.ok())
        return qm::failure(QStringLiteral("could not watch %1").arg(folder));
    QProcess request;
    request.setStandardOutputFile(QProcess::nullDevice());
    const auto start = Clock::now();
    request.start(program, args);
    const std::optional<QString> file = watch.waitForCompletePng(Clock::now() + 30s);
    const auto stop = Clock::now();

    request.waitForFinished(30000);
    if (!file) {
        request.kill();
        request.waitForFinished();
        return qm::failure(QStringLiteral("%1 saved no complete PNG within 30 s: %2")
                               .arg(program, QString::fromUtf8(request.readAllStandardError())));
    }
    if (request.exitCode() != 0)
        return qm::failure(QStringLiteral("%1 failed: %2")
                               .arg(program, QString::fromUtf8(request.readAllStandardError())));
    QImageReader reader(*file, "png");
    const QImage image = reader.read();
    const QSize screen = QGuiApplication::primaryScreen()->size();
    const qint64 bytes = QFileInfo(*file).size();
    QFile::remove(*file);
    if (image.isNull())
        return qm::failure(
            QStringLiteral("%1 does not decode: %2").arg(*file, reader.errorString()));
    if (image.size() != screen)
        return qm::failure(QStringLiteral("%1 is %2×%3, the screen %4×%5")
                               .arg(*file)
                               .arg(image.width())
                               .arg(image.height())
                               .arg(screen.width())
                               .arg(screen.height()));
    return Shot{std::chrono::duration<double>(stop - start).count(), bytes};
}

// Runs the iterations with one way of shooting; `settle` runs untimed after each shot.
void measure(benchmark::State& state, const std::function<qm::Result<Shot>()>& shot,
             const std::function<void()>& settle) {
    // One untimed shot first: the binaries and the X server's buffers are warm for all.
    if (const auto warm = shot(); !warm.ok()) {
        skipRun(state, warm.error().reason);
        return;
    }
    settle();
    qint64 bytes = 0;
    for (auto _ : state) {
        const auto taken = shot();
        if (!taken.ok()) {
            skip(state, taken.error().reason);
            break;
        }
        state.SetIterationTime(taken->seconds);
        bytes += taken->bytes;
        settle();
    }
    state.counters["png_bytes"] = benchmark::Counter(
        double(bytes), benchmark::Counter::kAvgIterations, benchmark::Counter::kIs1024);
}

void BM_Fullscreen_Flameshot(benchmark::State& state) {
    const auto ready = stage();
    if (!ready.ok()) {
        skipRun(state, ready.error().reason);
        return;
    }
    const QString flameshot = QStandardPaths::findExecutable(QStringLiteral("flameshot"));
    if (flameshot.isEmpty()) {
        skipRun(state, QStringLiteral("flameshot is not installed (scripts/bench.sh installs it)"));
        return;
    }
    // Flameshot reads a last path component with a dot as a file name, so none here.
    QTemporaryDir folder(QDir::tempPath() + QStringLiteral("/flameshot-shots-XXXXXX"));
    measure(
        state,
        [&] {
            return shoot(flameshot, {QStringLiteral("full"), QStringLiteral("-p"), folder.path()},
                         folder.path());
        },
        [] {});
}

void BM_Fullscreen_Quillmark(benchmark::State& state) {
    const auto ready = stage();
    if (!ready.ok()) {
        skipRun(state, ready.error().reason);
        return;
    }
    Stage& s = *ready.value();
    if (!s.quillmark)
        s.quillmark = std::make_unique<Quillmark>();
    Quillmark& app = *s.quillmark;
    if (!app.ready()) {
        skipRun(state,
                QStringLiteral("Quillmark did not come up on the session bus: ") + app.log());
        return;
    }
    Clock::time_point lastRequest = Clock::now();
    measure(
        state,
        [&] {
            lastRequest = Clock::now();
            auto taken =
                shoot(QStringLiteral(QUILLMARK_BINARY),
                      {QStringLiteral("capture"), QStringLiteral("fullscreen")}, app.folder());
            if (!taken.ok())
                return qm::Result<Shot>(
                    qm::failure(taken.error().reason + QStringLiteral("\n") + app.log()));
            return taken;
        },
        [&] { waitForIdle(app.pid(), lastRequest); });
}

BENCHMARK(BM_Fullscreen_Flameshot)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(4)
    ->Repetitions(5)
    ->DisplayAggregatesOnly(true);
BENCHMARK(BM_Fullscreen_Quillmark)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(4)
    ->Repetitions(5)
    ->DisplayAggregatesOnly(true);

} // namespace

int main(int argc, char** argv) {
    // Without a display the benchmarks only skip, so any platform will do.
    if (qEnvironmentVariableIsEmpty("DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    // The two tools take turns repetition by repetition unless told otherwise, so that a busy
    // machine weighs on both alike.
    std::vector<char*> args(argv, argv + argc);
    char interleave[] = "--benchmark_enable_random_interleaving=true";
    if (std::none_of(args.begin(), args.end(), [](const char* a) {
            return std::string_view(a).starts_with("--benchmark_enable_random_interleaving");
        }))
        args.insert(args.begin() + 1, interleave);
    int count = int(args.size());
    benchmark::Initialize(&count, args.data());
    if (benchmark::ReportUnrecognizedArguments(count, args.data()))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    g_stage.reset();
    return 0;
}
