#pragma once

// Plays a movie: pictures decoded on a worker thread, the sound of all its tracks mixed and
// sent to the audio output, and the audio output's clock deciding which picture is up. With no
// sound device (or a movie without sound) the system timer keeps time instead.

#include "media/player/Playback.h"

#include <QElapsedTimer>
#include <QImage>
#include <QObject>
#include <QTimer>
#include <memory>

class QAudioSink;

namespace qm::media::player {

class PlaybackWorker;
class MixedSoundDevice;

class PlaybackEngine : public QObject, public Playback {
    Q_OBJECT
public:
    // `sound` false keeps the engine silent (its clock is then the system timer).
    explicit PlaybackEngine(const QString& path, bool sound = true, QObject* parent = nullptr);
    ~PlaybackEngine() override;

    void play() override;
    void pause() override;
    void seek(double seconds) override;
    double position() const override;

    // Whether the sound of the movie goes to an audio output now.
    bool isSounding() const;
    const QImage& picture() const { return m_picture; }

Q_SIGNALS:
    // The picture on screen changed.
    void pictureChanged(const QImage& picture);

private:
    void present();
    void show(const QImage& picture, double time, int generation);
    bool startSound();
    void stopSound();

    std::unique_ptr<PlaybackWorker> m_worker;
    std::unique_ptr<MixedSoundDevice> m_device;
    std::unique_ptr<QAudioSink> m_sink;
    bool m_soundWanted = true;
    QTimer m_presenter;
    QElapsedTimer m_elapsed;
    double m_anchor = 0; // where the clock stood when play started or the last seek landed
    double m_duration = 0;
    mutable double m_heard = 0; // seconds of sound heard since the output started; never less
    bool m_playing = false;
    int m_generation = 0;
    QImage m_picture;
};

} // namespace qm::media::player
