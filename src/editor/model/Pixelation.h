#pragma once

#include <QImage>

namespace qm {

// Block averages of `image` on one grid anchored at the top-left corner; nothing of the
// original survives inside a block but its mean colour.
QImage pixelated(const QImage& image, double blockSize);

} // namespace qm
