#include "library/thumbnails/ThumbnailCache.h"

#include "library/catalog/CaptureEntry.h"
#include "library/index/ScaledImage.h"
#include "media/player/MovieDecoder.h"

#include <QBuffer>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QImageWriter>
#include <QStandardPaths>
#include <QTemporaryFile>
#include <QUrl>
#include <QtEndian>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace qm::library {

namespace {

const QString uriKey = QStringLiteral("Thumb::URI");
const QString mtimeKey = QStringLiteral("Thumb::MTime");
const QString sizeKey = QStringLiteral("Thumb::Size");
const QString lengthKey = QStringLiteral("Thumb::Movie::Length");

QString folderName(ThumbnailCache::Size size) {
    switch (size) {
    case ThumbnailCache::Size::Normal:
        return QStringLiteral("normal");
    case ThumbnailCache::Size::Large:
        return QStringLiteral("large");
    case ThumbnailCache::Size::XLarge:
        return QStringLiteral("x-large");
    case ThumbnailCache::Size::XXLarge:
        return QStringLiteral("xx-large");
    }
    return QStringLiteral("normal");
}

QByteArray fileUri(const QString& path) {
    return QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()).toEncoded();
}

std::uint32_t crc32(const QByteArray& bytes) {
    static const std::array<std::uint32_t, 256> table = [] {
        std::array<std::uint32_t, 256> t{};
        for (std::uint32_t n = 0; n < 256; ++n) {
            std::uint32_t c = n;
            for (int k = 0; k < 8; ++k)
                c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            t[n] = c;
        }
        return t;
    }();
    std::uint32_t c = 0xFFFFFFFFu;
    for (char byte : bytes)
        c = table[(c ^ std::uint8_t(byte)) & 0xFF] ^ (c >> 8);
    return c ^ 0xFFFFFFFFu;
}

// Qt would store long values compressed (zTXt); the cache's readers expect plain tEXt.
QByteArray textChunk(const QString& key, const QByteArray& value) {
    QByteArray body = "tEXt" + key.toLatin1() + '\0' + value;
    QByteArray chunk(4, '\0');
    qToBigEndian<quint32>(quint32(body.size() - 4), chunk.data());
    chunk += body;
    QByteArray crc(4, '\0');
    qToBigEndian<quint32>(crc32(body), crc.data());
    return chunk + crc;
}

Result<QByteArray> encodeThumbnail(const QImage& image,
                                   const std::vector<std::pair<QString, QByteArray>>& texts) {
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, "png");
    if (!writer.write(image))
        return failure(QStringLiteral("the thumbnail could not be encoded"));
    // The signature (8 bytes) and IHDR (8 + 13 + 4) come first; the text goes right after.
    constexpr int afterHeader = 8 + 25;
    if (png.size() < afterHeader)
        return failure(QStringLiteral("the thumbnail could not be encoded"));
    QByteArray chunks;
    for (const auto& [key, value] : texts)
        chunks += textChunk(key, value);
    png.insert(afterHeader, chunks);
    return png;
}

// Into a 0600 temporary file beside the target, then renamed over it, so a reader never sees
// half a thumbnail.
Status writeAtomically(const QString& path, const QByteArray& bytes) {
    const QString folder = QFileInfo(path).absolutePath();
    if (!QDir().mkpath(folder))
        return failure(QStringLiteral("Could not create the thumbnail folder %1.").arg(folder));
    // mkpath honours the umask; the cache keeps its folders private.
    QFile::setPermissions(folder,
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    QTemporaryFile temp(folder + QStringLiteral("/.thumb-XXXXXX.png"));
    if (!temp.open())
        return failure(
            QStringLiteral("Could not write the thumbnail: %1.").arg(temp.errorString()));
    if (temp.write(bytes) != bytes.size() || !temp.flush())
        return failure(
            QStringLiteral("Could not write the thumbnail: %1.").arg(temp.errorString()));
    temp.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    if (std::rename(QFile::encodeName(temp.fileName()).constData(),
                    QFile::encodeName(path).constData()) != 0)
        return failure(QStringLiteral("Could not store the thumbnail: %1.")
                           .arg(QString::fromLocal8Bit(std::strerror(errno))));
    temp.setAutoRemove(false);
    return {};
}

QImage scaledToFit(QImage image, int maxPixel) {
    if (image.width() > maxPixel || image.height() > maxPixel)
        image = image.scaled(maxPixel, maxPixel, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    return image;
}

Result<QImage> movieThumbnail(const QString& path, int maxPixel) {
    auto decoder = media::player::MovieDecoder::open(path);
    if (!decoder)
        return decoder.error();
    const QSize frame = (*decoder)->frameSize();
    int height = 0;
    if (frame.width() > 0 && frame.height() > 0) {
        const double scale =
            std::min(1.0, double(maxPixel) / std::max(frame.width(), frame.height()));
        height = std::max(1, int(frame.height() * scale));
    }
    auto picture = (*decoder)->frameAt(0.1, height);
    if (!picture)
        return picture.error();
    QImage image = scaledToFit(picture->image, maxPixel);
    if (const double length = (*decoder)->duration(); length > 0)
        image.setText(lengthKey, QString::number(length, 'f', 3));
    return image;
}

Result<QImage> stillThumbnail(const QString& path, int maxPixel) {
    // Scaled while decoding: a huge capture is never held whole just for its thumbnail.
    Result<QImage> image = readScaledImage(path, maxPixel);
    if (!image)
        return failure(QStringLiteral("“%1” could not be read as an image: %2")
                           .arg(QFileInfo(path).fileName(), image.error().reason));
    return scaledToFit(std::move(*image), maxPixel);
}

} // namespace

ThumbnailCache::ThumbnailCache(QString root)
    : m_root(std::move(root)) {
    if (m_root.isEmpty())
        m_root = QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) +
                 QStringLiteral("/thumbnails");
}

QString ThumbnailCache::cachePath(const QString& path, Size size) const {
    const QByteArray md5 = QCryptographicHash::hash(fileUri(path), QCryptographicHash::Md5).toHex();
    return m_root + QLatin1Char('/') + folderName(size) + QLatin1Char('/') +
           QString::fromLatin1(md5) + QStringLiteral(".png");
}

Result<QImage> ThumbnailCache::thumbnail(const QString& path, Size size) const {
    const QFileInfo info(path);
    if (!info.exists())
        return failure(QStringLiteral("“%1” no longer exists.").arg(info.fileName()));
    const QByteArray uri = fileUri(path);
    const QByteArray mtime = QByteArray::number(info.lastModified().toSecsSinceEpoch());
    const QString cached = cachePath(path, size);

    // The image's own text, not the reader's: the reader splits keys at their first colon.
    if (QImage image = QImageReader(cached, "png").read(); !image.isNull() &&
                                                           image.text(uriKey).toUtf8() == uri &&
                                                           image.text(mtimeKey).toLatin1() == mtime)
        return image;

    Result<QImage> made = makeThumbnail(path, int(size));
    if (!made)
        return made;
    std::vector<std::pair<QString, QByteArray>> texts{
        {uriKey, uri}, {mtimeKey, mtime}, {sizeKey, QByteArray::number(info.size())}};
    if (const QString length = made->text(lengthKey); !length.isEmpty())
        texts.emplace_back(lengthKey, length.toLatin1());
    // A cache that can't be written still leaves a thumbnail to show.
    if (Result<QByteArray> png = encodeThumbnail(*made, texts))
        (void)writeAtomically(cached, *png);
    return made;
}

Result<QImage> makeThumbnail(const QString& path, int maxPixel) {
    if (mediaKindOf(path) == MediaKind::Videos)
        return movieThumbnail(path, maxPixel);
    return stillThumbnail(path, maxPixel);
}

} // namespace qm::library
