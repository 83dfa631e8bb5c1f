#pragma once

// The decoding side of playback, on a thread of its own: it answers seeks with the exact frame,
// and while playing keeps a few pictures and half a second of sound decoded ahead.

#include "media/player/MovieDecoder.h"

#include <QImage>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace qm::media::player {

class PlaybackWorker {
public:
    // `seeked` runs on the worker thread with the frame a seek landed on and the seek's number.
    PlaybackWorker(const QString& path, bool sound,
                   std::function<void(VideoFrame, int generation)> seeked);
    ~PlaybackWorker();
    PlaybackWorker(const PlaybackWorker&) = delete;
    PlaybackWorker& operator=(const PlaybackWorker&) = delete;

    // Returns the seek's number; pictures and sound of earlier seeks are thrown away.
    int seek(double seconds);
    void setPlaying(bool playing);
    // The newest decoded picture at or before `seconds`, if one is due.
    std::optional<VideoFrame> takeDue(double seconds);
    // Mixed stereo samples; silence where decoding has not kept up.
    void readSound(float* out, std::size_t samples);
    bool hasSound() const;
    double duration() const;

private:
    void run(const QString& path, bool sound);

    std::function<void(VideoFrame, int)> m_seeked;
    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    std::optional<double> m_seekTo;
    int m_generation = 0;
    bool m_playing = false;
    bool m_stop = false;
    bool m_videoEnded = false;
    bool m_soundEnded = false;
    bool m_hasSound = false;
    double m_duration = 0;
    std::deque<VideoFrame> m_frames;
    std::deque<float> m_sound;
    std::thread m_thread;
};

} // namespace qm::media::player
