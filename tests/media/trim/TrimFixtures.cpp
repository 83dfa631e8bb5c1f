#include "TrimFixtures.h"

#include "MovieProbe.h"
#include "TestSupport.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cstring>

namespace qm::test {

namespace {

QStringList words(const char* text) {
    return QString::fromLatin1(text).split(QLatin1Char(' '));
}

QByteArray ffmpeg(const QStringList& args) {
    return run(QStringLiteral("ffmpeg"), words("-v error") + args, std::chrono::seconds(60)).out;
}

QStringList md5Column(const QByteArray& framemd5) {
    QStringList hashes;
    for (const QByteArray& line : framemd5.split('\n'))
        if (!line.isEmpty() && !line.startsWith('#'))
            hashes << QString::fromLatin1(line.split(',').last().trimmed());
    return hashes;
}

} // namespace

bool makeMovie(const QString& path, double seconds, bool withSound) {
    const QString length = QString::number(seconds);
    QStringList args = words("-f lavfi -i")
                       << QStringLiteral("testsrc2=size=320x240:rate=30:duration=") + length;
    if (withSound)
        args << words("-f lavfi -i")
             << QStringLiteral("sine=frequency=440:sample_rate=48000:duration=") + length
             << words("-ac 2 -c:a aac");
    args << words("-c:v libx264 -preset veryfast -profile:v high -pix_fmt yuv420p -g 60 "
                  "-keyint_min 60 -sc_threshold 0 -bf 0 -movflags +faststart -f mov")
         << path;
    ffmpeg(args);
    return probeMovie(path).has_value();
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
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot,
                                  QDir::Name);
}

QStringList shownFrameHashes(const QString& path) {
    return md5Column(ffmpeg(QStringList{QStringLiteral("-i"), path} +
                            words("-map 0:v:0 -fps_mode passthrough -f framemd5 -")));
}

QStringList storedPacketHashes(const QString& path) {
    return md5Column(ffmpeg(QStringList{QStringLiteral("-i"), path} +
                            words("-map 0:v:0 -c copy -f framemd5 -")));
}

std::vector<std::int16_t> playedSound(const QString& path) {
    const QByteArray raw = ffmpeg(QStringList{QStringLiteral("-i"), path} +
                                  words("-map 0:a:0 -ac 1 -ar 48000 -f s16le -"));
    std::vector<std::int16_t> samples(std::size_t(raw.size()) / 2);
    std::memcpy(samples.data(), raw.constData(), samples.size() * 2);
    return samples;
}

double probedDuration(const QString& path) {
    const auto movie = probeMovie(path);
    return movie ? movie->duration : 0;
}

void runFfmpeg(const QStringList& args) {
    ffmpeg(args);
}

} // namespace qm::test
