#pragma once

#include "platform/surface/api/SurfaceBackend.h"

#include <QAbstractNativeEventFilter>
#include <cstdint>
#include <memory>

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

private:
    X11SurfaceBackend(xcb_connection_t* connection, std::uint32_t compositorSelection,
                      std::uint8_t xinputOpcode);
    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr* result) override;
    void pointerSeen(std::uint32_t window, QPoint position);

    xcb_connection_t* m_connection; // Qt's; it outlives the application object
    std::uint32_t m_compositorSelection;
    std::uint8_t m_xinputOpcode; // 0 without XInput 2
    std::uint32_t m_pointerWindow = 0;
    QPoint m_pointer;
};

} // namespace qm::platform
