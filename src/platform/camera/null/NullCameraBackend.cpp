#include "platform/camera/null/NullCameraBackend.h"

namespace qm::platform {

NullCameraBackend::NullCameraBackend(QString reason)
    : m_reason(std::move(reason)) {}

Result<std::unique_ptr<CameraStream>> NullCameraBackend::openDefault() {
    return failure(m_reason);
}

} // namespace qm::platform
