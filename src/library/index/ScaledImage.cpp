#include "library/index/ScaledImage.h"

#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <algorithm>
#include <cstdio>
#include <memory>
#include <spng.h>
#include <vector>

namespace qm::library {

namespace {

// Formats without a scaled decoder are read whole; beyond this many pixels (a 8000 × 6000
// photo) that would hold hundreds of megabytes for one thumbnail, so they are refused.
constexpr qint64 kMaxWholePixels = 48'000'000;

struct FileCloser {
    void operator()(std::FILE* f) const { std::fclose(f); }
};
struct SpngFree {
    void operator()(spng_ctx* ctx) const { spng_ctx_free(ctx); }
};

QSize fitted(QSize size, int maxSide) {
    if (size.width() <= maxSide && size.height() <= maxSide)
        return size;
    return size.scaled(maxSide, maxSide, Qt::KeepAspectRatio).expandedTo(QSize(1, 1));
}

Error damaged(const QString& path) {
    return failure(QStringLiteral("%1 is damaged or incomplete.").arg(QFileInfo(path).fileName()));
}

// Averages each box of source pixels into one target pixel, a source row at a time, so only
// one row of the full-size image is ever held.
class BoxScaler {
public:
    BoxScaler(QSize source, QSize target)
        : m_source(source)
        , m_image(target, QImage::Format_RGBA8888)
        , m_sums(size_t(target.width()) * 4, 0)
        , m_column(size_t(source.width())) {
        for (int x = 0; x < source.width(); ++x)
            m_column[size_t(x)] = int(qint64(x) * target.width() / source.width());
        m_columnCount.assign(size_t(target.width()), 0);
        for (int x = 0; x < source.width(); ++x)
            ++m_columnCount[size_t(m_column[size_t(x)])];
    }

    void addRow(int y, const uchar* rgba) {
        const int targetRow = int(qint64(y) * m_image.height() / m_source.height());
        if (targetRow != m_row)
            emitRow();
        m_row = targetRow;
        ++m_rowsAdded;
        for (int x = 0; x < m_source.width(); ++x) {
            quint32* sum = &m_sums[size_t(m_column[size_t(x)]) * 4];
            const uchar* px = rgba + size_t(x) * 4;
            sum[0] += px[0];
            sum[1] += px[1];
            sum[2] += px[2];
            sum[3] += px[3];
        }
    }

    QImage finish() {
        emitRow();
        return std::move(m_image);
    }

private:
    void emitRow() {
        if (m_row < 0 || m_rowsAdded == 0)
            return;
        uchar* out = m_image.scanLine(m_row);
        for (int x = 0; x < m_image.width(); ++x) {
            const quint32 n = quint32(m_columnCount[size_t(x)]) * quint32(m_rowsAdded);
            for (int c = 0; c < 4; ++c)
                out[x * 4 + c] = uchar((m_sums[size_t(x) * 4 + c] + n / 2) / n);
        }
        std::fill(m_sums.begin(), m_sums.end(), 0);
        m_rowsAdded = 0;
    }

    QSize m_source;
    QImage m_image;
    std::vector<quint32> m_sums;
    std::vector<int> m_column;
    std::vector<int> m_columnCount;
    int m_row = -1;
    int m_rowsAdded = 0;
};

Result<QImage> readPng(const QString& path, int maxSide) {
    std::unique_ptr<std::FILE, FileCloser> file(
        std::fopen(QFile::encodeName(path).constData(), "rb"));
    if (!file)
        return failure(QStringLiteral("%1 could not be opened.").arg(QFileInfo(path).fileName()));
    std::unique_ptr<spng_ctx, SpngFree> ctx(spng_ctx_new(0));
    if (!ctx)
        return failure(QStringLiteral("there is not enough memory"));
    spng_set_crc_action(ctx.get(), SPNG_CRC_USE, SPNG_CRC_USE);
    spng_set_png_file(ctx.get(), file.get());
    spng_ihdr ihdr{};
    if (spng_get_ihdr(ctx.get(), &ihdr) != 0 || ihdr.width == 0 || ihdr.height == 0 ||
        ihdr.width > 1'000'000 || ihdr.height > 1'000'000)
        return damaged(path);
    const QSize source(int(ihdr.width), int(ihdr.height));
    const QSize target = fitted(source, maxSide);

    if (ihdr.interlace_method != SPNG_INTERLACE_NONE) {
        // Interlaced rows arrive out of order; such files are rare and decoded whole.
        if (qint64(source.width()) * source.height() > kMaxWholePixels)
            return failure(
                QStringLiteral("%1 is too large to read.").arg(QFileInfo(path).fileName()));
        QImage whole(source, QImage::Format_RGBA8888);
        if (whole.isNull())
            return failure(QStringLiteral("there is not enough memory"));
        if (spng_decode_image(ctx.get(), whole.bits(), size_t(whole.sizeInBytes()), SPNG_FMT_RGBA8,
                              0) != 0)
            return damaged(path);
        return target == source
                   ? whole
                   : whole.scaled(target, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    }

    if (spng_decode_image(ctx.get(), nullptr, 0, SPNG_FMT_RGBA8, SPNG_DECODE_PROGRESSIVE) != 0)
        return damaged(path);
    const size_t rowBytes = size_t(source.width()) * 4;
    if (target == source) {
        QImage image(source, QImage::Format_RGBA8888);
        if (image.isNull())
            return failure(QStringLiteral("there is not enough memory"));
        for (int y = 0; y < source.height(); ++y) {
            const int status = spng_decode_row(ctx.get(), image.scanLine(y), rowBytes);
            if (status != 0 && !(status == SPNG_EOI && y == source.height() - 1))
                return damaged(path);
        }
        return image;
    }
    BoxScaler scaler(source, target);
    std::vector<uchar> row(rowBytes);
    // The last row reports SPNG_EOI, meaning "done", not a failure.
    for (int y = 0; y < source.height(); ++y) {
        const int status = spng_decode_row(ctx.get(), row.data(), rowBytes);
        if (status != 0 && !(status == SPNG_EOI && y == source.height() - 1))
            return damaged(path);
        scaler.addRow(y, row.data());
    }
    return scaler.finish();
}

bool hasPngSignature(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    static constexpr char signature[] = "\x89PNG\r\n\x1a\n";
    return file.read(8) == QByteArray(signature, 8);
}

Result<QImage> readOther(const QString& path, int maxSide) {
    QImageReader reader(path);
    reader.setAutoTransform(true);
    const QSize source = reader.size();
    if (!reader.canRead() || !source.isValid())
        return failure(
            QStringLiteral("%1 is not an image that can be read.").arg(QFileInfo(path).fileName()));
    const QSize target = fitted(source, maxSide);
    if (reader.supportsOption(QImageIOHandler::ScaledSize)) {
        if (target != source)
            reader.setScaledSize(target);
    } else if (qint64(source.width()) * source.height() > kMaxWholePixels) {
        return failure(QStringLiteral("%1 is too large to read.").arg(QFileInfo(path).fileName()));
    }
    QImage image = reader.read();
    if (image.isNull())
        return damaged(path);
    if (image.width() > maxSide || image.height() > maxSide)
        image = image.scaled(fitted(image.size(), maxSide), Qt::IgnoreAspectRatio,
                             Qt::SmoothTransformation);
    return image;
}

} // namespace

Result<QImage> readScaledImage(const QString& path, int maxSide) {
    if (maxSide < 1)
        return failure(QStringLiteral("an image must be at least one pixel wide"));
    if (!QFileInfo(path).isFile())
        return failure(QStringLiteral("%1 does not exist.").arg(QFileInfo(path).fileName()));
    // PNG, the program's own format, is scaled as its rows arrive; Qt's reader would hold the
    // whole image first.
    if (hasPngSignature(path))
        return readPng(path, maxSide);
    return readOther(path, maxSide);
}

} // namespace qm::library
