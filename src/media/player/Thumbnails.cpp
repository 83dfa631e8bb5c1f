#include "media/player/Thumbnails.h"

#include "media/player/MovieDecoder.h"

#include <QMetaObject>
#include <QPointer>

namespace qm::media::player {

std::vector<double> thumbnailTimes(double duration, int count) {
    std::vector<double> times;
    if (!(duration > 0))
        return times;
    for (int i = 0; i < count; ++i)
        times.push_back((i + 0.5) * duration / count);
    return times;
}

ThumbnailMaker::ThumbnailMaker(const QString& path, double duration, QObject* context,
                               std::function<void(QImage)> ready, std::function<void()> done) {
    QPointer<QObject> guard(context);
    m_thread = std::thread([this, path, duration, guard, ready = std::move(ready),
                            done = std::move(done)] {
        auto decoder = MovieDecoder::open(path);
        if (decoder) {
            for (double t : thumbnailTimes(duration)) {
                if (m_stop)
                    return;
                auto frame = (*decoder)->frameAt(t, kThumbnailHeight);
                if (!frame || !guard)
                    continue; // a frame that cannot be read leaves a gap, not a hole in the strip
                QMetaObject::invokeMethod(
                    guard.data(), [ready, image = std::move(frame->image)] { ready(image); });
            }
        }
        if (done && guard && !m_stop)
            QMetaObject::invokeMethod(guard.data(), done);
    });
}

ThumbnailMaker::~ThumbnailMaker() {
    m_stop = true;
    if (m_thread.joinable())
        m_thread.join();
}

} // namespace qm::media::player
