// Quillmark's GIF export against what users otherwise do: ffmpeg's two passes, palettegen
// (stats_mode=diff) then paletteuse (its default dithering). Both turn the same 10 s 1920×1080
// screen-like movie into a 960 px wide GIF at 12 fps; each reports its time, the file size
// and the mean SSIM of its frames against the source frames scaled the same way.
#include "TestSupport.h"
#include "media/gif/GIFExporter.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <benchmark/benchmark.h>
#include <map>

using namespace Qt::StringLiterals;

namespace {

constexpr double kFps = 12;
constexpr int kWidth = 960;

QString cacheFile(const QString& name) {
    return QDir(QStringLiteral(QM_GIF_BENCH_CACHE)).filePath(name);
}

// A desktop: a menu bar, an editor whose code scrolls, a command being typed, a note window
// drifting across with a counter ticking in it, and a pointer circling. Made once.
const QString& screenMovie() {
    static const QString path = [] {
        const QString movie = cacheFile(QStringLiteral("screen.mov"));
        if (QFileInfo::exists(movie))
            return movie;
        const QString texts = QStringLiteral(QM_GIF_BENCH_TEXTS);
        const QString font = QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSansMono.ttf");
        const QString graph =
            QStringLiteral(
                "[0]drawbox=x=60:y=80:w=1100:h=900:color=0x1e1f24:t=fill,"
                "drawtext=fontfile=%1:textfile=%2/code.txt:x=80:y=100-t*40:fontsize=16:"
                "line_spacing=4:fontcolor=0xc8d0d8,"
                "drawbox=x=0:y=0:w=1920:h=80:color=0xd8dde3:t=fill,"
                "drawbox=x=0:y=0:w=1920:h=36:color=0x2b2f36:t=fill,"
                "drawtext=fontfile=%1:text='Files   Edit   View   Terminal   Help':x=20:y=8:"
                "fontsize=18:fontcolor=white,"
                "drawbox=x=60:y=920:w=1100:h=60:color=0x30323a:t=fill,"
                "drawtext=fontfile=%1:textfile=%2/typing.txt:x=80:y=940:fontsize=18:"
                "fontcolor=0x9fe870,"
                "drawbox=x='80+t*110':y=935:w=1080:h=30:color=0x30323a:t=fill,"
                "drawbox=x=0:y=980:w=1920:h=100:color=0xd8dde3:t=fill[bg];"
                "[1]drawbox=x=0:y=0:w=640:h=32:color=0x3d6fd1:t=fill,"
                "drawtext=fontfile=%1:text='Notes':x=12:y=7:fontsize=18:fontcolor=white,"
                "drawtext=fontfile=%1:text='Meeting at 3 pm  %{n}':x=20:y=60:fontsize=22:"
                "fontcolor=0x202020,"
                "drawbox=x=20:y=110:w=600:h=12:color=0x8899aa:t=fill,"
                "drawbox=x=20:y=140:w=480:h=12:color=0x8899aa:t=fill,"
                "drawbox=x=20:y=170:w=540:h=12:color=0x8899aa:t=fill,"
                "drawbox=x=20:y=220:w=300:h=160:color=0xf0c040:t=fill[win];"
                "[bg][win]overlay=x='1200+60*sin(t)-t*40':y='200+t*35'[v];"
                "[v]drawbox=x='900+300*cos(t*0.7)':y='500+200*sin(t*0.9)':w=14:h=22:"
                "color=black:t=fill,format=yuv420p[out]")
                .arg(font, texts);
        // 24 frames a second: every second one falls exactly on a GIF frame's time, so both
        // tools pick the same source frames and SSIM compares like with like.
        const auto made = qm::test::run(QStringLiteral("ffmpeg"),
                                        {u"-v"_s,
                                         u"error"_s,
                                         u"-y"_s,
                                         u"-f"_s,
                                         u"lavfi"_s,
                                         u"-i"_s,
                                         u"color=c=0xd8dde3:s=1920x1080:r=24:d=10"_s,
                                         u"-f"_s,
                                         u"lavfi"_s,
                                         u"-i"_s,
                                         u"color=c=0xfafafa:s=640x420:r=24:d=10"_s,
                                         u"-filter_complex"_s,
                                         graph,
                                         u"-map"_s,
                                         u"[out]"_s,
                                         u"-c:v"_s,
                                         u"libx264"_s,
                                         u"-preset"_s,
                                         u"veryfast"_s,
                                         u"-crf"_s,
                                         u"18"_s,
                                         u"-g"_s,
                                         u"48"_s,
                                         u"-t"_s,
                                         u"10"_s,
                                         movie},
                                        std::chrono::minutes(5));
        return made.exitCode == 0 ? movie : QString();
    }();
    return path;
}

// Mean SSIM ("All") of the GIF's frames against the source at 12 fps scaled to 960 wide,
// frame by frame. Both are decoded to raw frames first: read as a GIF, the uneven delays
// (8, 8, 9 hundredths) would make ffmpeg pair frames by time and compare neighbours.
double meanSsim(const QString& gif) {
    const QString frames = cacheFile(u"frames.rgb"_s);
    const QString reference = cacheFile(u"reference.yuv"_s);
    if (!QFileInfo::exists(reference))
        qm::test::run(u"ffmpeg"_s,
                      {u"-v"_s, u"error"_s, u"-y"_s, u"-i"_s, screenMovie(), u"-vf"_s,
                       u"fps=12,scale=960:-1"_s, u"-f"_s, u"rawvideo"_s, u"-pix_fmt"_s,
                       u"yuv420p"_s, reference},
                      std::chrono::minutes(5));
    qm::test::run(u"ffmpeg"_s,
                  {u"-v"_s, u"error"_s, u"-y"_s, u"-i"_s, gif, u"-fps_mode"_s, u"passthrough"_s,
                   u"-f"_s, u"rawvideo"_s, u"-pix_fmt"_s, u"rgb24"_s, frames},
                  std::chrono::minutes(5));
    const auto result = qm::test::run(u"ffmpeg"_s,
                                      {u"-nostats"_s,
                                       u"-f"_s,
                                       u"rawvideo"_s,
                                       u"-pix_fmt"_s,
                                       u"rgb24"_s,
                                       u"-s"_s,
                                       u"960x540"_s,
                                       u"-r"_s,
                                       u"12"_s,
                                       u"-i"_s,
                                       frames,
                                       u"-f"_s,
                                       u"rawvideo"_s,
                                       u"-pix_fmt"_s,
                                       u"yuv420p"_s,
                                       u"-s"_s,
                                       u"960x540"_s,
                                       u"-r"_s,
                                       u"12"_s,
                                       u"-i"_s,
                                       reference,
                                       u"-lavfi"_s,
                                       u"[0]format=yuv444p[a];[1]format=yuv444p[b];[a][b]ssim"_s,
                                       u"-f"_s,
                                       u"null"_s,
                                       u"-"_s},
                                      std::chrono::minutes(5));
    QFile::remove(frames);
    const auto match = QRegularExpression(u"All:([0-9.]+)"_s).match(QString::fromUtf8(result.err));
    return match.hasMatch() ? match.captured(1).toDouble() : 0;
}

// QM_GIF_SPEED, QM_GIF_DITHER, QM_GIF_TOLERANCE and QM_GIF_SLACK override the encoder's defaults,
// for tuning.
qm::media::GifWriterOptions tuning() {
    qm::media::GifWriterOptions options;
    if (qEnvironmentVariableIsSet("QM_GIF_SPEED"))
        options.speed = qEnvironmentVariableIntValue("QM_GIF_SPEED");
    if (qEnvironmentVariableIsSet("QM_GIF_DITHER"))
        options.dithering = qEnvironmentVariable("QM_GIF_DITHER").toFloat();
    if (qEnvironmentVariableIsSet("QM_GIF_TOLERANCE"))
        options.tolerance = qEnvironmentVariableIntValue("QM_GIF_TOLERANCE");
    if (qEnvironmentVariableIsSet("QM_GIF_SLACK"))
        options.slack = qEnvironmentVariable("QM_GIF_SLACK").toDouble();
    return options;
}

// Measured once per benchmark: repetitions only repeat the timing.
void report(benchmark::State& state, const QString& gif) {
    static std::map<QString, double> measured;
    auto [entry, fresh] = measured.try_emplace(gif, 0.0);
    if (fresh)
        entry->second = meanSsim(gif);
    state.counters["bytes"] = double(QFileInfo(gif).size());
    state.counters["ssim"] = entry->second;
}

void BM_gif_quillmark_960_12fps(benchmark::State& state) {
    if (screenMovie().isEmpty()) {
        state.SkipWithError("ffmpeg could not make the source movie");
        return;
    }
    const QString gif = cacheFile(QStringLiteral("quillmark.gif"));
    for (auto _ : state) {
        QFile::remove(gif);
        const auto written =
            qm::media::GIFExporter::exportRange({.movie = screenMovie(),
                                                 .range = {0, 10.0},
                                                 .output = qm::media::GIFExporter::ToFile{gif},
                                                 .settings = {.fps = kFps, .maxDimension = kWidth},
                                                 .encoding = tuning()});
        if (!written)
            state.SkipWithError(written.error().reason.toStdString().c_str());
    }
    report(state, gif);
}

void BM_gif_ffmpeg_960_12fps(benchmark::State& state) {
    if (screenMovie().isEmpty()) {
        state.SkipWithError("ffmpeg could not make the source movie");
        return;
    }
    const QString palette = cacheFile(QStringLiteral("palette.png"));
    const QString gif = cacheFile(QStringLiteral("ffmpeg.gif"));
    const QString filters = QStringLiteral("fps=12,scale=960:-1");
    for (auto _ : state) {
        const auto first =
            qm::test::run(QStringLiteral("ffmpeg"),
                          {u"-v"_s, u"error"_s, u"-y"_s, u"-i"_s, screenMovie(), u"-vf"_s,
                           filters + u",palettegen=stats_mode=diff"_s, palette},
                          std::chrono::minutes(5));
        const auto second =
            qm::test::run(QStringLiteral("ffmpeg"),
                          {u"-v"_s, u"error"_s, u"-y"_s, u"-i"_s, screenMovie(), u"-i"_s, palette,
                           u"-lavfi"_s, filters + u"[x];[x][1:v]paletteuse"_s, gif},
                          std::chrono::minutes(5));
        if (first.exitCode != 0 || second.exitCode != 0)
            state.SkipWithError("ffmpeg failed");
    }
    report(state, gif);
}

} // namespace

BENCHMARK(BM_gif_quillmark_960_12fps)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3);
BENCHMARK(BM_gif_ffmpeg_960_12fps)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3);
