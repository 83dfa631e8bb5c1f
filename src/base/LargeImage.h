#pragma once

#include <QImage>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace qm {

// A new, uninitialised image for a screen-sized picture. Large ones are backed by huge pages
// where the kernel offers them: a fresh 4K screenshot otherwise takes some 8,000 page faults
// before its first row is written. Small images, and systems without huge pages, get an
// ordinary QImage. Null when memory runs out.
QImage makeLargeImage(int width, int height, QImage::Format format);

// Keeps the next screenshot's image ready with its memory already touched. Memory the process
// has never written is slow to get the first time (the kernel, and on virtual machines the
// host, supply it page by page), and a capture would wait for that on every shot. After each
// take, an idle-priority thread prepares the next image of the same shape, so the work lands
// where nobody waits for it.
class ImageReserve {
public:
    ImageReserve();
    ~ImageReserve();
    ImageReserve(const ImageReserve&) = delete;
    ImageReserve& operator=(const ImageReserve&) = delete;

    // Starts preparing an image of this shape (at start-up, for the screen's size).
    void prepare(int width, int height, QImage::Format format);
    // An image of this shape: the prepared one when it is ready, otherwise a new one. Either
    // way the next one is prepared. Its contents are undefined.
    QImage take(int width, int height, QImage::Format format);

private:
    struct Shape {
        int width = 0;
        int height = 0;
        QImage::Format format = QImage::Format_Invalid;
        bool operator==(const Shape&) const = default;
    };
    void run(std::stop_token stop);
    // Whether the prepared image has this shape; under the mutex.
    bool holds(const Shape& shape) const;

    std::mutex m_mutex;
    std::condition_variable_any m_wake;
    Shape m_wanted;
    QImage m_ready;
    std::jthread m_worker; // last: stops before the members it uses go
};

} // namespace qm
