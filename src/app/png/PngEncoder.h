#pragma once

#include <QByteArray>
#include <QImage>
#include <optional>

namespace qm::png {

// Lossless PNG of the image at its full pixel size: 8-bit RGB for opaque images, RGBA when
// the image has an alpha channel. Nothing for a null image or when encoding fails.
std::optional<QByteArray> encode(const QImage& image);

} // namespace qm::png
