#pragma once

// The model behind every place a recording is trimmed: one movie, its playhead, the kept
// range, the play state and the filmstrip. Lives on the main thread; its views listen to the
// change signals and call the operations below.

#include "media/player/Playback.h"

#include <QImage>
#include <QList>
#include <QObject>
#include <QString>
#include <QTimer>
#include <memory>

namespace qm::media::player {

class ThumbnailMaker;

// The shortest range that may be kept, in seconds.
inline constexpr double kMinimumRange = 0.2;

class TrimSession : public QObject {
    Q_OBJECT
public:
    TrimSession(QString path, std::unique_ptr<Playback> playback, QObject* parent = nullptr);
    ~TrimSession() override;

    // Reads the length, sets the range to the whole movie, starts the time observer and the
    // filmstrip. `frameRate` is what one-frame steps use.
    void load();
    // After the file on disk was replaced: the playhead and start back to 0, then load().
    void reload();
    // Stops playing and the time observer; for when the window closes.
    void teardown();

    const QString& path() const { return m_path; }
    double duration() const { return m_duration; }
    double frameRate() const { return m_frameRate; }
    double current() const { return m_current; }
    double trimStart() const { return m_trimStart; }
    double trimEnd() const { return m_trimEnd; }
    bool isPlaying() const { return m_playing; }
    const QList<QImage>& thumbnails() const { return m_thumbnails; }
    bool isExporting() const { return m_exporting; }
    const QString& status() const { return m_status; }
    // A range that merely touches the ends (within 0.05 s) is no trim.
    bool hasTrim() const;

    void togglePlay();
    // Clamped to the movie; frame-exact.
    void seek(double seconds);
    // Moves the playhead by whole frames or by seconds, from the frame on screen.
    void stepFrames(int frames);
    void stepSeconds(double seconds);
    // Range edits: the range never gets shorter than kMinimumRange; the playhead follows the
    // edited end.
    void moveStartTo(double seconds);
    void moveEndTo(double seconds);

    // Set by whoever runs an export (trimming, GIF), shown under the timeline.
    void setExporting(bool exporting);
    void setStatus(const QString& status);

    // One beat of the 1/30 s time observer; public so tests can beat it themselves.
    void observerTick();
    bool observerRunning() const { return m_observer.isActive(); }

Q_SIGNALS:
    void loaded();
    void durationChanged();
    void currentChanged();
    void rangeChanged();
    void playingChanged();
    void thumbnailsChanged();
    void exportingChanged();
    void statusChanged();

private:
    void setCurrent(double seconds);
    void setPlaying(bool playing);

    QString m_path;
    std::unique_ptr<Playback> m_playback;
    QTimer m_observer;
    std::unique_ptr<ThumbnailMaker> m_thumbnailMaker;
    int m_generation = 0; // thumbnails of an earlier load are dropped
    double m_duration = 0;
    double m_frameRate = 30;
    double m_current = 0;
    double m_trimStart = 0;
    double m_trimEnd = 0;
    bool m_playing = false;
    QList<QImage> m_thumbnails;
    bool m_exporting = false;
    QString m_status;
};

} // namespace qm::media::player
