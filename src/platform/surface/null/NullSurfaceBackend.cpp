#include "platform/surface/null/NullSurfaceBackend.h"

namespace qm::platform {

NullSurfaceBackend::NullSurfaceBackend(QString reason)
    : m_reason(std::move(reason)) {}

} // namespace qm::platform
