#pragma once

#include "platform/input/api/ClickSource.h"

namespace qm::platform {

// Watches the X server's raw button presses (left and right) over its own connection and
// asks where the pointer is at each one. The watch reads its connection on the thread that
// made it, which must run an event loop (the main thread).
class X11ClickSource final : public ClickSourceBackend {
public:
    // The display to open; empty for $DISPLAY.
    explicit X11ClickSource(QString display = {});

    QString name() const override { return QStringLiteral("x11"); }
    Result<std::unique_ptr<ClickWatch>> watch(ClickSink onClick) override;

private:
    QString m_display;
};

} // namespace qm::platform
