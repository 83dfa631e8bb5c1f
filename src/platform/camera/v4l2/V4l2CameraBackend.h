#pragma once

#include "platform/camera/api/CameraSource.h"

namespace qm::platform {

// The cameras of a Linux machine: the first video device (/dev/video0, /dev/video1, …) that
// opens as a camera. Many devices also expose nodes that carry no pictures; those are skipped.
class V4l2CameraBackend final : public CameraBackend {
public:
    // Where the device nodes are; tests point it at a folder of their own.
    explicit V4l2CameraBackend(QString deviceFolder = QStringLiteral("/dev"));

    QString name() const override { return QStringLiteral("v4l2"); }
    Result<std::unique_ptr<CameraStream>> openDefault() override;

    // The picture size asked of the camera; the bubble is small, so little is needed.
    static constexpr const char* videoSize = "640x480";

private:
    QString m_folder;
};

} // namespace qm::platform
