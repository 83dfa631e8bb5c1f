#include "base/LargeImage.h"

#include <cstdint>
#include <cstring>
#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>

namespace qm {

namespace {

constexpr std::size_t kHugePage = std::size_t(2) << 20;
// Below this the page faults cost less than a mapping of its own.
constexpr std::size_t kWorthIt = std::size_t(8) << 20;

struct Mapping {
    void* address;
    std::size_t length;
};

void unmap(void* info) {
    auto* mapping = static_cast<Mapping*>(info);
    munmap(mapping->address, mapping->length);
    delete mapping;
}

// A private anonymous mapping of `length` bytes starting on a huge-page boundary, so that
// every 2 MiB of it can be one huge page.
void* mapAligned(std::size_t length) {
    void* raw = mmap(nullptr, length + kHugePage, PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (raw == MAP_FAILED)
        return nullptr;
    const auto start = reinterpret_cast<std::uintptr_t>(raw);
    const std::uintptr_t aligned = (start + kHugePage - 1) & ~(kHugePage - 1);
    if (aligned > start)
        munmap(raw, aligned - start);
    const std::uintptr_t end = start + length + kHugePage;
    if (end > aligned + length)
        munmap(reinterpret_cast<void*>(aligned + length), end - (aligned + length));
    return reinterpret_cast<void*>(aligned);
}

} // namespace

QImage makeLargeImage(int width, int height, QImage::Format format) {
    if (width <= 0 || height <= 0)
        return {};
    const int depth = QImage::toPixelFormat(format).bitsPerPixel();
    const qsizetype bytesPerLine = ((qsizetype(width) * depth + 31) / 32) * 4;
    const std::size_t bytes = std::size_t(bytesPerLine) * std::size_t(height);
    if (bytes < kWorthIt)
        return QImage(width, height, format);
    const std::size_t length = (bytes + kHugePage - 1) & ~(kHugePage - 1);
    void* address = mapAligned(length);
    if (!address)
        return QImage(width, height, format);
    // Advice only: without transparent huge pages the mapping simply stays in small pages.
    madvise(address, length, MADV_HUGEPAGE);
    return QImage(static_cast<uchar*>(address), width, height, bytesPerLine, format, unmap,
                  new Mapping{address, length});
}

ImageReserve::ImageReserve()
    : m_worker([this](std::stop_token stop) { run(stop); }) {}

ImageReserve::~ImageReserve() {
    m_worker.request_stop();
    m_wake.notify_all();
}

void ImageReserve::prepare(int width, int height, QImage::Format format) {
    {
        const std::lock_guard lock(m_mutex);
        m_wanted = {width, height, format};
    }
    m_wake.notify_all();
}

QImage ImageReserve::take(int width, int height, QImage::Format format) {
    const Shape shape{width, height, format};
    QImage image;
    {
        const std::lock_guard lock(m_mutex);
        if (holds(shape))
            image = std::exchange(m_ready, QImage());
        m_wanted = shape;
    }
    m_wake.notify_all();
    return image.isNull() ? makeLargeImage(width, height, format) : image;
}

void ImageReserve::run(std::stop_token stop) {
    // Only spare processor time: preparing must never slow down the capture it follows.
    sched_param none{};
    pthread_setschedparam(pthread_self(), SCHED_IDLE, &none);
    std::unique_lock lock(m_mutex);
    while (m_wake.wait(lock, stop, [this] { return m_wanted.width > 0 && !holds(m_wanted); })) {
        const Shape shape = m_wanted;
        lock.unlock();
        QImage image = makeLargeImage(shape.width, shape.height, shape.format);
        if (!image.isNull())
            std::memset(image.bits(), 0, std::size_t(image.sizeInBytes()));
        lock.lock();
        if (image.isNull())
            m_wanted = {}; // out of memory: the next take asks again
        else if (m_wanted == shape)
            m_ready = std::move(image);
    }
}

bool ImageReserve::holds(const Shape& shape) const {
    return !m_ready.isNull() && m_ready.size() == QSize(shape.width, shape.height) &&
           m_ready.format() == shape.format;
}

} // namespace qm
