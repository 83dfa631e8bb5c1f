#pragma once

#include "platform/video/api/ScreenVideoSource.h"

namespace qm::platform {

// Screen streams for a session that cannot record: every stream fails to start with the
// reason the user is shown.
class NullScreenVideoBackend final : public ScreenVideoBackend {
public:
    explicit NullScreenVideoBackend(QString reason = defaultReason());
    static QString defaultReason();

    QString name() const override { return QStringLiteral("null"); }
    QString unavailableReason() const override { return m_reason; }
    std::unique_ptr<ScreenVideoSource> createSource() override;

private:
    QString m_reason;
};

} // namespace qm::platform
