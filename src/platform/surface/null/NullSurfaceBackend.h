#pragma once

#include "platform/surface/api/SurfaceBackend.h"

namespace qm::platform {

// For display servers the program cannot ask: windows stay opaque, nothing is waited for,
// pointer positions are Qt's, and our windows cannot be kept out of captures.
class NullSurfaceBackend final : public SurfaceBackend {
public:
    explicit NullSurfaceBackend(QString reason = {});

    QString name() const override { return QStringLiteral("null"); }
    QString unavailableReason() const override { return m_reason; }
    bool compositingAvailable() override { return false; }
    void sync() override {}
    std::optional<QPoint> lastPointerPosition(WId) const override { return std::nullopt; }
    // Nothing can be taken off the screen here.
    void withdraw(const std::vector<WId>&, const QRect&,
                  std::function<void(std::vector<WId>)> repainted) override {
        repainted({});
    }
    void restore(const std::vector<WId>&) override {}

private:
    QString m_reason;
};

} // namespace qm::platform
