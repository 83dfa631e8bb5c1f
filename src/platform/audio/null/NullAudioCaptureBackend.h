#pragma once

#include "platform/audio/api/AudioCapture.h"

namespace qm::platform {

// The backend for sessions where no sound can be recorded: every input fails to open with the
// reason the user is shown.
class NullAudioCaptureBackend final : public AudioCaptureBackend {
public:
    explicit NullAudioCaptureBackend(QString reason);

    QString name() const override { return QStringLiteral("null"); }
    Result<std::unique_ptr<AudioStream>> open(AudioInput input) override;

private:
    QString m_reason;
};

} // namespace qm::platform
