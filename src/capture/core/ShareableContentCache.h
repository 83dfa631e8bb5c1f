#pragma once

#include "platform/capture/api/ScreenCaptureBackend.h"

#include <QObject>
#include <QPointer>
#include <chrono>
#include <functional>
#include <optional>
#include <vector>

namespace qm {

// Keeps the display server's shareable content for a few seconds, so a freeze does not wait
// for the server's slowest query. A fresh hit is served at once and renews the cache in the
// background; concurrent fetches are merged into one. Lives on the main thread.
class ShareableContentCache : public QObject {
    Q_OBJECT
public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;
    using Content = platform::ShareableContent;
    using Completion = std::function<void(CaptureResult<Content>)>;

    explicit ShareableContentCache(platform::ScreenCaptureBackend& backend,
                                   QObject* parent = nullptr, Clock clock = {});

    // Fetches in the background and ignores the outcome; called at start so the first capture
    // finds the cache warm.
    void prewarm();
    // Content no older than maxAge. Runs `done` on the main thread, later, unless `context` is
    // gone by then.
    void current(std::chrono::duration<double> maxAge, QObject* context, Completion done);

    const std::optional<Content>& cached() const { return m_cached; }
    bool fetching() const { return m_inflight; }

private:
    struct Waiter {
        QPointer<QObject> context;
        Completion done;
    };
    void refresh(QObject* context, Completion done);
    void finish(const CaptureResult<Content>& result);

    platform::ScreenCaptureBackend& m_backend;
    Clock m_clock;
    std::optional<Content> m_cached;
    std::chrono::steady_clock::time_point m_fetchedAt;
    bool m_inflight = false;
    std::vector<Waiter> m_waiters; // everyone awaiting the fetch in flight
    QObject m_guard;               // dies with the cache, dropping a late backend answer
};

} // namespace qm
