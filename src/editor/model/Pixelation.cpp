#include "editor/model/Pixelation.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace qm {

QImage pixelated(const QImage& source, double blockSize) {
    // Both formats hold premultiplied 32-bit pixels, so averaging works on either.
    QImage image = source.format() == QImage::Format_RGB32
                       ? source.copy()
                       : source.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    const int w = image.width(), h = image.height();
    if (w < 1 || h < 1 || !(blockSize >= 1))
        return image;
    // Block edges at floor(k × blockSize) from the top-left, the same grid for every rect.
    const auto edges = [blockSize](int extent) {
        std::vector<int> e{0};
        for (int k = 1;; ++k) {
            const int edge = std::min(int(std::floor(k * blockSize)), extent);
            if (edge > e.back())
                e.push_back(edge);
            if (edge >= extent)
                break;
        }
        return e;
    };
    const std::vector<int> xs = edges(w), ys = edges(h);
    const size_t columns = xs.size() - 1;
    std::vector<quint64> sums(columns * 4);
    std::vector<QRgb> means(columns);
    for (size_t by = 0; by + 1 < ys.size(); ++by) {
        std::fill(sums.begin(), sums.end(), 0);
        for (int y = ys[by]; y < ys[by + 1]; ++y) {
            const auto* row = reinterpret_cast<const QRgb*>(image.constScanLine(y));
            for (size_t bx = 0; bx < columns; ++bx) {
                quint64 a = 0, r = 0, g = 0, b = 0;
                for (int x = xs[bx]; x < xs[bx + 1]; ++x) {
                    const QRgb px = row[x];
                    a += qAlpha(px);
                    r += qRed(px);
                    g += qGreen(px);
                    b += qBlue(px);
                }
                quint64* s = &sums[bx * 4];
                s[0] += a;
                s[1] += r;
                s[2] += g;
                s[3] += b;
            }
        }
        const quint64 rows = quint64(ys[by + 1] - ys[by]);
        for (size_t bx = 0; bx < columns; ++bx) {
            const quint64 n = rows * quint64(xs[bx + 1] - xs[bx]);
            const quint64* s = &sums[bx * 4];
            means[bx] = qRgba(int((s[1] + n / 2) / n), int((s[2] + n / 2) / n),
                              int((s[3] + n / 2) / n), int((s[0] + n / 2) / n));
        }
        for (int y = ys[by]; y < ys[by + 1]; ++y) {
            auto* row = reinterpret_cast<QRgb*>(image.scanLine(y));
            for (size_t bx = 0; bx < columns; ++bx)
                std::fill(row + xs[bx], row + xs[bx + 1], means[bx]);
        }
    }
    return image;
}

} // namespace qm
