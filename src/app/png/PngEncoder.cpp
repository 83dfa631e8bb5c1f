#include "app/png/PngEncoder.h"

#include <cstring>
#include <memory>
#include <spng.h>

namespace qm::png {

namespace {
struct SpngDeleter {
    void operator()(spng_ctx* ctx) const { spng_ctx_free(ctx); }
};
} // namespace

std::optional<QByteArray> encode(const QImage& image) {
    if (image.isNull())
        return std::nullopt;
    const bool alpha = image.hasAlphaChannel();
    const QImage pixels =
        image.convertToFormat(alpha ? QImage::Format_RGBA8888 : QImage::Format_RGB888);
    std::unique_ptr<spng_ctx, SpngDeleter> ctx(spng_ctx_new(SPNG_CTX_ENCODER));
    if (!ctx)
        return std::nullopt;
    spng_set_option(ctx.get(), SPNG_ENCODE_TO_BUFFER, 1);
    spng_ihdr ihdr{};
    ihdr.width = std::uint32_t(pixels.width());
    ihdr.height = std::uint32_t(pixels.height());
    ihdr.bit_depth = 8;
    ihdr.color_type = alpha ? SPNG_COLOR_TYPE_TRUECOLOR_ALPHA : SPNG_COLOR_TYPE_TRUECOLOR;
    spng_set_ihdr(ctx.get(), &ihdr);
    const std::size_t rowBytes = std::size_t(pixels.width()) * (alpha ? 4 : 3);
    QByteArray packed(qsizetype(rowBytes) * pixels.height(), Qt::Uninitialized);
    for (int y = 0; y < pixels.height(); ++y)
        memcpy(packed.data() + rowBytes * std::size_t(y), pixels.constScanLine(y), rowBytes);
    if (spng_encode_image(ctx.get(), packed.constData(), std::size_t(packed.size()), SPNG_FMT_PNG,
                          SPNG_ENCODE_FINALIZE) != 0)
        return std::nullopt;
    int error = 0;
    std::size_t size = 0;
    void* data = spng_get_png_buffer(ctx.get(), &size, &error);
    if (!data || error)
        return std::nullopt;
    QByteArray out(static_cast<const char*>(data), qsizetype(size));
    free(data);
    return out;
}

} // namespace qm::png
