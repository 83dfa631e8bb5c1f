#include "library/thumbnails/ThumbnailLoader.h"

#include <QMetaObject>
#include <QMutex>
#include <QMutexLocker>
#include <QPointer>

namespace qm::library {

namespace {

// A file is known by its path and the moment it last changed, so an edited file is made anew.
QString keyOf(const QString& path, const QDateTime& modified) {
    return path + QLatin1Char('\n') + QString::number(modified.toMSecsSinceEpoch());
}

constexpr int memoryBudgetKiB = 96 * 1024;

} // namespace

struct ThumbnailLoader::Shared {
    QMutex mutex;
    QHash<QString, QString> queued; // key → path; the workers skip what is no longer here
};

ThumbnailLoader::ThumbnailLoader(ThumbnailCache cache, ThumbnailCache::Size size, QObject* parent)
    : QObject(parent)
    , m_cache(std::move(cache))
    , m_size(size)
    , m_shared(std::make_shared<Shared>())
    , m_memory(memoryBudgetKiB) {
    // Scrolling stays smooth while thumbnails are made: few threads, below the interface.
    m_pool.setMaxThreadCount(2);
    m_pool.setThreadPriority(QThread::LowPriority);
}

ThumbnailLoader::~ThumbnailLoader() {
    {
        QMutexLocker lock(&m_shared->mutex);
        m_shared->queued.clear();
    }
    m_pool.clear();
    m_pool.waitForDone();
}

const ThumbnailLoader::Thumb* ThumbnailLoader::find(const QString& path,
                                                    const QDateTime& modified) const {
    return m_memory.object(keyOf(path, modified));
}

bool ThumbnailLoader::hasFailed(const QString& path, const QDateTime& modified) const {
    return m_failed.contains(keyOf(path, modified));
}

int ThumbnailLoader::pending() const {
    QMutexLocker lock(&m_shared->mutex);
    return int(m_shared->queued.size());
}

void ThumbnailLoader::request(const QString& path, const QDateTime& modified) {
    const QString key = keyOf(path, modified);
    if (m_memory.contains(key) || m_failed.contains(key))
        return;
    {
        QMutexLocker lock(&m_shared->mutex);
        if (m_shared->queued.contains(key))
            return;
        m_shared->queued.insert(key, path);
    }
    QPointer<ThumbnailLoader> self(this);
    m_pool.start([self, shared = m_shared, cache = m_cache, size = m_size, key, path] {
        {
            QMutexLocker lock(&shared->mutex);
            if (!shared->queued.contains(key))
                return; // scrolled away before its turn
        }
        std::optional<Thumb> thumb;
        if (Result<QImage> image = cache.thumbnail(path, size)) {
            thumb = Thumb{*image, std::nullopt};
            bool ok = false;
            const double length = image->text(QStringLiteral("Thumb::Movie::Length")).toDouble(&ok);
            if (ok && length > 0)
                thumb->duration = length;
        }
        QMetaObject::invokeMethod(
            self.data(),
            [self, key, path, thumb = std::move(thumb)] {
                if (self)
                    self->deliver(key, path, thumb);
            },
            Qt::QueuedConnection);
    });
}

void ThumbnailLoader::keepOnly(const QSet<QString>& paths) {
    QMutexLocker lock(&m_shared->mutex);
    for (auto it = m_shared->queued.begin(); it != m_shared->queued.end();) {
        if (paths.contains(it.value()))
            ++it;
        else
            it = m_shared->queued.erase(it);
    }
}

void ThumbnailLoader::deliver(const QString& key, const QString& path, std::optional<Thumb> thumb) {
    {
        QMutexLocker lock(&m_shared->mutex);
        m_shared->queued.remove(key);
    }
    if (thumb) {
        const int cost = std::max<qsizetype>(1, thumb->image.sizeInBytes() / 1024);
        m_memory.insert(key, new Thumb(std::move(*thumb)), int(cost));
    } else {
        m_failed.insert(key);
    }
    Q_EMIT ready(path);
}

} // namespace qm::library
