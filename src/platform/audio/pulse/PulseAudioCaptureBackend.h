#pragma once

#include "platform/audio/api/AudioCapture.h"

namespace qm::platform {

// Records through the sound server's client library: PulseAudio, or PipeWire through its
// Pulse interface. Each stream has its own connection and event thread, so streams of the
// system sound and the microphone never wait for each other.
class PulseAudioCaptureBackend final : public AudioCaptureBackend {
public:
    QString name() const override { return QStringLiteral("pulse"); }
    // The system sound is the default output's monitor; the microphone is the default input,
    // provided it is not itself a monitor. The server converts either to 48 kHz stereo floats.
    Result<std::unique_ptr<AudioStream>> open(AudioInput input) override;
};

} // namespace qm::platform
