#include "platform/sound/canberra/CanberraSoundPlayer.h"

#include "base/Log.h"

#include <canberra.h>

namespace qm {

void CanberraSoundPlayer::ContextDeleter::operator()(ca_context* context) const {
    ca_context_destroy(context);
}

CanberraSoundPlayer::CanberraSoundPlayer(std::unique_ptr<ca_context, ContextDeleter> context)
    : context_(std::move(context)) {}

CanberraSoundPlayer::~CanberraSoundPlayer() = default;

std::unique_ptr<CanberraSoundPlayer> CanberraSoundPlayer::open() {
    ca_context* raw = nullptr;
    if (ca_context_create(&raw) != CA_SUCCESS || !raw)
        return nullptr;
    std::unique_ptr<ca_context, ContextDeleter> context(raw);
    // Only the sound server (PulseAudio, or PipeWire through its Pulse interface): canberra's
    // raw ALSA fallback fights the server for the device and has crashed at exit without one.
    ca_context_set_driver(context.get(), "pulse");
    ca_context_change_props(context.get(), CA_PROP_APPLICATION_NAME, "Quillmark",
                            CA_PROP_APPLICATION_ID, "com.quillworks.Quillmark", nullptr);
    // Opening connects to the sound server now, so a session without one is known at once
    // instead of on every play.
    if (const int error = ca_context_open(context.get()); error != CA_SUCCESS) {
        qCDebug(lcApp).noquote() << QStringLiteral("Quillmark sound: no sound system: ") +
                                        QString::fromUtf8(ca_strerror(error));
        return nullptr;
    }
    return std::unique_ptr<CanberraSoundPlayer>(new CanberraSoundPlayer(std::move(context)));
}

void CanberraSoundPlayer::play(SystemSound sound) {
    const QByteArray eventId = soundEventId(sound).toUtf8();
    // ca_context_play returns at once; the server mixes the sample in the background.
    const int error = ca_context_play(context_.get(), 0, CA_PROP_EVENT_ID, eventId.constData(),
                                      CA_PROP_EVENT_DESCRIPTION, "Quillmark", nullptr);
    if (error != CA_SUCCESS)
        qCDebug(lcApp).noquote() << QStringLiteral("Quillmark sound: cannot play ") +
                                        QString::fromLatin1(eventId) + QStringLiteral(": ") +
                                        QString::fromUtf8(ca_strerror(error));
}

} // namespace qm
