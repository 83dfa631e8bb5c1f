#pragma once

// The sound of a movie for listening: every sound track (the computer's sound and the
// microphone) decoded, brought to 48 kHz stereo and added together. One thread at a time.

#include "base/Result.h"

#include <QString>
#include <memory>
#include <vector>

namespace qm::media::player {

inline constexpr int kMixRate = 48000;
inline constexpr int kMixChannels = 2;

class AudioMixer {
public:
    // An error when the file cannot be read; a movie without sound gives a mixer with no tracks.
    static Result<std::unique_ptr<AudioMixer>> open(const QString& path);
    ~AudioMixer();
    AudioMixer(const AudioMixer&) = delete;
    AudioMixer& operator=(const AudioMixer&) = delete;

    int trackCount() const;
    // The next sound from `seconds` on.
    void seek(double seconds);
    // Up to `frames` interleaved stereo frames; fewer only at the end of the movie.
    std::vector<float> read(int frames);

private:
    struct Impl;
    explicit AudioMixer(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> d;
};

} // namespace qm::media::player
