#include "media/player/TrimSession.h"

#include "media/player/MovieDecoder.h"
#include "media/player/Thumbnails.h"

#include <algorithm>
#include <cmath>

namespace qm::media::player {

namespace {
// Pressing play this close before the range's end starts over from its beginning.
constexpr double kRestartBeforeEnd = 0.05;
// Playing stops this close before the range's end (a tick may land just short of it).
constexpr double kStopBeforeEnd = 0.02;
constexpr double kBeforeStartSlack = 0.02;
constexpr double kNoTrimSlack = 0.05;
} // namespace

TrimSession::TrimSession(QString path, std::unique_ptr<Playback> playback, QObject* parent)
    : QObject(parent)
    , m_path(std::move(path))
    , m_playback(std::move(playback)) {
    m_observer.setInterval(1000 / 30);
    m_observer.setTimerType(Qt::PreciseTimer);
    connect(&m_observer, &QTimer::timeout, this, &TrimSession::observerTick);
}

TrimSession::~TrimSession() {
    teardown();
}

void TrimSession::load() {
    double duration = 0;
    if (auto decoder = MovieDecoder::open(m_path)) {
        duration = (*decoder)->duration();
        m_frameRate = (*decoder)->frameRate();
    }
    m_duration = std::isfinite(duration) && duration > 0 ? duration : 0;
    m_trimEnd = m_duration;
    Q_EMIT durationChanged();
    Q_EMIT rangeChanged();
    m_observer.start();
    m_thumbnails.clear();
    Q_EMIT thumbnailsChanged();
    const int generation = ++m_generation;
    m_thumbnailMaker.reset();
    if (m_duration > 0)
        m_thumbnailMaker = std::make_unique<ThumbnailMaker>(
            m_path, m_duration, this, [this, generation](QImage image) {
                if (generation != m_generation)
                    return;
                m_thumbnails.append(std::move(image));
                Q_EMIT thumbnailsChanged();
            });
    Q_EMIT loaded();
}

void TrimSession::reload() {
    m_thumbnailMaker.reset();
    setPlaying(false);
    m_playback->pause();
    m_playback->seek(0);
    setCurrent(0);
    m_trimStart = 0;
    setStatus({});
    m_thumbnails.clear();
    Q_EMIT thumbnailsChanged();
    load();
}

void TrimSession::teardown() {
    m_thumbnailMaker.reset();
    m_playback->pause();
    setPlaying(false);
    m_observer.stop();
}

bool TrimSession::hasTrim() const {
    return m_duration > 0 && (m_trimStart > kNoTrimSlack || m_trimEnd < m_duration - kNoTrimSlack);
}

void TrimSession::togglePlay() {
    if (m_playing) {
        m_playback->pause();
        setPlaying(false);
        return;
    }
    if (m_current < m_trimStart - kBeforeStartSlack || m_current >= m_trimEnd - kRestartBeforeEnd)
        seek(m_trimStart);
    m_playback->play();
    setPlaying(true);
}

void TrimSession::seek(double seconds) {
    const double t = seconds <= 0 ? 0 : std::min(seconds, m_duration);
    setCurrent(t);
    m_playback->seek(t);
}

void TrimSession::stepFrames(int frames) {
    // From the start of the frame on screen, so a step never skips or repeats one.
    const double rate = m_frameRate > 0 ? m_frameRate : 30;
    const double frame = std::floor(m_current * rate + 1e-6);
    // Aim a hair into the frame, so rounding cannot land on the one before it.
    seek(std::max(0.0, (frame + frames) / rate + 1e-6));
}

void TrimSession::stepSeconds(double seconds) {
    seek(m_current + seconds);
}

void TrimSession::moveStartTo(double seconds) {
    m_trimStart = std::max(0.0, std::min(seconds, m_trimEnd - kMinimumRange));
    Q_EMIT rangeChanged();
    seek(m_trimStart);
}

void TrimSession::moveEndTo(double seconds) {
    m_trimEnd = std::min(m_duration, std::max(seconds, m_trimStart + kMinimumRange));
    Q_EMIT rangeChanged();
    seek(m_trimEnd);
}

void TrimSession::setExporting(bool exporting) {
    if (m_exporting == exporting)
        return;
    m_exporting = exporting;
    Q_EMIT exportingChanged();
}

void TrimSession::setStatus(const QString& status) {
    if (m_status == status)
        return;
    m_status = status;
    Q_EMIT statusChanged();
}

void TrimSession::observerTick() {
    setCurrent(m_playback->position());
    if (m_playing && m_current >= m_trimEnd - kStopBeforeEnd) {
        m_playback->pause();
        setPlaying(false);
    }
}

void TrimSession::setCurrent(double seconds) {
    if (m_current == seconds)
        return;
    m_current = seconds;
    Q_EMIT currentChanged();
}

void TrimSession::setPlaying(bool playing) {
    if (m_playing == playing)
        return;
    m_playing = playing;
    Q_EMIT playingChanged();
}

} // namespace qm::media::player
