#pragma once

#include "platform/sound/api/SoundPlayer.h"

#include <memory>

struct ca_context;

namespace qm {

// Plays theme sounds through libcanberra, only via the sound server (PulseAudio, or PipeWire
// through its Pulse interface).
class CanberraSoundPlayer final : public SoundPlayer {
public:
    // A player connected to the sound system, or nothing when no backend can be opened.
    static std::unique_ptr<CanberraSoundPlayer> open();
    ~CanberraSoundPlayer() override;
    CanberraSoundPlayer(const CanberraSoundPlayer&) = delete;
    CanberraSoundPlayer& operator=(const CanberraSoundPlayer&) = delete;

    void play(SystemSound sound) override;

private:
    struct ContextDeleter {
        void operator()(ca_context* context) const;
    };
    explicit CanberraSoundPlayer(std::unique_ptr<ca_context, ContextDeleter> context);
    std::unique_ptr<ca_context, ContextDeleter> context_;
};

} // namespace qm
