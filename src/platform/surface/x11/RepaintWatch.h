#pragma once

#include <QRect>
#include <QRegion>
#include <vector>

namespace qm::platform {

// What other programs must draw again where our windows were, window by window, and whether
// they have. Without a compositor, a window that the server gives a background is painted at
// once when it is uncovered and its program draws its content over it later; a window without
// one keeps showing what covered it until its program draws. Once a program is seen drawing
// into its window, the background the server painted there counts as done too, which covers
// window-manager frames that are drawn only by the server.
class RepaintWatch {
public:
    // `windows`: the visible part of each other program's top-level window; `uncovered`: where
    // our windows were, within the captured area.
    RepaintWatch(const std::vector<QRegion>& windows, const QRegion& uncovered);

    // The server painted a background while it took our windows off.
    void serverPainted(const QRect& area);
    // Something was drawn after that.
    void drawn(const QRect& area);
    bool done() const;

private:
    struct Window {
        QRegion shown;
        QRegion pending;
        bool drawing = false;
    };
    std::vector<Window> m_windows;
    QRegion m_serverPainted;
};

} // namespace qm::platform
