#include "media/gif/GifWriter.h"

#include "media/Av.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <gif_lib.h>
#include <libimagequant.h>
#include <unistd.h>

namespace qm::media {

namespace {

struct AttrFree {
    void operator()(liq_attr* a) const { liq_attr_destroy(a); }
};
struct ImageFree {
    void operator()(liq_image* i) const { liq_image_destroy(i); }
};
struct ResultFree {
    void operator()(liq_result* r) const { liq_result_destroy(r); }
};
struct ColorMapFree {
    void operator()(ColorMapObject* m) const { GifFreeMapObject(m); }
};

bool samePixel(const std::uint8_t* a, const std::uint8_t* b, int tolerance) {
    return std::abs(a[0] - b[0]) <= tolerance && std::abs(a[1] - b[1]) <= tolerance &&
           std::abs(a[2] - b[2]) <= tolerance;
}

} // namespace

Result<std::unique_ptr<GifWriter>> GifWriter::open(int fd, QSize size, GifWriterOptions options) {
    int error = 0;
    GifFileType* file = EGifOpenFileHandle(fd, &error);
    if (!file) {
        ::close(fd);
        return failure(QStringLiteral("GIF encoding failed"));
    }
    std::unique_ptr<GifWriter> writer(new GifWriter(file, size, options));
    EGifSetGifVersion(file, true);
    if (EGifPutScreenDesc(file, size.width(), size.height(), 8, 0, nullptr) == GIF_ERROR)
        return writer->writeFailure();
    // Loop forever: the NETSCAPE2.0 application block with a loop count of 0.
    static const char application[] = "NETSCAPE2.0";
    static const unsigned char loop[] = {1, 0, 0};
    if (EGifPutExtensionLeader(file, APPLICATION_EXT_FUNC_CODE) == GIF_ERROR ||
        EGifPutExtensionBlock(file, 11, application) == GIF_ERROR ||
        EGifPutExtensionBlock(file, 3, loop) == GIF_ERROR ||
        EGifPutExtensionTrailer(file) == GIF_ERROR)
        return writer->writeFailure();
    return writer;
}

GifWriter::GifWriter(GifFileType* file, QSize size, GifWriterOptions options)
    : m_file(file)
    , m_size(size)
    , m_options(options)
    , m_shown(std::size_t(size.width()) * size.height() * 4) {}

GifWriter::~GifWriter() {
    if (m_file)
        EGifCloseFile(m_file, nullptr);
}

Error GifWriter::writeFailure() const {
    const int error = errno;
    return failure(QStringLiteral("Couldn't write the GIF file: ") +
                   (error ? av::describeErrno(error) : QStringLiteral("the disk refused it")));
}

GifWriter::Rect GifWriter::changedRect(const std::uint8_t* rgba) const {
    const int width = m_size.width();
    const int height = m_size.height();
    const std::size_t row = std::size_t(width) * 4;
    auto rowChanged = [&](int y) {
        return std::memcmp(rgba + y * row, m_shown.data() + y * row, row) != 0 && [&] {
            for (int x = 0; x < width; ++x)
                if (!samePixel(rgba + y * row + x * 4, m_shown.data() + y * row + x * 4,
                               m_options.tolerance))
                    return true;
            return false;
        }();
    };
    int top = 0;
    while (top < height && !rowChanged(top))
        ++top;
    if (top == height)
        return {};
    int bottom = height - 1;
    while (bottom > top && !rowChanged(bottom))
        --bottom;
    int left = width, right = -1;
    for (int y = top; y <= bottom; ++y) {
        const std::uint8_t* a = rgba + y * row;
        const std::uint8_t* b = m_shown.data() + y * row;
        for (int x = 0; x < left; ++x)
            if (!samePixel(a + x * 4, b + x * 4, m_options.tolerance)) {
                left = x;
                break;
            }
        for (int x = width - 1; x > right; --x)
            if (!samePixel(a + x * 4, b + x * 4, m_options.tolerance)) {
                right = x;
                break;
            }
    }
    return {left, top, right - left + 1, bottom - top + 1};
}

Status GifWriter::addFrame(const std::uint8_t* rgba, int delay) {
    const int width = m_size.width();
    Rect rect{0, 0, width, m_size.height()};
    if (!m_first) {
        rect = changedRect(rgba);
        if (rect.width == 0)
            rect = {0, 0, 1, 1}; // nothing changed: one transparent pixel keeps the frame
    }

    // The patch: changed pixels as they are, unchanged ones transparent so the GIF keeps
    // showing what it already shows there.
    m_patch.resize(std::size_t(rect.width) * rect.height * 4);
    for (int y = 0; y < rect.height; ++y) {
        const std::size_t offset = (std::size_t(rect.y + y) * width + rect.x) * 4;
        const std::uint8_t* source = rgba + offset;
        std::uint8_t* shown = m_shown.data() + offset;
        std::uint8_t* out = m_patch.data() + std::size_t(y) * rect.width * 4;
        for (int x = 0; x < rect.width; ++x, source += 4, shown += 4, out += 4) {
            if (!m_first && samePixel(source, shown, m_options.tolerance)) {
                std::memset(out, 0, 4);
            } else {
                std::memcpy(out, source, 3);
                out[3] = 255;
                std::memcpy(shown, source, 4);
            }
        }
    }
    m_first = false;

    std::unique_ptr<liq_attr, AttrFree> attr(liq_attr_create());
    liq_set_speed(attr.get(), m_options.speed);
    std::unique_ptr<liq_image, ImageFree> image(
        liq_image_create_rgba(attr.get(), m_patch.data(), rect.width, rect.height, 0));
    liq_result* quantized = nullptr;
    if (!image || liq_image_quantize(image.get(), attr.get(), &quantized) != LIQ_OK)
        return failure(QStringLiteral("GIF encoding failed"));
    std::unique_ptr<liq_result, ResultFree> result(quantized);
    liq_set_dithering_level(result.get(), m_options.dithering);
    m_indices.resize(std::size_t(rect.width) * rect.height);
    if (liq_write_remapped_image(result.get(), image.get(), m_indices.data(), m_indices.size()) !=
        LIQ_OK)
        return failure(QStringLiteral("GIF encoding failed"));
    const liq_palette* palette = liq_get_palette(result.get());

    int transparent = NO_TRANSPARENT_COLOR;
    int colours = 2;
    while (colours < int(palette->count))
        colours *= 2;
    std::unique_ptr<ColorMapObject, ColorMapFree> map(GifMakeMapObject(colours, nullptr));
    if (!map)
        return failure(QStringLiteral("GIF encoding failed"));
    for (int i = 0; i < colours; ++i) {
        const liq_color c = i < int(palette->count) ? palette->entries[i] : liq_color{0, 0, 0, 255};
        map->Colors[i] = {c.r, c.g, c.b};
        if (i < int(palette->count) && c.a < 128 && transparent == NO_TRANSPARENT_COLOR)
            transparent = i;
    }

    GraphicsControlBlock control{};
    control.DisposalMode = DISPOSE_DO_NOT;
    control.UserInputFlag = false;
    control.DelayTime = delay;
    control.TransparentColor = transparent;
    GifByteType extension[4];
    const std::size_t length = EGifGCBToExtension(&control, extension);
    if (EGifPutExtension(m_file, GRAPHICS_EXT_FUNC_CODE, int(length), extension) == GIF_ERROR ||
        EGifPutImageDesc(m_file, rect.x, rect.y, rect.width, rect.height, false, map.get()) ==
            GIF_ERROR ||
        EGifPutLine(m_file, m_indices.data(), int(m_indices.size())) == GIF_ERROR)
        return writeFailure();
    return {};
}

Status GifWriter::finish() {
    GifFileType* file = std::exchange(m_file, nullptr);
    errno = 0;
    if (EGifCloseFile(file, nullptr) == GIF_ERROR)
        return writeFailure();
    return {};
}

} // namespace qm::media
