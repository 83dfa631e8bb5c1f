#include "platform/sound/SoundPlayer.h"

#include "platform/sound/CanberraSoundPlayer.h"

namespace qm {

QString soundEventId(SystemSound sound) {
    switch (sound) {
    case SystemSound::Grab:
        return QStringLiteral("screen-capture");
    case SystemSound::Pop:
        return QStringLiteral("message-new-instant");
    case SystemSound::Glass:
        return QStringLiteral("complete");
    case SystemSound::Tink:
        return QStringLiteral("bell");
    }
    return {};
}

std::optional<SystemSound> systemSoundNamed(QStringView name) {
    if (name == u"Grab")
        return SystemSound::Grab;
    if (name == u"Pop")
        return SystemSound::Pop;
    if (name == u"Glass")
        return SystemSound::Glass;
    if (name == u"Tink")
        return SystemSound::Tink;
    return std::nullopt;
}

std::unique_ptr<SoundPlayer> makeSoundPlayer() {
    if (auto canberra = CanberraSoundPlayer::open())
        return canberra;
    return std::make_unique<NullSoundPlayer>();
}

} // namespace qm
