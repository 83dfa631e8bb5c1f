#pragma once

#include "platform/camera/api/CameraSource.h"

namespace qm::platform {

// Has no camera and says why.
class NullCameraBackend final : public CameraBackend {
public:
    explicit NullCameraBackend(QString reason = QStringLiteral("No camera is connected"));

    QString name() const override { return QStringLiteral("null"); }
    Result<std::unique_ptr<CameraStream>> openDefault() override;

private:
    QString m_reason;
};

} // namespace qm::platform
