#pragma once

#include "base/Result.h"

#include <QImage>
#include <QString>

namespace qm::library {

// An image file decoded at most `maxSide` pixels on its longer side (smaller ones keep their
// size), without ever holding a huge image whole: JPEG decodes scaled, PNG is scaled down as
// its rows arrive, other formats beyond a sane pixel count are refused. Fails with the reason
// when the file is not an image, is truncated or can't be read. Blocking: call from a worker.
Result<QImage> readScaledImage(const QString& path, int maxSide);

} // namespace qm::library
