#pragma once

// The filmstrip's frames: evenly spread over the movie, each from the middle of its slice,
// decoded on a thread of their own and handed over one by one as they are ready.

#include <QImage>
#include <QObject>
#include <QString>
#include <atomic>
#include <functional>
#include <thread>
#include <vector>

namespace qm::media::player {

inline constexpr int kThumbnailCount = 14;
inline constexpr int kThumbnailHeight = 120;

// When each of the `count` frames is taken: the middle of each equal slice.
std::vector<double> thumbnailTimes(double duration, int count = kThumbnailCount);

class ThumbnailMaker {
public:
    // `ready` runs on `context`'s thread for every frame that could be read, in time order.
    ThumbnailMaker(const QString& path, double duration, QObject* context,
                   std::function<void(QImage)> ready, std::function<void()> done = {});
    // Stops early and waits for the thread.
    ~ThumbnailMaker();
    ThumbnailMaker(const ThumbnailMaker&) = delete;
    ThumbnailMaker& operator=(const ThumbnailMaker&) = delete;

private:
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

} // namespace qm::media::player
