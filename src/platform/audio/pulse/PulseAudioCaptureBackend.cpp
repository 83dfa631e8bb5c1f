#include "platform/audio/pulse/PulseAudioCaptureBackend.h"

#include "platform/audio/pulse/PulseAudioStream.h"

namespace qm::platform {

Result<std::unique_ptr<AudioStream>> PulseAudioCaptureBackend::open(AudioInput input) {
    return PulseAudioStream::open(input);
}

} // namespace qm::platform
