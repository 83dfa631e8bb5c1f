#pragma once

#include "library/thumbnails/ThumbnailCache.h"

#include <QCache>
#include <QDateTime>
#include <QImage>
#include <QObject>
#include <QSet>
#include <QString>
#include <QThreadPool>
#include <memory>
#include <optional>

namespace qm::library {

// Thumbnails for the cells on screen: made through the thumbnail cache on a small pool of
// low-priority threads, kept in memory, delivered on the GUI thread. Requests for cells that
// scrolled away before their turn are dropped.
class ThumbnailLoader : public QObject {
    Q_OBJECT
public:
    struct Thumb {
        QImage image;
        std::optional<double> duration; // seconds, movies only
    };

    explicit ThumbnailLoader(ThumbnailCache cache, ThumbnailCache::Size size,
                             QObject* parent = nullptr);
    // Drops what is queued and waits for the thumbnails being made.
    ~ThumbnailLoader() override;

    // The thumbnail of the file as it was at `modified`, when made; null otherwise.
    const Thumb* find(const QString& path, const QDateTime& modified) const;
    // Whether making it failed (the cell keeps its placeholder).
    bool hasFailed(const QString& path, const QDateTime& modified) const;
    // Queues it unless it is made, failed or already queued.
    void request(const QString& path, const QDateTime& modified);
    // Forgets queued requests for anything not in `paths`.
    void keepOnly(const QSet<QString>& paths);
    // Requests queued or being made.
    int pending() const;

Q_SIGNALS:
    // A thumbnail is ready, or failed, for `path`.
    void ready(const QString& path);

private:
    struct Shared;
    void deliver(const QString& key, const QString& path, std::optional<Thumb> thumb);

    ThumbnailCache m_cache;
    ThumbnailCache::Size m_size;
    std::shared_ptr<Shared> m_shared;
    QCache<QString, Thumb> m_memory;
    QSet<QString> m_failed;
    QThreadPool m_pool;
};

} // namespace qm::library
