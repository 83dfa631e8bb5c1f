#include "platform/audio/pulse/PulseAudioStream.h"

#include "base/Log.h"

#include <cstring>
#include <pulse/context.h>
#include <pulse/error.h>
#include <pulse/introspect.h>
#include <pulse/stream.h>

namespace qm::platform {

namespace {

constexpr std::size_t kFrameBytes = sizeof(float) * kAudioChannels;
// Blocks of 10 ms: the server hands sound over soon after it was heard, so the stamps are
// tight, at the cost of a hundred wake-ups a second.
constexpr std::size_t kFragmentBytes = kFrameBytes * kAudioSampleRate / 100;

QString noMicrophone() {
    return QStringLiteral("No microphone is connected");
}

QString noOutput() {
    return QStringLiteral("No sound output is available to record");
}

MediaTime usecToMediaTime(pa_usec_t usec) {
    return std::chrono::duration_cast<MediaTime>(std::chrono::microseconds(usec));
}

} // namespace

void PulseAudioStream::StreamDeleter::operator()(pa_stream* stream) const {
    pa_stream_set_state_callback(stream, nullptr, nullptr);
    pa_stream_set_read_callback(stream, nullptr, nullptr);
    pa_stream_set_latency_update_callback(stream, nullptr, nullptr);
    pa_stream_disconnect(stream);
    pa_stream_unref(stream);
}

PulseAudioStream::PulseAudioStream(std::unique_ptr<PulseConnection> connection, AudioInput input)
    : m_connection(std::move(connection))
    , m_input(input) {}

PulseAudioStream::~PulseAudioStream() {
    stop();
}

Result<std::unique_ptr<AudioStream>> PulseAudioStream::open(AudioInput input) {
    auto connection = PulseConnection::connect();
    if (!connection)
        return connection.error();
    std::unique_ptr<PulseAudioStream> self(new PulseAudioStream(std::move(*connection), input));
    Status connected;
    {
        PulseConnection::Lock lock(*self->m_connection);
        self->m_connection->setOnLost(
            [s = self.get()] { s->endByItself(QStringLiteral("The sound server stopped")); });
        const auto device = self->findDevice();
        connected = device ? self->connectTo(*device) : Status(device.error());
    }
    if (!connected)
        return connected.error();
    return std::unique_ptr<AudioStream>(std::move(self));
}

Result<QByteArray> PulseAudioStream::findDevice() {
    pa_context* context = m_connection->context();
    struct Defaults {
        bool done = false;
        QByteArray sink, source;
    } defaults;
    const bool answered =
        m_connection->complete(pa_context_get_server_info(
                                   context,
                                   [](pa_context*, const pa_server_info* info, void* data) {
                                       auto* d = static_cast<Defaults*>(data);
                                       if (info) {
                                           d->sink = info->default_sink_name;
                                           d->source = info->default_source_name;
                                       }
                                       d->done = true;
                                   },
                                   &defaults),
                               [&] { return defaults.done; });
    if (!answered)
        return failure(QStringLiteral("The sound server did not answer"));

    struct Device {
        bool done = false;
        bool found = false;
        QByteArray monitor;     // a sink's monitor source
        bool isMonitor = false; // a source that only repeats an output
    } device;
    if (m_input == AudioInput::SystemOutput) {
        if (defaults.sink.isEmpty())
            return failure(noOutput());
        m_connection->complete(pa_context_get_sink_info_by_name(
                                   context, defaults.sink.constData(),
                                   [](pa_context*, const pa_sink_info* info, int eol, void* data) {
                                       auto* d = static_cast<Device*>(data);
                                       if (info) {
                                           d->found = true;
                                           d->monitor = info->monitor_source_name;
                                       }
                                       d->done = d->done || eol != 0;
                                   },
                                   &device),
                               [&] { return device.done; });
        if (!device.found || device.monitor.isEmpty())
            return failure(noOutput());
        return device.monitor;
    }

    if (defaults.source.isEmpty())
        return failure(noMicrophone());
    m_connection->complete(pa_context_get_source_info_by_name(
                               context, defaults.source.constData(),
                               [](pa_context*, const pa_source_info* info, int eol, void* data) {
                                   auto* d = static_cast<Device*>(data);
                                   if (info) {
                                       d->found = true;
                                       d->isMonitor = info->monitor_of_sink != PA_INVALID_INDEX;
                                   }
                                   d->done = d->done || eol != 0;
                               },
                               &device),
                           [&] { return device.done; });
    // Without a microphone the server makes an output's monitor the default input; recording
    // it would put the system sound on the voice track.
    if (!device.found || device.isMonitor)
        return failure(noMicrophone());
    return defaults.source;
}

Status PulseAudioStream::connectTo(const QByteArray& device) {
    const pa_sample_spec spec{PA_SAMPLE_FLOAT32LE, kAudioSampleRate, kAudioChannels};
    const bool microphone = m_input == AudioInput::Microphone;
    m_stream.reset(pa_stream_new(m_connection->context(),
                                 microphone ? "Microphone" : "System sound", &spec, nullptr));
    if (!m_stream)
        return failure(
            QStringLiteral("Could not record sound: %1")
                .arg(QString::fromUtf8(pa_strerror(pa_context_errno(m_connection->context())))));
    pa_stream_set_state_callback(m_stream.get(), &PulseAudioStream::onState, this);
    pa_stream_set_read_callback(m_stream.get(), &PulseAudioStream::onReadable, this);
    pa_stream_set_latency_update_callback(m_stream.get(), &PulseAudioStream::onTiming, this);

    pa_buffer_attr attr{};
    attr.maxlength = std::uint32_t(-1);
    attr.fragsize = std::uint32_t(kFragmentBytes);
    auto flags = pa_stream_flags_t(PA_STREAM_START_CORKED | PA_STREAM_ADJUST_LATENCY |
                                   PA_STREAM_INTERPOLATE_TIMING | PA_STREAM_AUTO_TIMING_UPDATE);
    // An unplugged microphone ends the stream instead of letting the server move it to
    // whatever input is left, which may be an output's monitor. The system sound may follow
    // the server to another output.
    if (microphone)
        flags = pa_stream_flags_t(flags | PA_STREAM_DONT_MOVE);
    const QString cannot = microphone ? QStringLiteral("Could not open the microphone: %1")
                                      : QStringLiteral("Could not record the system sound: %1");
    if (pa_stream_connect_record(m_stream.get(), device.constData(), &attr, flags) < 0)
        return failure(
            cannot.arg(QString::fromUtf8(pa_strerror(pa_context_errno(m_connection->context())))));
    const bool ready = m_connection->waitFor([&] {
        const pa_stream_state_t state = pa_stream_get_state(m_stream.get());
        return state == PA_STREAM_READY || state == PA_STREAM_FAILED ||
               state == PA_STREAM_TERMINATED;
    });
    if (!m_connection->alive())
        return failure(QStringLiteral("The sound server stopped"));
    if (!ready || pa_stream_get_state(m_stream.get()) != PA_STREAM_READY)
        return failure(
            cannot.arg(QString::fromUtf8(pa_strerror(pa_context_errno(m_connection->context())))));
    qCDebug(lcRecording).noquote()
        << QStringLiteral("Quillmark recording: recording sound from ") + QString::fromUtf8(device);
    return {};
}

Status PulseAudioStream::start(ChunkSink onChunk, StopSink onStopped) {
    const QString stopped = QStringLiteral("The sound recording has already stopped");
    if (!m_connection)
        return failure(stopped);
    PulseConnection::Lock lock(*m_connection);
    if (m_stopped)
        return failure(stopped);
    if (!m_endReason.isEmpty())
        return failure(m_endReason);
    if (m_started)
        return failure(QStringLiteral("The sound recording is already running"));
    m_onChunk = std::move(onChunk);
    m_onStopped = std::move(onStopped);
    m_started = true;

    struct Done {
        bool done = false;
        bool ok = false;
    } uncorked;
    const auto signal = [](pa_stream*, int success, void* data) {
        auto* d = static_cast<Done*>(data);
        d->ok = success != 0;
        d->done = true;
    };
    const bool answered = m_connection->complete(
        pa_stream_cork(m_stream.get(), 0, signal, &uncorked), [&] { return uncorked.done; });
    if (!answered || !uncorked.ok) {
        m_started = false;
        return failure(m_endReason.isEmpty() ? QStringLiteral("The sound server did not start the "
                                                              "recording")
                                             : m_endReason);
    }
    return {};
}

void PulseAudioStream::stop() {
    if (!m_connection)
        return;
    if (m_connection->inEventThread()) {
        // From a callback: the event thread cannot end itself. Go quiet; the owner's stop()
        // or destructor on another thread finishes the job.
        m_stopped = true;
        return;
    }
    {
        PulseConnection::Lock lock(*m_connection);
        m_stopped = true;
    }
    m_connection->stopEventThread();
    m_stream.reset();
    m_connection.reset();
    m_onChunk = nullptr;
    m_onStopped = nullptr;
}

void PulseAudioStream::onState(pa_stream* stream, void* self) {
    auto* s = static_cast<PulseAudioStream*>(self);
    s->m_connection->wake();
    if (pa_stream_get_state(stream) == PA_STREAM_FAILED)
        s->endByItself(s->m_connection->alive() ? s->lostDeviceReason()
                                                : QStringLiteral("The sound server stopped"));
}

QString PulseAudioStream::lostDeviceReason() const {
    return m_input == AudioInput::Microphone
               ? QStringLiteral("The microphone was disconnected")
               : QStringLiteral("The sound output being recorded went away");
}

void PulseAudioStream::endByItself(const QString& reason) {
    if (!m_endReason.isEmpty() || m_stopped)
        return;
    m_endReason = reason;
    qCInfo(lcRecording).noquote() << QStringLiteral("Quillmark recording: sound stream ended: ") +
                                         reason;
    if (m_started && m_onStopped)
        m_onStopped(reason);
}

void PulseAudioStream::onReadable(pa_stream*, size_t, void* self) {
    static_cast<PulseAudioStream*>(self)->readAvailable();
}

void PulseAudioStream::onFreshTiming(pa_stream*, int, void* self) {
    auto* s = static_cast<PulseAudioStream*>(self);
    s->m_timingFresh = true;
    s->readAvailable();
}

void PulseAudioStream::onTiming(pa_stream*, void* self) {
    static_cast<PulseAudioStream*>(self)->readAvailable();
}

void PulseAudioStream::readAvailable() {
    if (!m_started || m_stopped || !m_endReason.isEmpty())
        return;
    pa_stream* stream = m_stream.get();
    if (!m_stamped && !m_timingFresh) {
        // The server's timing from before any sound flowed can be far off: an output that
        // had rendered seconds ahead for a client that asked for long buffers reports that
        // lead until its next report. So the first block waits for a report asked for once
        // sound arrives, and is placed by it.
        if (pa_stream_readable_size(stream) == 0 || m_timingAsked)
            return;
        m_timingAsked = true;
        if (pa_operation* op =
                pa_stream_update_timing_info(stream, &PulseAudioStream::onFreshTiming, this))
            pa_operation_unref(op);
        else
            m_timingFresh = true;
        if (!m_timingFresh)
            return;
    }
    for (;;) {
        // The latency is how long ago the next block to read was heard, measured before the
        // peek so it belongs to that block. A monitor's is negative while the output still
        // holds the sound it has already handed to its monitor.
        pa_usec_t latency = 0;
        int negative = 0;
        const bool timed = pa_stream_get_latency(stream, &latency, &negative) == 0;
        // The first block waits for the server's timing so it is placed exactly; later ones
        // follow the sample count when the timing is briefly unknown.
        if (!timed && !m_stamped)
            return;
        const void* data = nullptr;
        size_t bytes = 0;
        if (pa_stream_peek(stream, &data, &bytes) < 0 || bytes == 0)
            return;
        const MediaTime now = mediaClockNow();
        const MediaTime held =
            timed ? (negative ? -usecToMediaTime(latency) : usecToMediaTime(latency))
                  : usecToMediaTime(pa_bytes_to_usec(pa_stream_readable_size(stream),
                                                     pa_stream_get_sample_spec(stream)));
        const int frames = int(bytes / kFrameBytes);
        const auto* samples = static_cast<const float*>(data);
        if (frames > 0 && (!data || reinterpret_cast<std::uintptr_t>(data) % alignof(float) != 0)) {
            // A hole the server reports (sound it never had) becomes silence of its length.
            m_scratch.assign(std::size_t(frames) * kAudioChannels, 0.0f);
            if (data)
                std::memcpy(m_scratch.data(), data, std::size_t(frames) * kFrameBytes);
            samples = m_scratch.data();
        }
        if (frames > 0) {
            const AudioChunk chunk{samples, frames, m_clock.stamp(now - held, frames)};
            m_stamped = true;
            m_onChunk(chunk);
        }
        pa_stream_drop(stream);
        // The sink may have stopped the stream from inside its callback.
        if (m_stopped)
            return;
    }
}

} // namespace qm::platform
