#pragma once

#include "base/Result.h"

#include <QImage>
#include <QString>

namespace qm::library {

// Thumbnails in the freedesktop thumbnail cache ($XDG_CACHE_HOME/thumbnails), shared with the
// file managers: a PNG named by the MD5 of the file's URI, carrying Thumb::URI and Thumb::MTime,
// written atomically and readable by the user only. A cached thumbnail whose MTime no longer
// matches the file is made again. Blocking: call from a worker.
class ThumbnailCache {
public:
    // The cache's folder sizes: normal 128, large 256, x-large 512, xx-large 1024 pixels.
    enum class Size { Normal = 128, Large = 256, XLarge = 512, XXLarge = 1024 };

    // `root` empty: $XDG_CACHE_HOME/thumbnails (~/.cache/thumbnails).
    explicit ThumbnailCache(QString root = {});

    // The thumbnail of an image or a movie (its frame at 0.1 s), at most `size` on its longer
    // side, from the cache when current, else made and stored.
    Result<QImage> thumbnail(const QString& path, Size size) const;
    // Where that thumbnail is kept.
    QString cachePath(const QString& path, Size size) const;

private:
    QString m_root;
};

// A thumbnail made from the file itself: images decoded scaled (a huge image never fully in
// memory), movies by their frame at 0.1 s. Fails with the reason when the file can't be read.
Result<QImage> makeThumbnail(const QString& path, int maxPixel);

} // namespace qm::library
