#pragma once

#include <QPoint>
#include <QRect>
#include <QString>
#include <QWindow>
#include <functional>
#include <optional>
#include <vector>

namespace qm::platform {

// What the program's own windows need from the display server beyond what Qt offers: whether
// they can be see-through, a way to wait until the server has carried out what was asked, and
// the pointer's exact position on screens that scale by a fraction.
class SurfaceBackend {
public:
    virtual ~SurfaceBackend() = default;

    // Short name for logs and tests ("x11", "null").
    virtual QString name() const = 0;
    // Why the server cannot be asked here, in one sentence; empty when it can.
    virtual QString unavailableReason() const { return {}; }

    // Whether a compositing manager runs, so windows can have see-through parts.
    virtual bool compositingAvailable() = 0;
    // Returns once the server has handled every request sent so far: a window just hidden is
    // off the screen.
    virtual void sync() = 0;
    // Where the pointer is in `window`, in whole device pixels, as the server last told this
    // program (no request is made). Nothing when its last report was about another window.
    // Qt rounds pointer positions to whole points, which on a scaled screen hides every other
    // pixel; this is the exact one.
    virtual std::optional<QPoint> lastPointerPosition(WId window) const = 0;

    // Keeping our own windows out of captures. `pixelArea` is in device pixels of the
    // desktop. Takes those of `windows` (ours, and never managed by the window manager) that
    // overlap the area off the screen, behind Qt's back: Qt still counts them as shown. Then
    // `repainted` runs with the ones taken off, bottom-most first, once the desktop beneath
    // them inside the area shows what it should again (other programs redraw what our windows
    // covered only after they are told, and until then the screen holds a hole) or, for a
    // program that never redraws, after a short while. It may run inside this call: at once
    // when nothing overlaps, or when nothing beneath needs to be redrawn.
    virtual void withdraw(const std::vector<WId>& windows, const QRect& pixelArea,
                          std::function<void(std::vector<WId> withdrawn)> repainted) = 0;
    // Puts windows taken off by `withdraw` back, stacked in the order given (bottom first).
    virtual void restore(const std::vector<WId>& windows) = 0;
};

} // namespace qm::platform
