#include "library/catalog/CaptureEntry.h"

#include <QDir>
#include <QFileInfo>
#include <QImageReader>
#include <algorithm>

using namespace Qt::StringLiterals;

namespace qm::library {

QString rawValue(MediaKind kind) {
    return kind == MediaKind::Images ? QStringLiteral("images") : QStringLiteral("videos");
}

std::optional<MediaKind> mediaKindOf(const QString& fileName) {
    const QString suffix = QFileInfo(fileName).suffix().toLower();
    static const QStringList images = {u"png"_s,  u"jpg"_s, u"jpeg"_s, u"tiff"_s,
                                       u"heic"_s, u"gif"_s, u"webp"_s};
    static const QStringList videos = {u"mov"_s, u"mp4"_s, u"m4v"_s};
    if (images.contains(suffix))
        return MediaKind::Images;
    if (videos.contains(suffix))
        return MediaKind::Videos;
    return std::nullopt;
}

std::vector<CaptureEntry> scanCaptures(const QString& folder) {
    std::vector<CaptureEntry> entries;
    const QDir dir(folder);
    for (const QFileInfo& info : dir.entryInfoList(QDir::Files | QDir::NoDotAndDotDot)) {
        const auto kind = mediaKindOf(info.fileName());
        if (!kind)
            continue;
        CaptureEntry entry{info.absoluteFilePath(), *kind, info.lastModified(), 0, 0};
        if (*kind == MediaKind::Images) {
            const QSize size = QImageReader(entry.path).size();
            if (size.isValid()) {
                entry.pixelWidth = size.width();
                entry.pixelHeight = size.height();
            }
        }
        entries.push_back(std::move(entry));
    }
    std::stable_sort(entries.begin(), entries.end(),
                     [](const CaptureEntry& a, const CaptureEntry& b) { return a.date > b.date; });
    return entries;
}

} // namespace qm::library
