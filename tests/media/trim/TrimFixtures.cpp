#include "TrimFixtures.h"

#include "MovieProbe.h"
#include "TestSupport.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cstring>

namespace qm::test {

namespace {

QStringList md5Column(const QByteArray& framemd5) {
    QStringList hashes;
    for (const QByteArray& line : framemd5.split('\n')) {
        if (line.isEmpty() || line.startsWith('#'))
            continue;
        hashes << QString::fromLatin1(line.split(',').last().trimmed());
    }
    return hashes;
}

QStringList ffmpegArgs(const QString& input, const QStringList& rest) {
    return QStringList{QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-i"), input}
           << rest;
}

} // namespace

bool makeMovie(const QString& path, double seconds, bool withSound) {
    const QString length = QString::number(seconds);
    QStringList args{QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-f"),
                     QStringLiteral("lavfi"), QStringLiteral("-i"),
                     QStringLiteral("testsrc2=size=320x240:rate=30:duration=") + length};
    if (withSound)
        args << QStringLiteral("-f") << QStringLiteral("lavfi") << QStringLiteral("-i")
             << QStringLiteral("sine=frequency=440:sample_rate=48000:duration=") + length
             << QStringLiteral("-ac") << QStringLiteral("2") << QStringLiteral("-c:a")
             << QStringLiteral("aac");
    args << QStringLiteral("-c:v") << QStringLiteral("libx264") << QStringLiteral("-preset")
         << QStringLiteral("veryfast") << QStringLiteral("-profile:v") << QStringLiteral("high")
         << QStringLiteral("-pix_fmt") << QStringLiteral("yuv420p") << QStringLiteral("-g")
         << QStringLiteral("60") << QStringLiteral("-keyint_min") << QStringLiteral("60")
         << QStringLiteral("-sc_threshold") << QStringLiteral("0") << QStringLiteral("-bf")
         << QStringLiteral("0") << QStringLiteral("-movflags") << QStringLiteral("+faststart")
         << QStringLiteral("-f") << QStringLiteral("mov") << path;
    return run(QStringLiteral("ffmpeg"), args, std::chrono::seconds(60)).exitCode == 0;
}

QString sharedMovie(bool withSound) {
    static QTemporaryDir folder;
    const QString path =
        folder.filePath(withSound ? QStringLiteral("sound.mov") : QStringLiteral("silent.mov"));
    if (!QFile::exists(path) && !makeMovie(path, 10.0, withSound))
        return {};
    return path;
}

QByteArray fileBytes(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QStringList folderEntries(const QString& folder) {
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
}

QStringList shownFrameHashes(const QString& path) {
    return md5Column(run(QStringLiteral("ffmpeg"),
                         ffmpegArgs(path, {QStringLiteral("-map"), QStringLiteral("0:v:0"),
                                           QStringLiteral("-fps_mode"),
                                           QStringLiteral("passthrough"), QStringLiteral("-f"),
                                           QStringLiteral("framemd5"), QStringLiteral("-")}))
                         .out);
}

QStringList storedPacketHashes(const QString& path) {
    return md5Column(run(QStringLiteral("ffmpeg"),
                         ffmpegArgs(path, {QStringLiteral("-map"), QStringLiteral("0:v:0"),
                                           QStringLiteral("-c"), QStringLiteral("copy"),
                                           QStringLiteral("-f"), QStringLiteral("framemd5"),
                                           QStringLiteral("-")}))
                         .out);
}

std::vector<std::int16_t> playedSound(const QString& path) {
    const QByteArray raw =
        run(QStringLiteral("ffmpeg"),
            ffmpegArgs(path, {QStringLiteral("-map"), QStringLiteral("0:a:0"),
                              QStringLiteral("-ac"), QStringLiteral("1"), QStringLiteral("-ar"),
                              QStringLiteral("48000"), QStringLiteral("-f"),
                              QStringLiteral("s16le"), QStringLiteral("-")}))
            .out;
    std::vector<std::int16_t> samples(std::size_t(raw.size()) / 2);
    std::memcpy(samples.data(), raw.constData(), samples.size() * 2);
    return samples;
}

double probedDuration(const QString& path) {
    const auto movie = probeMovie(path);
    return movie ? movie->duration : 0;
}

} // namespace qm::test
