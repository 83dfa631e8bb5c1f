#include "recorder/core/RecordingSession.h"

#include "base/Log.h"

#include <QFile>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace qm::recorder {

namespace {
// Encoding may wait a little; the grab and the sound may not.
void giveWayToCapture() {
    const pid_t thread = pid_t(::syscall(SYS_gettid));
    errno = 0;
    const int nice = ::getpriority(PRIO_PROCESS, id_t(thread));
    if (errno == 0)
        ::setpriority(PRIO_PROCESS, id_t(thread), std::min(nice + 5, 19));
}
} // namespace

int RecordingSession::maxQueuedFrames(QSize frame) {
    const qint64 frameBytes = qMax<qint64>(1, qint64(frame.width()) * frame.height() * 4);
    return int(std::clamp<qint64>(48 * 1024 * 1024 / frameBytes, 3, 6));
}

Result<std::unique_ptr<media::MovieWriter>>
RecordingSession::createWriter(const QString& path, const media::MovieSettings& settings) {
    std::optional<Result<std::unique_ptr<media::MovieWriter>>> made;
    std::thread([&] {
        giveWayToCapture();
        made.emplace(media::MovieWriter::create(path, settings));
    }).join();
    return std::move(*made);
}

RecordingSession::RecordingSession(Parts parts, QString path, QRect area, StopHandler onStopped)
    : m_parts(std::move(parts))
    , m_path(std::move(path))
    , m_lock(m_path)
    , m_area(area)
    , m_onStopped(std::move(onStopped))
    , m_maxQueuedFrames(maxQueuedFrames(area.size())) {
    // The frame buffers are made and touched now: memory the process has not used before
    // costs the kernel time page by page, which the first frames cannot afford.
    const size_t frameBytes = size_t(area.width()) * size_t(area.height()) * 4;
    for (int i = 0; i < m_maxQueuedFrames; ++i)
        m_spareBuffers.emplace_back(frameBytes, std::uint8_t(0));
    m_writerThread = std::thread([this] {
        giveWayToCapture();
        writeLoop();
    });
}

RecordingSession::~RecordingSession() {
    if (!m_finished)
        (void)finish();
}

Status RecordingSession::start() {
    platform::ScreenVideoRequest request;
    request.area = m_area;
    request.fps = kRecordingFps;
    Status video = m_parts.video->start(
        request, [this](const platform::VideoFrame& frame) { takeFrame(frame); },
        [this](const QString& reason) { stopBy(reason); });
    if (!video)
        return video;
    const auto startSound = [this](std::unique_ptr<platform::AudioStream>& stream,
                                   media::AudioTrack track) {
        if (!stream)
            return;
        Status started = stream->start(
            [this, track](const platform::AudioChunk& chunk) { takeSound(track, chunk); },
            [track](const QString& reason) {
                // The movie goes on without this sound rather than ending the recording.
                qCWarning(lcRecording).noquote() << (track == media::AudioTrack::System
                                                         ? QStringLiteral("System audio stopped: ")
                                                         : QStringLiteral("Microphone stopped: "))
                                                 << reason;
            });
        if (!started) {
            qCWarning(lcRecording).noquote()
                << QStringLiteral("Sound input did not start: ") << started.error().reason;
            stream.reset();
        }
    };
    startSound(m_parts.systemAudio, media::AudioTrack::System);
    startSound(m_parts.microphone, media::AudioTrack::Microphone);
    return {};
}

void RecordingSession::setPaused(bool paused) {
    std::lock_guard lock(m_mutex);
    m_gate.setPaused(paused);
}

bool RecordingSession::paused() const {
    std::lock_guard lock(m_mutex);
    return m_gate.paused();
}

RecordingStats RecordingSession::stats() const {
    std::lock_guard lock(m_mutex);
    RecordingStats stats;
    stats.framesSeen = m_seen;
    stats.framesWritten = m_written.load();
    stats.framesDropped = m_dropped;
    stats.framesMissed = m_missed;
    return stats;
}

void RecordingSession::takeFrame(const platform::VideoFrame& frame) {
    if (frame.width != m_area.width() || frame.height != m_area.height() || !frame.pixels)
        return;
    std::vector<std::uint8_t> buffer;
    MediaTime t{};
    {
        std::lock_guard lock(m_mutex);
        if (!m_accepting)
            return;
        ++m_seen;
        // Only a grab missed while the movie runs costs it a frame; before its first frame or
        // inside a pause nothing is lost.
        const std::uint64_t sourceMissed = m_parts.video->missedFrames();
        const std::uint64_t missedNow = sourceMissed - m_sourceMissed;
        m_sourceMissed = sourceMissed;
        if (!m_sessionStart)
            m_sessionStart = frame.pts; // the movie's time zero
        else if (!m_gate.paused())
            m_missed += missedNow;
        if (m_gate.dropVideo(frame.pts))
            return;
        if (m_queuedFrames >= m_maxQueuedFrames) {
            ++m_dropped; // the encoder is behind: leave this frame out rather than fall further
                         // behind
            return;
        }
        ++m_queuedFrames; // holds the slot while the pixels are copied outside the lock
        t = frame.pts - *m_sessionStart - m_gate.offset();
        if (!m_spareBuffers.empty()) {
            buffer = std::move(m_spareBuffers.back());
            m_spareBuffers.pop_back();
        }
    }
    const int rowBytes = frame.width * 4;
    buffer.resize(static_cast<size_t>(rowBytes) * frame.height);
    if (frame.bytesPerLine == rowBytes) {
        std::memcpy(buffer.data(), frame.pixels, buffer.size());
    } else {
        for (int y = 0; y < frame.height; ++y)
            std::memcpy(buffer.data() + static_cast<size_t>(y) * rowBytes,
                        frame.pixels + static_cast<size_t>(y) * frame.bytesPerLine, rowBytes);
    }
    {
        std::lock_guard lock(m_mutex);
        m_queue.push_back(VideoItem{std::move(buffer), rowBytes, t});
    }
    m_wake.notify_one();
}

void RecordingSession::takeSound(media::AudioTrack track, const platform::AudioChunk& chunk) {
    if (chunk.frames <= 0 || !chunk.samples)
        return;
    {
        std::lock_guard lock(m_mutex);
        if (!m_accepting || !m_sessionStart || m_gate.dropAudio())
            return; // sound before the first frame, or inside a pause, is not part of the movie
        if (m_queuedAudioFrames + chunk.frames > kMaxQueuedAudioFrames)
            return;
        MediaTime t = chunk.pts - *m_sessionStart - m_gate.offset();
        int skip = 0;
        if (t < MediaTime{0}) {
            // Only the part heard after the first frame belongs to the movie.
            skip = static_cast<int>((-t).count() * platform::kAudioSampleRate / 1'000'000'000);
            if (skip >= chunk.frames)
                return;
            t = MediaTime{0};
        }
        const float* from = chunk.samples + static_cast<size_t>(skip) * platform::kAudioChannels;
        const int frames = chunk.frames - skip;
        AudioItem item{
            track,
            std::vector<float>(from, from + static_cast<size_t>(frames) * platform::kAudioChannels),
            t};
        m_queuedAudioFrames += frames;
        m_queue.push_back(std::move(item));
    }
    m_wake.notify_one();
}

void RecordingSession::writeLoop() {
    for (;;) {
        Item item;
        {
            std::unique_lock lock(m_mutex);
            m_wake.wait(lock, [this] { return !m_queue.empty() || m_draining; });
            if (m_queue.empty())
                return; // draining and nothing left
            item = std::move(m_queue.front());
            m_queue.pop_front();
        }
        Status written;
        if (auto* video = std::get_if<VideoItem>(&item)) {
            written =
                m_parts.writer->writeVideo(video->pixels.data(), video->bytesPerLine, video->t);
            m_written = m_parts.writer->videoFramesWritten();
            std::lock_guard lock(m_mutex);
            --m_queuedFrames;
            if (m_spareBuffers.size() < size_t(m_maxQueuedFrames))
                m_spareBuffers.push_back(std::move(video->pixels));
        } else {
            auto& audio = std::get<AudioItem>(item);
            const int frames = static_cast<int>(audio.samples.size() / platform::kAudioChannels);
            written =
                m_parts.writer->writeAudio(audio.track, audio.samples.data(), frames, audio.t);
            std::lock_guard lock(m_mutex);
            m_queuedAudioFrames -= frames;
        }
        if (!written)
            stopBy(written.error().reason);
    }
}

void RecordingSession::stopBy(const QString& reason) {
    {
        std::lock_guard lock(m_mutex);
        m_accepting = false;
        if (m_problem.isEmpty())
            m_problem = reason;
        m_queue.clear();
        m_queuedFrames = 0;
        m_queuedAudioFrames = 0;
    }
    if (!m_stopReported.exchange(true) && m_onStopped)
        m_onStopped(reason);
}

Result<RecordedMovie> RecordingSession::finish() {
    m_finished = true;
    // The streams are stopped first so nothing arrives while the queue is written out.
    if (m_parts.video)
        m_parts.video->stop();
    if (m_parts.systemAudio)
        m_parts.systemAudio->stop();
    if (m_parts.microphone)
        m_parts.microphone->stop();
    {
        std::lock_guard lock(m_mutex);
        m_accepting = false;
        m_draining = true;
    }
    m_wake.notify_one();
    if (m_writerThread.joinable())
        m_writerThread.join();

    const Status closed = m_parts.writer->finish();
    RecordedMovie movie;
    movie.path = m_path;
    movie.stats = stats();
    movie.stats.framesWritten = m_parts.writer->videoFramesWritten();
    {
        std::lock_guard lock(m_mutex);
        movie.problem = m_problem;
    }
    if (!closed && movie.problem.isEmpty())
        movie.problem = closed.error().reason;
    if (movie.stats.framesWritten == 0) {
        QFile::remove(m_path); // holds no picture, so nothing of the user's is lost
        return failure(
            movie.problem.isEmpty()
                ? QStringLiteral("Nothing was recorded: no picture of the screen arrived.")
                : movie.problem);
    }
    return movie;
}

} // namespace qm::recorder
