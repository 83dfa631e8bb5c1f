#include "capture/core/ShareableContentCache.h"

#include <QTimer>

namespace qm {

ShareableContentCache::ShareableContentCache(platform::ScreenCaptureBackend& backend,
                                             QObject* parent, Clock clock)
    : QObject(parent)
    , m_backend(backend)
    , m_clock(clock ? std::move(clock) : Clock([] { return std::chrono::steady_clock::now(); })) {}

void ShareableContentCache::prewarm() {
    refresh(this, [](const CaptureResult<Content>&) {});
}

void ShareableContentCache::current(std::chrono::duration<double> maxAge, QObject* context,
                                    Completion done) {
    if (m_cached && m_clock() - m_fetchedAt < maxAge) {
        // Serve the copy at hand and renew it for whoever asks next.
        QTimer::singleShot(0, context, [done, content = *m_cached] { done(content); });
        refresh(this, [](const CaptureResult<Content>&) {});
        return;
    }
    refresh(context, std::move(done));
}

void ShareableContentCache::refresh(QObject* context, Completion done) {
    m_waiters.push_back({context, std::move(done)});
    if (m_inflight)
        return; // joins the fetch already running
    m_inflight = true;
    QPointer<QObject> guard(&m_guard);
    m_backend.fetchContent([this, guard](const CaptureResult<Content>& result) {
        if (guard)
            finish(result);
    });
}

void ShareableContentCache::finish(const CaptureResult<Content>& result) {
    if (result.ok()) {
        m_cached = result.value();
        m_fetchedAt = m_clock();
    }
    // A failure keeps the previous content; every waiter hears the same outcome.
    m_inflight = false;
    std::vector<Waiter> waiters = std::move(m_waiters);
    m_waiters.clear();
    for (Waiter& waiter : waiters)
        if (waiter.context)
            waiter.done(result);
}

} // namespace qm
