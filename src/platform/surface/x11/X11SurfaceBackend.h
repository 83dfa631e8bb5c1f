#pragma once

#include "platform/surface/api/SurfaceBackend.h"
#include "platform/surface/x11/X11Damage.h"

#include <QAbstractNativeEventFilter>
#include <QElapsedTimer>
#include <QObject>
#include <QRegion>
#include <QSet>
#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

struct xcb_connection_t;

namespace qm::platform {

// The surface backend on the application's own X connection, so that a sync covers the
// requests Qt made for its windows. Pointer positions are read from the input events as they
// arrive (core and XInput 2 alike), never asked for.
class X11SurfaceBackend final : public SurfaceBackend, private QAbstractNativeEventFilter {
public:
    // Nothing when the application does not run on X11. Needs the QGuiApplication.
    static std::unique_ptr<X11SurfaceBackend> create();
    ~X11SurfaceBackend() override;
    X11SurfaceBackend(const X11SurfaceBackend&) = delete;
    X11SurfaceBackend& operator=(const X11SurfaceBackend&) = delete;

    QString name() const override { return QStringLiteral("x11"); }
    bool compositingAvailable() override;
    void sync() override;
    std::optional<QPoint> lastPointerPosition(WId window) const override;
    void withdraw(const std::vector<WId>& windows, const QRect& pixelArea,
                  std::function<void(std::vector<WId> withdrawn)> repainted) override;
    void restore(const std::vector<WId>& windows) override;

    // The longest wait for programs beneath to redraw, for one that never does.
    static constexpr std::chrono::milliseconds repaintLimit{250};
    // How long a quiet spell ends the wait: programs redraw in one burst once told to.
    static constexpr std::chrono::milliseconds repaintSettle{40};

private:
    struct Repaint;
    X11SurfaceBackend(xcb_connection_t* connection, std::uint32_t compositorSelection,
                      std::uint8_t xinputOpcode);
    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr* result) override;
    void pointerSeen(std::uint32_t window, QPoint position);
    // The visible part of every other top-level window.
    std::vector<QRegion> othersShown(const std::vector<std::uint32_t>& ours);
    bool repaintSeen(const X11Damage::Notify& notify);
    void finishRepaint(Repaint* waiting);

    xcb_connection_t* m_connection; // Qt's; it outlives the application object
    std::uint32_t m_compositorSelection;
    std::uint8_t m_xinputOpcode; // 0 without XInput 2
    std::uint32_t m_pointerWindow = 0;
    QPoint m_pointer;
    std::optional<X11Damage> m_damage; // asked for on the first withdrawal
    bool m_damageAsked = false;
    std::vector<std::unique_ptr<Repaint>> m_repaints;
    QSet<std::uint32_t> m_withdrawn; // unmapped by withdraw, until the server says so
    QElapsedTimer m_ownUnmapped;     // since Qt last took one of our windows off the screen
    QObject m_timers;                // context of the repaint timers
};

} // namespace qm::platform
