#include "GifFiles.h"

#include "TestSupport.h"

#include <QFile>
#include <cstdlib>

namespace qm::test {

namespace {

std::vector<QImage> rawFrames(const QByteArray& data, QSize size) {
    std::vector<QImage> frames;
    const qsizetype frameBytes = qsizetype(size.width()) * size.height() * 3;
    if (frameBytes <= 0)
        return frames;
    for (qsizetype at = 0; at + frameBytes <= data.size(); at += frameBytes) {
        QImage image(reinterpret_cast<const uchar*>(data.constData() + at), size.width(),
                     size.height(), size.width() * 3, QImage::Format_RGB888);
        frames.push_back(image.copy());
    }
    return frames;
}

} // namespace

bool makeMovie(const QString& path, const QString& source, int keyFrameEvery) {
    const auto result =
        run(QStringLiteral("ffmpeg"),
            {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-y"),
             QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"), source,
             QStringLiteral("-c:v"), QStringLiteral("libx264"), QStringLiteral("-preset"),
             QStringLiteral("ultrafast"), QStringLiteral("-pix_fmt"), QStringLiteral("yuv420p"),
             QStringLiteral("-g"), QString::number(keyFrameEvery), path});
    return result.exitCode == 0;
}

GifFacts readGif(const QString& path) {
    GifFacts facts;
    const auto stream = run(QStringLiteral("ffprobe"),
                            {QStringLiteral("-v"), QStringLiteral("error"),
                             QStringLiteral("-show_entries"), QStringLiteral("stream=width,height"),
                             QStringLiteral("-of"), QStringLiteral("csv=p=0"), path});
    const QStringList size = QString::fromUtf8(stream.out).trimmed().split(QLatin1Char(','));
    if (stream.exitCode != 0 || size.size() != 2)
        return facts;
    facts.size = {size[0].toInt(), size[1].toInt()};
    // GIF packets are timed in hundredths of a second.
    const auto packets = run(QStringLiteral("ffprobe"),
                             {QStringLiteral("-v"), QStringLiteral("error"),
                              QStringLiteral("-show_entries"), QStringLiteral("packet=duration"),
                              QStringLiteral("-of"), QStringLiteral("csv=p=0"), path});
    for (const QString& line : QString::fromUtf8(packets.out).split(QLatin1Char('\n')))
        if (!line.trimmed().isEmpty())
            facts.delays.push_back(line.trimmed().toInt());
    QFile file(path);
    if (file.open(QIODevice::ReadOnly)) {
        const QByteArray data = file.readAll();
        const qsizetype at = data.indexOf("NETSCAPE2.0");
        if (at >= 0 && at + 15 < data.size() && data[at + 11] == 3 && data[at + 12] == 1)
            facts.loopCount = uchar(data[at + 13]) | (uchar(data[at + 14]) << 8);
    }
    return facts;
}

std::vector<QImage> gifFrames(const QString& path) {
    const GifFacts facts = readGif(path);
    const auto decoded =
        run(QStringLiteral("ffmpeg"),
            {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-i"), path,
             QStringLiteral("-fps_mode"), QStringLiteral("passthrough"), QStringLiteral("-f"),
             QStringLiteral("rawvideo"), QStringLiteral("-pix_fmt"), QStringLiteral("rgb24"),
             QStringLiteral("-")});
    return rawFrames(decoded.out, facts.size);
}

std::vector<QImage> movieFrames(const QString& path, int first, int step, int count, QSize size) {
    const QString select = QStringLiteral("select='gte(n\\,%1)*not(mod(n-%1\\,%2))',scale=%3:%4")
                               .arg(first)
                               .arg(step)
                               .arg(size.width())
                               .arg(size.height());
    const auto decoded =
        run(QStringLiteral("ffmpeg"),
            {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-i"), path,
             QStringLiteral("-vf"), select, QStringLiteral("-fps_mode"),
             QStringLiteral("passthrough"), QStringLiteral("-frames:v"), QString::number(count),
             QStringLiteral("-f"), QStringLiteral("rawvideo"), QStringLiteral("-pix_fmt"),
             QStringLiteral("rgb24"), QStringLiteral("-")});
    return rawFrames(decoded.out, size);
}

double meanDifference(const QImage& a, const QImage& b) {
    if (a.size() != b.size() || a.isNull())
        return 255;
    const QImage x = a.convertToFormat(QImage::Format_RGB888);
    const QImage y = b.convertToFormat(QImage::Format_RGB888);
    double total = 0;
    for (int row = 0; row < x.height(); ++row) {
        const uchar* p = x.constScanLine(row);
        const uchar* q = y.constScanLine(row);
        for (int i = 0; i < x.width() * 3; ++i)
            total += std::abs(int(p[i]) - int(q[i]));
    }
    return total / (double(x.width()) * x.height() * 3);
}

int pixelsOff(const QImage& a, const QImage& b, int threshold) {
    if (a.size() != b.size() || a.isNull())
        return -1;
    const QImage x = a.convertToFormat(QImage::Format_RGB888);
    const QImage y = b.convertToFormat(QImage::Format_RGB888);
    int off = 0;
    for (int row = 0; row < x.height(); ++row) {
        const uchar* p = x.constScanLine(row);
        const uchar* q = y.constScanLine(row);
        for (int i = 0; i < x.width(); ++i)
            off += std::abs(p[i * 3] - q[i * 3]) > threshold ||
                   std::abs(p[i * 3 + 1] - q[i * 3 + 1]) > threshold ||
                   std::abs(p[i * 3 + 2] - q[i * 3 + 2]) > threshold;
    }
    return off;
}

} // namespace qm::test
