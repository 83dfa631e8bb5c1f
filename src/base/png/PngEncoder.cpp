#include "base/png/PngEncoder.h"

#include "base/png/DeflateJoin.h"
#include "base/png/RowFilter.h"

#include <QtEndian>
#include <algorithm>
#include <atomic>
#include <cstring>
#include <libdeflate.h>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

// The image is cut into horizontal stripes that the cores filter and deflate independently
// (filters still see the row above a stripe, so nothing is lost there). Each stripe's raw
// deflate stream but the last is rewritten to end without its final-block flag, which chains
// them into the single zlib stream PNG requires; every stripe becomes one IDAT chunk.

namespace qm::png {

namespace {

// libdeflate's fastest level: on screenshots it stays within a few percent of zlib's default
// size while taking a fraction of the time.
constexpr int kDefaultLevel = 1;
constexpr int kMaxDefaultThreads = 8;
// Below this much filtered data per stripe, splitting costs more ratio than it saves time.
constexpr std::size_t kMinStripeBytes = std::size_t(64) << 10;
// Bounds the memory per thread and keeps every stripe's IDAT chunk far below 2 GiB.
constexpr std::size_t kMaxStripeBytes = std::size_t(64) << 20;

// How a source scanline maps to the PNG row bytes.
enum class Layout {
    Bgrx, // 32-bit xRGB in memory order B, G, R, x: packed to RGB
    Bgra, // 32-bit ARGB in memory order B, G, R, A: packed to RGBA
    Rgbx, // R, G, B, x: packed to RGB
    Rgb,  // already the PNG row
    Rgba, // already the PNG row
};

struct Source {
    QImage image; // shares the caller's pixels unless a conversion was needed
    Layout layout = Layout::Rgb;
    int bytesPerPixel = 3;
    std::size_t rowBytes = 0;
};

Source prepare(const QImage& image) {
    Source source;
    const bool alpha = image.hasAlphaChannel();
    const QImage::Format format = image.format();
    constexpr bool little = Q_BYTE_ORDER == Q_LITTLE_ENDIAN;
    if (alpha) {
        source.bytesPerPixel = 4;
        if (little && format == QImage::Format_ARGB32) {
            source.image = image;
            source.layout = Layout::Bgra;
        } else if (format == QImage::Format_RGBA8888) {
            source.image = image;
            source.layout = Layout::Rgba;
        } else {
            // Also un-premultiplies, so the file holds the true colours.
            source.image = image.convertToFormat(QImage::Format_RGBA8888);
            source.layout = Layout::Rgba;
        }
    } else {
        source.bytesPerPixel = 3;
        if (little && format == QImage::Format_RGB32) {
            source.image = image;
            source.layout = Layout::Bgrx;
        } else if (format == QImage::Format_RGBX8888) {
            source.image = image;
            source.layout = Layout::Rgbx;
        } else if (format == QImage::Format_RGB888) {
            source.image = image;
            source.layout = Layout::Rgb;
        } else if (little) {
            source.image = image.convertToFormat(QImage::Format_RGB32);
            source.layout = Layout::Bgrx;
        } else {
            source.image = image.convertToFormat(QImage::Format_RGB888);
            source.layout = Layout::Rgb;
        }
    }
    source.rowBytes = std::size_t(source.image.width()) * std::size_t(source.bytesPerPixel);
    return source;
}

// The raw PNG bytes of row y: the scanline itself when it already is one, else packed into
// `buffer`.
const std::uint8_t* rawRow(const Source& source, int y, std::uint8_t* buffer) {
    const std::uint8_t* in = source.image.constScanLine(y);
    const std::size_t width = std::size_t(source.image.width());
    switch (source.layout) {
    case Layout::Rgb:
    case Layout::Rgba:
        return in;
    case Layout::Bgrx:
        // Byte-swapping B,G,R,x gives x,R,G,B; after the shift the low three bytes are R,G,B
        // in memory. Each store's fourth byte is overwritten by the next pixel (the buffer
        // has one byte to spare for the last).
        for (std::size_t x = 0; x < width; ++x) {
            std::uint32_t pixel;
            std::memcpy(&pixel, in + 4 * x, 4);
            const std::uint32_t rgb = qFromBigEndian(pixel) >> 8;
            std::memcpy(buffer + 3 * x, &rgb, 4);
        }
        return buffer;
    case Layout::Bgra:
        // Swapping the R and B bytes of each little-endian ARGB word gives R,G,B,A in memory.
        for (std::size_t x = 0; x < width; ++x) {
            std::uint32_t pixel;
            std::memcpy(&pixel, in + 4 * x, 4);
            pixel = (pixel & 0xff00ff00u) | ((pixel >> 16) & 0xffu) | ((pixel & 0xffu) << 16);
            std::memcpy(buffer + 4 * x, &pixel, 4);
        }
        return buffer;
    case Layout::Rgbx:
        for (std::size_t x = 0; x < width; ++x) {
            buffer[3 * x] = in[4 * x];
            buffer[3 * x + 1] = in[4 * x + 1];
            buffer[3 * x + 2] = in[4 * x + 2];
        }
        return buffer;
    }
    return in;
}

struct CompressorDeleter {
    void operator()(libdeflate_compressor* c) const { libdeflate_free_compressor(c); }
};
using Compressor = std::unique_ptr<libdeflate_compressor, CompressorDeleter>;

// One horizontal band of rows, filtered and deflated on its own.
struct Stripe {
    int firstRow = 0;
    int endRow = 0;
    std::unique_ptr<std::uint8_t[]> deflated;
    std::size_t deflatedSize = 0;
    std::size_t filteredSize = 0;
    std::uint32_t adler = 1;
    bool ok = false;
};

// Grows a buffer to hold `size` bytes, keeping what it has when that is enough.
void reserve(std::unique_ptr<std::uint8_t[]>& buffer, std::size_t& capacity, std::size_t size) {
    if (capacity >= size)
        return;
    buffer = std::make_unique_for_overwrite<std::uint8_t[]>(size);
    capacity = size;
}

// One thread's buffers, reused across the stripes it takes and, through the pool below,
// across encodes.
struct Workspace {
    explicit Workspace(int compressionLevel)
        : level(compressionLevel)
        , compressor(libdeflate_alloc_compressor(compressionLevel)) {}
    int level;
    Compressor compressor;
    std::vector<std::uint8_t> rows;
    std::unique_ptr<std::uint8_t[]> filtered;
    std::size_t filteredCapacity = 0;
    std::unique_ptr<std::uint8_t[]> deflated;
    std::size_t deflatedCapacity = 0;
};

// Workspaces between encodes. Memory a process has just given back is slow to get again (the
// kernel maps it in page by page, on virtual machines through the host), and a screenshot's
// stripes need megabytes of it; kept here, the next capture writes into pages already mapped.
class WorkspacePool {
public:
    std::unique_ptr<Workspace> take(int level) {
        {
            const std::lock_guard lock(m_mutex);
            for (auto it = m_free.begin(); it != m_free.end(); ++it)
                if ((*it)->level == level) {
                    auto found = std::move(*it);
                    m_free.erase(it);
                    return found;
                }
        }
        return std::make_unique<Workspace>(level);
    }
    void give(std::unique_ptr<Workspace> workspace) {
        const std::lock_guard lock(m_mutex);
        if (workspace->compressor && m_free.size() < std::size_t(kMaxDefaultThreads))
            m_free.push_back(std::move(workspace));
    }

private:
    std::mutex m_mutex;
    std::vector<std::unique_ptr<Workspace>> m_free;
};

WorkspacePool& workspaces() {
    static WorkspacePool pool;
    return pool;
}

void encodeStripe(const Source& source, Stripe& stripe, Workspace& work, bool needsJoin) {
    if (!work.compressor)
        return;
    const std::size_t n = source.rowBytes;
    const std::size_t rows = std::size_t(stripe.endRow - stripe.firstRow);
    stripe.filteredSize = rows * (n + 1);
    reserve(work.filtered, work.filteredCapacity, stripe.filteredSize);
    if (work.rows.size() < 2 * (n + 1))
        work.rows.resize(2 * (n + 1));

    // Filters see raw pixels, so the first row may look at the previous stripe's last row.
    std::uint8_t* bufferA = work.rows.data();
    std::uint8_t* bufferB = work.rows.data() + n + 1;
    std::fill(bufferA, bufferA + n, 0); // the row above the image counts as zeros
    const std::uint8_t* prev =
        stripe.firstRow > 0 ? rawRow(source, stripe.firstRow - 1, bufferA) : bufferA;
    std::swap(bufferA, bufferB);
    std::uint8_t* out = work.filtered.get();
    for (int y = stripe.firstRow; y < stripe.endRow; ++y) {
        const std::uint8_t* cur = rawRow(source, y, bufferA);
        filterRow(cur, prev, n, source.bytesPerPixel, out);
        out += n + 1;
        prev = cur;
        std::swap(bufferA, bufferB);
    }
    stripe.adler = libdeflate_adler32(1, work.filtered.get(), stripe.filteredSize);

    // Deflated into the workspace, then copied out at its real size: the bound is about as
    // large as the input, the result of a screenshot a small part of it.
    const std::size_t bound =
        libdeflate_deflate_compress_bound(work.compressor.get(), stripe.filteredSize);
    reserve(work.deflated, work.deflatedCapacity, bound + kNonFinalSlack);
    std::size_t size = libdeflate_deflate_compress(work.compressor.get(), work.filtered.get(),
                                                   stripe.filteredSize, work.deflated.get(), bound);
    if (size == 0)
        return;
    if (needsJoin) {
        const auto final = locateFinalBlock({work.deflated.get(), size});
        if (!final)
            return;
        size = makeNonFinal({work.deflated.get(), bound + kNonFinalSlack}, *final);
    }
    stripe.deflated = std::make_unique_for_overwrite<std::uint8_t[]>(size);
    std::memcpy(stripe.deflated.get(), work.deflated.get(), size);
    stripe.deflatedSize = size;
    stripe.ok = true;
}

std::uint8_t zlibFlags(int level) {
    // FLEVEL is informative only; FCHECK makes the 16-bit header a multiple of 31.
    if (level <= 1)
        return 0x01;
    if (level <= 5)
        return 0x5e;
    if (level == 6)
        return 0x9c;
    return 0xda;
}

void appendBigEndian(QByteArray& out, std::uint32_t value) {
    const char bytes[4] = {char(value >> 24), char(value >> 16), char(value >> 8), char(value)};
    out.append(bytes, 4);
}

// A chunk whose data is the given pieces back to back.
void appendChunk(QByteArray& out, const char type[4], std::span<const std::uint8_t> a,
                 std::span<const std::uint8_t> b = {}, std::span<const std::uint8_t> c = {}) {
    appendBigEndian(out, std::uint32_t(a.size() + b.size() + c.size()));
    out.append(type, 4);
    std::uint32_t crc = libdeflate_crc32(0, type, 4);
    for (const std::span<const std::uint8_t> piece : {a, b, c}) {
        // libdeflate reads a null buffer as a request for the initial value.
        if (piece.empty())
            continue;
        out.append(reinterpret_cast<const char*>(piece.data()), qsizetype(piece.size()));
        crc = libdeflate_crc32(crc, piece.data(), piece.size());
    }
    appendBigEndian(out, crc);
}

} // namespace

std::optional<QByteArray> encode(const QImage& image) {
    return encode(image, EncodeOptions{});
}

std::optional<QByteArray> encode(const QImage& image, const EncodeOptions& options) {
    if (image.isNull())
        return std::nullopt;
    const Source source = prepare(image);
    if (source.image.isNull())
        return std::nullopt;
    const int height = source.image.height();
    const int level = options.level > 0 ? std::clamp(options.level, 1, 12) : kDefaultLevel;
    // Past a handful of cores a screenshot gains little and every thread costs its buffers.
    const int threads = options.threads > 0 ? options.threads
                                            : std::clamp(int(std::thread::hardware_concurrency()),
                                                         1, kMaxDefaultThreads);

    int stripeRows = options.stripeRows;
    if (stripeRows <= 0) {
        // A few stripes per thread keep both cores busy when one part of the image compresses
        // slower than the rest.
        const std::size_t filteredRowBytes = source.rowBytes + 1;
        const int minRows = int((kMinStripeBytes + filteredRowBytes - 1) / filteredRowBytes);
        const int targetStripes = threads == 1 ? 1 : threads * 4;
        stripeRows = std::max(minRows, (height + targetStripes - 1) / targetStripes);
    }
    const auto maxRows = std::max<std::size_t>(1, kMaxStripeBytes / (source.rowBytes + 1));
    stripeRows =
        int(std::min<std::size_t>({std::size_t(stripeRows), std::size_t(height), maxRows}));
    const int stripeCount = (height + stripeRows - 1) / stripeRows;
    std::vector<Stripe> stripes(static_cast<std::size_t>(stripeCount));
    for (int i = 0; i < stripeCount; ++i) {
        stripes[std::size_t(i)].firstRow = i * stripeRows;
        stripes[std::size_t(i)].endRow = std::min(height, (i + 1) * stripeRows);
    }

    std::atomic<int> nextStripe{0};
    auto work = [&] {
        std::unique_ptr<Workspace> workspace = workspaces().take(level);
        for (int i = nextStripe++; i < stripeCount; i = nextStripe++)
            encodeStripe(source, stripes[std::size_t(i)], *workspace, i + 1 < stripeCount);
        workspaces().give(std::move(workspace));
    };
    {
        std::vector<std::jthread> helpers;
        const int helperCount = std::min(threads, stripeCount) - 1;
        helpers.reserve(std::size_t(helperCount));
        for (int i = 0; i < helperCount; ++i) {
            // Without more threads the calling one simply takes the remaining stripes.
            try {
                helpers.emplace_back(work);
            } catch (const std::system_error&) {
                break;
            }
        }
        work();
    }

    for (const Stripe& stripe : stripes)
        if (!stripe.ok)
            return std::nullopt;
    std::uint32_t adler = 1;
    for (const Stripe& stripe : stripes)
        adler = adler32Combine(adler, stripe.adler, stripe.filteredSize);

    QByteArray out;
    std::size_t total = 8 + 25 + 12 + 2 + 4;
    for (const Stripe& stripe : stripes)
        total += stripe.deflatedSize + 12;
    out.reserve(qsizetype(total));
    out.append("\x89PNG\r\n\x1a\n", 8);
    std::uint8_t header[13];
    qToBigEndian(std::uint32_t(source.image.width()), header);
    qToBigEndian(std::uint32_t(height), header + 4);
    header[8] = 8;                                 // bits per channel
    header[9] = source.bytesPerPixel == 4 ? 6 : 2; // RGBA or RGB
    header[10] = 0;                                // deflate
    header[11] = 0;                                // adaptive filtering
    header[12] = 0;                                // not interlaced
    appendChunk(out, "IHDR", {header, sizeof header});

    // One zlib stream over one IDAT chunk per stripe: the zlib header opens the first, the
    // Adler-32 of all filtered bytes closes the last.
    const std::uint8_t zlibHeader[2] = {0x78, zlibFlags(level)};
    std::uint8_t zlibTrailer[4];
    qToBigEndian(adler, zlibTrailer);
    for (std::size_t i = 0; i < stripes.size(); ++i) {
        const Stripe& stripe = stripes[i];
        const std::span<const std::uint8_t> head =
            i == 0 ? std::span<const std::uint8_t>(zlibHeader) : std::span<const std::uint8_t>();
        const std::span<const std::uint8_t> tail = i + 1 == stripes.size()
                                                       ? std::span<const std::uint8_t>(zlibTrailer)
                                                       : std::span<const std::uint8_t>();
        appendChunk(out, "IDAT", head, {stripe.deflated.get(), stripe.deflatedSize}, tail);
    }
    appendChunk(out, "IEND", {});
    return out;
}

} // namespace qm::png
