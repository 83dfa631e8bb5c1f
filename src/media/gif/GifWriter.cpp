#include "media/gif/GifWriter.h"

#include "media/Av.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <gif_lib.h>
#include <libimagequant.h>
#include <omp.h>
#include <unistd.h>

namespace qm::media {

namespace {

struct ImageFree {
    void operator()(liq_image* i) const { liq_image_destroy(i); }
};
struct HistogramFree {
    void operator()(liq_histogram* h) const { liq_histogram_destroy(h); }
};

// libimagequant works on one thread here: the decoding thread has the other core, and
// OpenMP's workers spin while they wait, which on a busy machine made the export slower
// than one thread (bench/gif). Restores the caller's setting.
class OneQuantizingThread {
public:
    OneQuantizingThread()
        : m_previous(omp_get_max_threads()) {
        omp_set_num_threads(1);
    }
    ~OneQuantizingThread() { omp_set_num_threads(m_previous); }
    OneQuantizingThread(const OneQuantizingThread&) = delete;
    OneQuantizingThread& operator=(const OneQuantizingThread&) = delete;

private:
    int m_previous;
};

bool samePixel(const std::uint8_t* a, const std::uint8_t* b, int tolerance) {
    return std::abs(a[0] - b[0]) <= tolerance && std::abs(a[1] - b[1]) <= tolerance &&
           std::abs(a[2] - b[2]) <= tolerance;
}

} // namespace

void GifWriter::AttrFree::operator()(liq_attr* attr) const {
    liq_attr_destroy(attr);
}
void GifWriter::ResultFree::operator()(liq_result* result) const {
    liq_result_destroy(result);
}
void GifWriter::MapFree::operator()(ColorMapObject* map) const {
    GifFreeMapObject(map);
}

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
    , m_attr(liq_attr_create())
    , m_shown(std::size_t(size.width()) * size.height() * 4) {
    liq_set_speed(m_attr.get(), options.speed);
}

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

// A palette for the whole picture as it is now (the pixels written so far), with one
// transparent entry for the pixels a frame leaves alone.
Status GifWriter::makePalette() {
    const int width = m_size.width();
    const int height = m_size.height();
    std::unique_ptr<liq_image, ImageFree> whole(
        liq_image_create_rgba(m_attr.get(), m_shown.data(), width, height, 0));
    std::unique_ptr<liq_histogram, HistogramFree> histogram(liq_histogram_create(m_attr.get()));
    liq_result* quantized = nullptr;
    if (!whole || !histogram ||
        liq_histogram_add_image(histogram.get(), m_attr.get(), whole.get()) != LIQ_OK ||
        liq_histogram_add_fixed_color(histogram.get(), liq_color{0, 0, 0, 0}, 0) != LIQ_OK ||
        liq_histogram_quantize(histogram.get(), m_attr.get(), &quantized) != LIQ_OK)
        return failure(QStringLiteral("GIF encoding failed"));
    m_palette.reset(quantized);

    const liq_palette* palette = liq_get_palette(quantized);
    int colours = 2;
    while (colours < int(palette->count))
        colours *= 2;
    m_map.reset(GifMakeMapObject(colours, nullptr));
    if (!m_map)
        return failure(QStringLiteral("GIF encoding failed"));
    m_transparent = NO_TRANSPARENT_COLOR;
    for (int i = 0; i < colours; ++i) {
        const liq_color c = i < int(palette->count) ? palette->entries[i] : liq_color{0, 0, 0, 255};
        m_map->Colors[i] = {c.r, c.g, c.b};
        if (i < int(palette->count) && c.a < 128 && m_transparent == NO_TRANSPARENT_COLOR)
            m_transparent = i;
    }
    return {};
}

// How far the remapped patch is from the patch: the mean squared difference per channel
// over the pixels it writes.
double GifWriter::remapError() const {
    const ColorMapObject* map = m_map.get();
    double total = 0;
    std::size_t counted = 0;
    for (std::size_t i = 0; i < m_indices.size(); ++i) {
        const std::uint8_t* pixel = m_patch.data() + i * 4;
        if (pixel[3] == 0)
            continue;
        const GifColorType& c = map->Colors[m_indices[i]];
        const int r = pixel[0] - c.Red, g = pixel[1] - c.Green, b = pixel[2] - c.Blue;
        total += r * r + g * g + b * b;
        ++counted;
    }
    return counted ? total / (3.0 * counted) : 0;
}

Status GifWriter::addFrame(const std::uint8_t* rgba, int delay) {
    const OneQuantizingThread oneThread;
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

    std::unique_ptr<liq_image, ImageFree> image(
        liq_image_create_rgba(m_attr.get(), m_patch.data(), rect.width, rect.height, 0));
    if (!image)
        return failure(QStringLiteral("GIF encoding failed"));
    m_indices.resize(std::size_t(rect.width) * rect.height);
    auto remap = [&](float dithering) {
        liq_set_dithering_level(m_palette.get(), dithering);
        return liq_write_remapped_image(m_palette.get(), image.get(), m_indices.data(),
                                        m_indices.size()) == LIQ_OK;
    };
    // The palette made for an earlier frame is kept while it still fits: screens keep their
    // colours, and remapping costs a fraction of making a palette.
    double error = 0;
    bool fits = false;
    if (m_palette && remap(0)) {
        error = remapError();
        fits = error <= m_paletteError * 1.5 + m_options.slack;
    }
    if (!fits) {
        if (auto made = makePalette(); !made)
            return made;
        if (!remap(0))
            return failure(QStringLiteral("GIF encoding failed"));
        error = m_paletteError = remapError();
    }
    // Flat colours first; a frame the palette cannot show closely (a photo, a gradient) is
    // done again with dithering. Screens mostly fit, and dithering doubles the cost.
    if (m_options.dithering > 0 && error > m_options.ditherAboveError &&
        !remap(m_options.dithering))
        return failure(QStringLiteral("GIF encoding failed"));
    const ColorMapObject* map = m_map.get();
    const int transparent = m_transparent;

    GraphicsControlBlock control{};
    control.DisposalMode = DISPOSE_DO_NOT;
    control.UserInputFlag = false;
    control.DelayTime = delay;
    control.TransparentColor = transparent;
    GifByteType extension[4];
    const std::size_t length = EGifGCBToExtension(&control, extension);
    if (EGifPutExtension(m_file, GRAPHICS_EXT_FUNC_CODE, int(length), extension) == GIF_ERROR ||
        EGifPutImageDesc(m_file, rect.x, rect.y, rect.width, rect.height, false, map) ==
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
