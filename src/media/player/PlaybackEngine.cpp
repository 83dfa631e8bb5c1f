#include "media/player/PlaybackEngine.h"

#include "media/player/AudioMixer.h"
#include "media/player/PlaybackWorker.h"

#include <QAudioDevice>
#include <QAudioFormat>
#include <QAudioSink>
#include <QIODevice>
#include <QMediaDevices>
#include <QMetaObject>
#include <QPointer>

namespace qm::media::player {

// What the audio output pulls: the worker's mixed sound, silence where it has none yet.
class MixedSoundDevice : public QIODevice {
public:
    explicit MixedSoundDevice(PlaybackWorker& worker)
        : m_worker(worker) {
        open(QIODevice::ReadOnly);
    }
    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override { return 4096 + QIODevice::bytesAvailable(); }

protected:
    qint64 readData(char* data, qint64 maxSize) override {
        const auto samples = static_cast<std::size_t>(maxSize) / sizeof(float);
        m_worker.readSound(reinterpret_cast<float*>(data), samples);
        return static_cast<qint64>(samples * sizeof(float));
    }
    qint64 writeData(const char*, qint64) override { return -1; }

private:
    PlaybackWorker& m_worker;
};

PlaybackEngine::PlaybackEngine(const QString& path, bool sound, QObject* parent)
    : QObject(parent)
    , m_soundWanted(sound) {
    QPointer<PlaybackEngine> self(this);
    m_worker =
        std::make_unique<PlaybackWorker>(path, sound, [self](VideoFrame frame, int generation) {
            if (!self)
                return;
            QMetaObject::invokeMethod(
                self.data(), [self, image = std::move(frame.image), time = frame.time, generation] {
                    if (self)
                        self->show(image, time, generation);
                });
        });
    m_duration = m_worker->duration();
    m_device = std::make_unique<MixedSoundDevice>(*m_worker);
    // Often enough that a 30 fps picture is never more than a few milliseconds late.
    m_presenter.setInterval(5);
    m_presenter.setTimerType(Qt::PreciseTimer);
    connect(&m_presenter, &QTimer::timeout, this, &PlaybackEngine::present);
    m_generation = m_worker->seek(0);
}

PlaybackEngine::~PlaybackEngine() {
    stopSound();
    m_worker.reset(); // joins the thread before the device it reads into goes
}

void PlaybackEngine::play() {
    if (m_playing)
        return;
    m_playing = true;
    m_worker->setPlaying(true);
    if (!startSound())
        m_elapsed.start();
    m_presenter.start();
}

void PlaybackEngine::pause() {
    if (!m_playing)
        return;
    m_anchor = position();
    m_playing = false;
    m_presenter.stop();
    stopSound();
    m_elapsed.invalidate();
    m_worker->setPlaying(false);
    // Decoding went on ahead of the clock: bring the worker back to the picture on screen.
    m_generation = m_worker->seek(m_anchor);
}

void PlaybackEngine::seek(double seconds) {
    m_anchor = std::clamp(seconds, 0.0, std::max(m_duration, 0.0));
    m_generation = m_worker->seek(m_anchor);
    if (m_playing) {
        // The clock starts again from the new place, with the sound that belongs there.
        stopSound();
        if (!startSound())
            m_elapsed.start();
    }
}

double PlaybackEngine::position() const {
    double t = m_anchor;
    if (m_playing && m_sink) {
        // What the output has taken, less what still waits in its buffer: what was heard.
        const double bytesPerSecond = double(kMixRate) * kMixChannels * sizeof(float);
        const double waiting = (m_sink->bufferSize() - m_sink->bytesFree()) / bytesPerSecond;
        m_heard = std::max(m_heard, m_sink->processedUSecs() / 1e6 - waiting);
        t += m_heard;
    } else if (m_playing && m_elapsed.isValid())
        t += m_elapsed.nsecsElapsed() / 1e9;
    return m_duration > 0 ? std::min(t, m_duration) : t;
}

bool PlaybackEngine::isSounding() const {
    return m_sink != nullptr;
}

void PlaybackEngine::present() {
    if (auto frame = m_worker->takeDue(position())) {
        m_picture = std::move(frame->image);
        Q_EMIT pictureChanged(m_picture);
    }
}

void PlaybackEngine::show(const QImage& picture, double, int generation) {
    if (generation != m_generation)
        return; // a later seek is on its way
    m_picture = picture;
    Q_EMIT pictureChanged(m_picture);
}

bool PlaybackEngine::startSound() {
    if (!m_soundWanted || !m_worker->hasSound())
        return false;
    const QAudioDevice output = QMediaDevices::defaultAudioOutput();
    QAudioFormat format;
    format.setSampleRate(kMixRate);
    format.setChannelCount(kMixChannels);
    format.setSampleFormat(QAudioFormat::Float);
    if (output.isNull() || !output.isFormatSupported(format))
        return false;
    m_sink = std::make_unique<QAudioSink>(output, format);
    m_heard = 0;
    m_sink->start(m_device.get());
    if (m_sink->error() != QAudio::NoError) {
        m_sink.reset();
        return false;
    }
    return true;
}

void PlaybackEngine::stopSound() {
    if (!m_sink)
        return;
    m_sink->stop();
    m_sink.reset();
}

} // namespace qm::media::player
