#include "MovieProbe.h"

#include "TestSupport.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <cmath>
#include <limits>

namespace qm::test {

std::vector<ProbedStream> ProbedMovie::of(const QString& type) const {
    std::vector<ProbedStream> found;
    for (const ProbedStream& s : streams)
        if (s.type == type)
            found.push_back(s);
    return found;
}

std::optional<ProbedMovie> probeMovie(const QString& path) {
    const ProcessResult probe =
        run(QStringLiteral("ffprobe"),
            {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-of"),
             QStringLiteral("json"), QStringLiteral("-show_format"),
             QStringLiteral("-show_streams"), path});
    if (probe.exitCode != 0)
        return std::nullopt;
    const QJsonObject root = QJsonDocument::fromJson(probe.out).object();
    ProbedMovie movie;
    movie.formatName = root.value(QStringLiteral("format"))
                           .toObject()
                           .value(QStringLiteral("format_name"))
                           .toString();
    movie.duration = root.value(QStringLiteral("format"))
                         .toObject()
                         .value(QStringLiteral("duration"))
                         .toString()
                         .toDouble();
    for (const QJsonValue& value : root.value(QStringLiteral("streams")).toArray()) {
        const QJsonObject s = value.toObject();
        ProbedStream stream;
        stream.type = s.value(QStringLiteral("codec_type")).toString();
        stream.codec = s.value(QStringLiteral("codec_name")).toString();
        stream.profile = s.value(QStringLiteral("profile")).toString();
        stream.pixelFormat = s.value(QStringLiteral("pix_fmt")).toString();
        stream.width = s.value(QStringLiteral("width")).toInt();
        stream.height = s.value(QStringLiteral("height")).toInt();
        stream.sampleRate = s.value(QStringLiteral("sample_rate")).toString().toInt();
        stream.channels = s.value(QStringLiteral("channels")).toInt();
        movie.streams.push_back(stream);
    }
    return movie;
}

std::vector<double> videoFrameTimes(const QString& path) {
    const ProcessResult probe = run(
        QStringLiteral("ffprobe"),
        {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-select_streams"),
         QStringLiteral("v:0"), QStringLiteral("-show_entries"), QStringLiteral("packet=pts_time"),
         QStringLiteral("-of"), QStringLiteral("csv=p=0"), path});
    std::vector<double> times;
    for (const QByteArray& line : probe.out.split('\n'))
        if (!line.trimmed().isEmpty())
            times.push_back(line.trimmed().toDouble());
    std::sort(times.begin(), times.end());
    return times;
}

bool indexAtFront(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    // Top-level atoms: size (4 bytes, big-endian) and type; the first of moov and mdat wins.
    qint64 offset = 0;
    while (offset + 8 <= file.size()) {
        file.seek(offset);
        const QByteArray header = file.read(16);
        quint64 size = (quint64(quint8(header[0])) << 24) | (quint64(quint8(header[1])) << 16) |
                       (quint64(quint8(header[2])) << 8) | quint64(quint8(header[3]));
        const QByteArray type = header.mid(4, 4);
        if (type == "moov")
            return true;
        if (type == "mdat")
            return false;
        if (size == 1 && header.size() >= 16) {
            size = 0;
            for (int i = 8; i < 16; ++i)
                size = (size << 8) | quint8(header[i]);
        }
        if (size < 8)
            return false;
        offset += qint64(size);
    }
    return false;
}

namespace {
// Runs ffmpeg with a filter on one track and collects what it printed per frame.
QString filtered(const QString& path, const QString& map, const QString& filter) {
    const ProcessResult result =
        run(QStringLiteral("ffmpeg"),
            {QStringLiteral("-hide_banner"), QStringLiteral("-nostats"), QStringLiteral("-i"), path,
             QStringLiteral("-map"), map, QStringLiteral("-af"), filter, QStringLiteral("-f"),
             QStringLiteral("null"), QStringLiteral("-")});
    return QString::fromUtf8(result.out + result.err);
}
} // namespace

double audioLevel(const QString& path, int audioTrack) {
    const QString out =
        filtered(path, QStringLiteral("0:a:%1").arg(audioTrack), QStringLiteral("astats"));
    // The summary's "Overall" block comes last; its RMS level is the one to read.
    static const QRegularExpression rms(QStringLiteral("RMS level dB: (-?[0-9.]+|-inf)"));
    double level = -std::numeric_limits<double>::infinity();
    for (auto it = rms.globalMatch(out); it.hasNext();) {
        const QString value = it.next().captured(1);
        level = value == QLatin1String("-inf") ? -std::numeric_limits<double>::infinity()
                                               : value.toDouble();
    }
    return level;
}

std::optional<double> soundOnset(const QString& path, int audioTrack, double thresholdDb) {
    const QString out =
        filtered(path, QStringLiteral("0:a:%1").arg(audioTrack),
                 QStringLiteral("asetnsamples=n=240:p=0,astats=metadata=1:reset=1,"
                                "ametadata=print:key=lavfi.astats.Overall.RMS_level"));
    static const QRegularExpression frame(QStringLiteral("pts_time:([0-9.]+)"));
    static const QRegularExpression level(QStringLiteral("RMS_level=(-?[0-9.]+|-inf)"));
    double time = 0;
    for (const QString& line : out.split(QLatin1Char('\n'))) {
        if (const auto m = frame.match(line); m.hasMatch())
            time = m.captured(1).toDouble();
        else if (const auto l = level.match(line); l.hasMatch() &&
                                                   l.captured(1) != QLatin1String("-inf") &&
                                                   l.captured(1).toDouble() > thresholdDb)
            return time;
    }
    return std::nullopt;
}

std::optional<double> brightOnset(const QString& path, double threshold) {
    const ProcessResult result =
        run(QStringLiteral("ffmpeg"),
            {QStringLiteral("-hide_banner"), QStringLiteral("-nostats"), QStringLiteral("-i"), path,
             QStringLiteral("-map"), QStringLiteral("0:v:0"), QStringLiteral("-vf"),
             QStringLiteral("signalstats,metadata=print:key=lavfi.signalstats.YAVG"),
             QStringLiteral("-f"), QStringLiteral("null"), QStringLiteral("-")});
    const QString out = QString::fromUtf8(result.out + result.err);
    static const QRegularExpression frame(QStringLiteral("pts_time:([0-9.]+)"));
    static const QRegularExpression luma(QStringLiteral("YAVG=([0-9.]+)"));
    double time = 0;
    for (const QString& line : out.split(QLatin1Char('\n'))) {
        if (const auto m = frame.match(line); m.hasMatch())
            time = m.captured(1).toDouble();
        else if (const auto y = luma.match(line);
                 y.hasMatch() && y.captured(1).toDouble() > threshold)
            return time;
    }
    return std::nullopt;
}

} // namespace qm::test
