#pragma once

// What a trim session needs from a player: start, stop, jump, and where the picture is now.
// The real one decodes and sounds the movie (PlaybackEngine); tests give a scripted one.

namespace qm::media::player {

class Playback {
public:
    virtual ~Playback() = default;
    virtual void play() = 0;
    virtual void pause() = 0;
    // Frame-exact: the picture becomes the frame on screen at `seconds`.
    virtual void seek(double seconds) = 0;
    // Seconds from the start of the movie.
    virtual double position() const = 0;
};

} // namespace qm::media::player
