#include "platform/sound/api/SoundPlayer.h"

namespace qm {

QString soundEventId(SystemSound sound) {
    switch (sound) {
    case SystemSound::Capture:
        return QStringLiteral("screen-capture");
    case SystemSound::Notify:
        return QStringLiteral("message-new-instant");
    case SystemSound::Complete:
        return QStringLiteral("complete");
    case SystemSound::Alert:
        return QStringLiteral("bell");
    }
    return {};
}

} // namespace qm
