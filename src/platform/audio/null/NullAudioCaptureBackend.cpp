#include "platform/audio/null/NullAudioCaptureBackend.h"

namespace qm::platform {

NullAudioCaptureBackend::NullAudioCaptureBackend(QString reason)
    : m_reason(std::move(reason)) {}

Result<std::unique_ptr<AudioStream>> NullAudioCaptureBackend::open(AudioInput) {
    return failure(m_reason);
}

} // namespace qm::platform
