#pragma once

// Makes the GIF's file: a new, empty file that no one else has; never an existing one.

#include "base/Result.h"

#include <QString>

namespace qm::media {

struct GifOutputFile {
    QString path;
    int fd = -1;
};

// "<base>.gif", "<base> 2.gif", "<base> 3.gif", … in `folder` (made if missing): the first
// name not taken. Creation is exclusive, so a name taken meanwhile is skipped too.
Result<GifOutputFile> createGifInFolder(const QString& folder, const QString& base);

// Exactly `path`; fails when it exists.
Result<GifOutputFile> createGifAt(const QString& path);

} // namespace qm::media
