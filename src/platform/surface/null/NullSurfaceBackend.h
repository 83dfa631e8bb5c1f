#pragma once

#include "platform/surface/api/SurfaceBackend.h"

namespace qm::platform {

// For display servers the program cannot ask: windows stay opaque, nothing is waited for, and
// pointer positions are Qt's.
class NullSurfaceBackend final : public SurfaceBackend {
public:
    explicit NullSurfaceBackend(QString reason = {});

    QString name() const override { return QStringLiteral("null"); }
    QString unavailableReason() const override { return m_reason; }
    bool compositingAvailable() override { return false; }
    void sync() override {}
    std::optional<QPoint> lastPointerPosition(WId) const override { return std::nullopt; }

private:
    QString m_reason;
};

} // namespace qm::platform
