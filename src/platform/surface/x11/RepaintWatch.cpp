#include "platform/surface/x11/RepaintWatch.h"

#include <algorithm>

namespace qm::platform {

RepaintWatch::RepaintWatch(const std::vector<QRegion>& windows, const QRegion& uncovered) {
    for (const QRegion& shown : windows)
        if (QRegion pending = shown & uncovered; !pending.isEmpty())
            m_windows.push_back({shown, pending, false});
}

void RepaintWatch::serverPainted(const QRect& area) {
    m_serverPainted += area;
}

void RepaintWatch::drawn(const QRect& area) {
    for (Window& window : m_windows) {
        if (!window.shown.intersects(area))
            continue;
        window.drawing = true;
        window.pending -= area;
        window.pending -= m_serverPainted;
    }
}

bool RepaintWatch::done() const {
    return std::all_of(m_windows.begin(), m_windows.end(),
                       [](const Window& w) { return w.pending.isEmpty(); });
}

} // namespace qm::platform
