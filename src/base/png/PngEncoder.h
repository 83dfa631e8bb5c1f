#pragma once

#include <QByteArray>
#include <QImage>
#include <optional>

namespace qm::png {

// How the work is split; the defaults suit saving screenshots. Tests and benchmarks use the
// fields to force many stripes or one thread.
struct EncodeOptions {
    int threads = 0;    // 0: one per hardware thread, up to 8
    int stripeRows = 0; // rows compressed independently per stripe; 0: chosen from the size
    int level = 0;      // libdeflate level 1..12; 0: the default
};

// Lossless PNG of the image at its full pixel size: 8-bit RGB for opaque images, RGBA when
// the image has an alpha channel (premultiplied pixels are stored un-premultiplied). Nothing
// for a null image or when encoding fails.
std::optional<QByteArray> encode(const QImage& image);
std::optional<QByteArray> encode(const QImage& image, const EncodeOptions& options);

} // namespace qm::png
