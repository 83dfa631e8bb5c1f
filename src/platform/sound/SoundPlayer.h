#pragma once

#include <QString>
#include <QStringView>
#include <memory>
#include <optional>

namespace qm {

// The program's few feedback sounds, by the names the rest of the code uses.
enum class SystemSound {
    Grab,  // a capture was taken
    Pop,   // a recording starts
    Glass, // a recording, trim or GIF was saved
    Tink,  // one countdown tick
};

// The freedesktop sound-theme event id that plays for a sound ("screen-capture", "bell" …).
QString soundEventId(SystemSound sound);
// The sound for one of the names "Grab", "Pop", "Glass", "Tink"; nothing for other names.
std::optional<SystemSound> systemSoundNamed(QStringView name);

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

// The best player this session offers: libcanberra when it can reach a sound server, else the
// silent one.
std::unique_ptr<SoundPlayer> makeSoundPlayer();

} // namespace qm
