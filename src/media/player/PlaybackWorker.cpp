#include "media/player/PlaybackWorker.h"

#include "media/player/AudioMixer.h"

namespace qm::media::player {

namespace {
constexpr std::size_t kFramesAhead = 6;
constexpr std::size_t kSoundAhead = kMixRate / 2 * kMixChannels;
constexpr int kSoundChunk = 1024;
} // namespace

PlaybackWorker::PlaybackWorker(const QString& path, bool sound,
                               std::function<void(VideoFrame, int)> seeked)
    : m_seeked(std::move(seeked)) {
    // Opening the file happens here, so duration() and hasSound() are known at once.
    auto decoder = MovieDecoder::open(path);
    if (decoder)
        m_duration = (*decoder)->duration();
    m_thread = std::thread([this, path, sound] { run(path, sound); });
}

PlaybackWorker::~PlaybackWorker() {
    {
        std::lock_guard lock(m_mutex);
        m_stop = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

int PlaybackWorker::seek(double seconds) {
    std::lock_guard lock(m_mutex);
    m_seekTo = seconds;
    m_frames.clear();
    m_sound.clear();
    m_wake.notify_all();
    return ++m_generation;
}

void PlaybackWorker::setPlaying(bool playing) {
    std::lock_guard lock(m_mutex);
    m_playing = playing;
    m_wake.notify_all();
}

std::optional<VideoFrame> PlaybackWorker::takeDue(double seconds) {
    std::lock_guard lock(m_mutex);
    std::optional<VideoFrame> due;
    while (!m_frames.empty() && m_frames.front().time <= seconds + 1e-4) {
        due = std::move(m_frames.front());
        m_frames.pop_front();
    }
    if (due)
        m_wake.notify_all();
    return due;
}

void PlaybackWorker::readSound(float* out, std::size_t samples) {
    std::lock_guard lock(m_mutex);
    const std::size_t n = std::min(samples, m_sound.size());
    std::copy(m_sound.begin(), m_sound.begin() + static_cast<std::ptrdiff_t>(n), out);
    std::fill(out + n, out + samples, 0.0f);
    m_sound.erase(m_sound.begin(), m_sound.begin() + static_cast<std::ptrdiff_t>(n));
    m_wake.notify_all();
}

bool PlaybackWorker::hasSound() const {
    std::lock_guard lock(m_mutex);
    return m_hasSound;
}

double PlaybackWorker::duration() const {
    return m_duration;
}

void PlaybackWorker::run(const QString& path, bool sound) {
    auto video = MovieDecoder::open(path);
    std::unique_ptr<AudioMixer> mixer;
    if (sound) {
        if (auto opened = AudioMixer::open(path); opened && (*opened)->trackCount() > 0)
            mixer = std::move(*opened);
    }
    std::unique_lock lock(m_mutex);
    m_hasSound = mixer != nullptr;
    if (!video)
        return; // nothing to show; the session reports the movie as empty
    for (;;) {
        const auto wantsVideo = [&] {
            return m_playing && !m_videoEnded && m_frames.size() < kFramesAhead;
        };
        const auto wantsSound = [&] {
            return mixer && m_playing && !m_soundEnded && m_sound.size() < kSoundAhead;
        };
        m_wake.wait(lock, [&] { return m_stop || m_seekTo || wantsVideo() || wantsSound(); });
        if (m_stop)
            return;
        if (m_seekTo) {
            const double t = *m_seekTo;
            const int generation = m_generation;
            m_seekTo.reset();
            m_videoEnded = m_soundEnded = false;
            lock.unlock();
            auto frame = (*video)->frameAt(t);
            if (mixer)
                mixer->seek(t);
            if (frame)
                m_seeked(std::move(*frame), generation);
            lock.lock();
            continue;
        }
        const int generation = m_generation;
        if (wantsVideo()) {
            lock.unlock();
            auto frame = (*video)->nextFrame();
            lock.lock();
            if (generation != m_generation)
                continue;
            if (frame)
                m_frames.push_back(std::move(*frame));
            else
                m_videoEnded = true;
        }
        if (wantsSound()) {
            lock.unlock();
            auto chunk = mixer->read(kSoundChunk);
            lock.lock();
            if (generation != m_generation)
                continue;
            if (chunk.empty())
                m_soundEnded = true;
            m_sound.insert(m_sound.end(), chunk.begin(), chunk.end());
        }
    }
}

} // namespace qm::media::player
