#pragma once

#include <QString>
#include <memory>

namespace qm {

// The program's few feedback sounds, named by what they tell the user.
enum class SystemSound {
    Capture,  // a capture was taken
    Notify,   // a recording starts
    Complete, // a recording, trim or GIF was saved
    Alert,    // one countdown tick
};

// The freedesktop sound-theme event id that plays for a sound ("screen-capture", "bell" …).
QString soundEventId(SystemSound sound);

// Plays short sounds without blocking the caller. Playing never fails visibly: without a sound
// server nothing is heard.
class SoundPlayer {
public:
    virtual ~SoundPlayer() = default;
    virtual void play(SystemSound sound) = 0;
};

// Plays nothing; for sessions without sound.
class NullSoundPlayer final : public SoundPlayer {
public:
    void play(SystemSound) override {}
};

} // namespace qm
