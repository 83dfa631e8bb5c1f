#include "library/catalog/CaptureEntry.h"

#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QtEndian>
#include <algorithm>
#include <limits>

using namespace Qt::StringLiterals;

namespace qm::library {

QString rawValue(MediaKind kind) {
    return kind == MediaKind::Images ? QStringLiteral("images") : QStringLiteral("videos");
}

std::optional<MediaKind> mediaKindOf(const QString& fileName) {
    const qsizetype dot = fileName.lastIndexOf(u'.');
    if (dot < 0)
        return std::nullopt;
    const QString suffix = QStringView(fileName).mid(dot + 1).toString().toLower();
    static const QStringList images = {u"png"_s,  u"jpg"_s, u"jpeg"_s, u"tiff"_s,
                                       u"heic"_s, u"gif"_s, u"webp"_s};
    static const QStringList videos = {u"mov"_s, u"mp4"_s, u"m4v"_s};
    if (images.contains(suffix))
        return MediaKind::Images;
    if (videos.contains(suffix))
        return MediaKind::Videos;
    return std::nullopt;
}

namespace {

// Nearly every capture is a PNG we wrote ourselves: its size sits at a fixed place in the
// first 24 bytes, which is much cheaper than asking the image plug-ins to probe the file.
std::optional<QSize> pngHeaderSize(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    char head[24];
    if (file.read(head, sizeof head) != qint64(sizeof head))
        return std::nullopt;
    static constexpr char signature[] = "\x89PNG\r\n\x1a\n";
    if (memcmp(head, signature, 8) != 0 || memcmp(head + 12, "IHDR", 4) != 0)
        return std::nullopt;
    const auto width = qFromBigEndian<quint32>(head + 16);
    const auto height = qFromBigEndian<quint32>(head + 20);
    if (width == 0 || height == 0 || width > quint32(std::numeric_limits<int>::max()) ||
        height > quint32(std::numeric_limits<int>::max()))
        return std::nullopt;
    return QSize(int(width), int(height));
}

QSize imageSize(const QString& path) {
    if (const auto png = pngHeaderSize(path))
        return *png;
    QImageReader reader(path);
    reader.setAutoTransform(false);
    return reader.size();
}

qint64 sortKey(const QDateTime& date) {
    return date.isValid() ? date.toMSecsSinceEpoch() : std::numeric_limits<qint64>::min();
}

} // namespace

std::vector<CaptureEntry> scanCaptures(const QString& folder) {
    std::vector<CaptureEntry> entries;
    if (folder.isEmpty())
        return entries;
    // Without QDir::Hidden the iterator leaves out dot files; QDir::Files leaves out folders
    // (also one named "e.png").
    QDirIterator it(folder, QDir::Files | QDir::NoDotAndDotDot);
    while (it.hasNext()) {
        const QFileInfo info = it.nextFileInfo();
        const auto kind = mediaKindOf(info.fileName());
        if (!kind)
            continue;
        CaptureEntry entry{info.absoluteFilePath(), *kind,
                           info.fileTime(QFileDevice::FileModificationTime), 0, 0};
        if (*kind == MediaKind::Images) {
            const QSize size = imageSize(entry.path);
            if (size.isValid()) {
                entry.pixelWidth = size.width();
                entry.pixelHeight = size.height();
            }
        }
        entries.push_back(std::move(entry));
    }
    std::stable_sort(entries.begin(), entries.end(),
                     [](const CaptureEntry& a, const CaptureEntry& b) {
                         return sortKey(a.date) > sortKey(b.date);
                     });
    return entries;
}

} // namespace qm::library
