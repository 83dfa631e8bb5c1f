#include "TestSupport.h"
#include "platform/audio/pulse/PulseAudioCaptureBackend.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <cmath>
#include <gtest/gtest.h>
#include <mutex>
#include <pulse/simple.h>
#include <vector>

using namespace qm;
using namespace qm::platform;
using namespace qm::test;
using namespace std::chrono_literals;

namespace {

#define NEEDS_SOUND_SERVER()                                                                       \
    if (run(QStringLiteral("pactl"), {QStringLiteral("info")}).exitCode != 0)                      \
    GTEST_SKIP() << "needs the test sound server (run under scripts/test-services.sh)"

MediaTime framesToTime(qint64 frames) {
    return MediaTime(frames * 1'000'000'000 / kAudioSampleRate);
}

// Sets an environment variable for one test.
class EnvOverride {
public:
    EnvOverride(const char* name, const QByteArray& value)
        : m_name(name)
        , m_old(qgetenv(name)) {
        qputenv(name, value);
    }
    ~EnvOverride() { m_old.isEmpty() ? qunsetenv(m_name) : qputenv(m_name, m_old); }

private:
    const char* m_name;
    QByteArray m_old;
};

// Everything one stream delivered, gathered from the backend's thread.
class Recording {
public:
    struct Block {
        MediaTime pts;
        MediaTime arrived;
        int frames;
        qint64 firstFrame;
    };
    struct Heard {
        std::vector<Block> blocks;
        std::vector<float> samples;
        int stops = 0;
        QString reason;
        qint64 frames() const { return qint64(samples.size()) / kAudioChannels; }
        // The loudest sample of one channel from `fromFrame` on.
        float peak(int channel, qint64 fromFrame) const {
            float peak = 0;
            for (auto i = std::size_t(fromFrame * kAudioChannels + channel); i < samples.size();
                 i += kAudioChannels)
                peak = std::max(peak, std::abs(samples[i]));
            return peak;
        }
        // When the first sample louder than `threshold` was heard, on the media clock.
        std::optional<MediaTime> onset(float threshold) const {
            for (const Block& block : blocks)
                for (int f = 0; f < block.frames; ++f)
                    if (std::abs(samples[std::size_t((block.firstFrame + f) * kAudioChannels)]) >
                        threshold)
                        return block.pts + framesToTime(f);
            return std::nullopt;
        }
    };

    static std::unique_ptr<Recording> of(AudioInput input) {
        auto stream = PulseAudioCaptureBackend().open(input);
        if (!stream) {
            ADD_FAILURE() << "could not open: " << stream.error().reason.toStdString();
            return nullptr;
        }
        std::unique_ptr<Recording> self(new Recording(std::move(*stream)));
        const Status started = self->m_stream->start(
            [s = self.get()](const AudioChunk& chunk) {
                std::lock_guard lock(s->m_mutex);
                s->m_heard.blocks.push_back(
                    {chunk.pts, mediaClockNow(), chunk.frames, s->m_heard.frames()});
                s->m_heard.samples.insert(s->m_heard.samples.end(), chunk.samples,
                                          chunk.samples + chunk.frames * kAudioChannels);
            },
            [s = self.get()](const QString& reason) {
                std::lock_guard lock(s->m_mutex);
                ++s->m_heard.stops;
                s->m_heard.reason = reason;
            });
        EXPECT_TRUE(started) << (started ? "" : started.error().reason.toStdString());
        return self;
    }

    AudioStream& stream() { return *m_stream; }
    Heard heard() const {
        std::lock_guard lock(m_mutex);
        return m_heard;
    }
    bool waitForFrames(qint64 count) const {
        return waitUntil([&] { return heard().frames() >= count; });
    }
    bool waitForMore(qint64 frames) const { return waitForFrames(heard().frames() + frames); }

private:
    explicit Recording(std::unique_ptr<AudioStream> stream)
        : m_stream(std::move(stream)) {}
    std::unique_ptr<AudioStream> m_stream;
    mutable std::mutex m_mutex;
    Heard m_heard;
};

// Plays a sound into a sink after a fifth of a second of silence (so the playback runs
// steadily) and returns when the server says its first sample was heard.
MediaTime play(const char* sink, const std::vector<float>& sound) {
    const pa_sample_spec spec{PA_SAMPLE_FLOAT32LE, kAudioSampleRate, kAudioChannels};
    const auto none = std::uint32_t(-1);
    const pa_buffer_attr attr{none, std::uint32_t(kAudioSampleRate / 50 * 8), none, none, none};
    int error = 0;
    std::unique_ptr<pa_simple, decltype(&pa_simple_free)> player(
        pa_simple_new(nullptr, "quillmark-test", PA_STREAM_PLAYBACK, sink, "sound", &spec, nullptr,
                      &attr, &error),
        &pa_simple_free);
    if (!player) {
        ADD_FAILURE() << "cannot play into " << sink;
        return {};
    }
    const std::vector<float> silence(kAudioSampleRate / 5 * kAudioChannels, 0.0f);
    pa_simple_write(player.get(), silence.data(), silence.size() * sizeof(float), &error);
    // The write returns once the silence is queued, and the latency is how long until the
    // queue has played: the sound that follows is heard then.
    const MediaTime heard =
        mediaClockNow() + std::chrono::microseconds(pa_simple_get_latency(player.get(), &error));
    pa_simple_write(player.get(), sound.data(), sound.size() * sizeof(float), &error);
    pa_simple_write(player.get(), silence.data(), silence.size() * sizeof(float), &error);
    pa_simple_drain(player.get(), &error);
    return heard;
}

// A 440 Hz tone on the left channel only.
std::vector<float> leftTone() {
    std::vector<float> tone;
    for (int i = 0; i < kAudioSampleRate * 3 / 10; ++i)
        tone.insert(tone.end(), {0.5f * float(std::sin(2 * M_PI * 440 * i / kAudioSampleRate)), 0});
    return tone;
}

constexpr float kLoud = 0.2f;
constexpr float kSilent = 0.01f;

// What plays on the default output is the system sound and never the microphone; what the
// microphone hears is never the system sound. Both are stereo, left before right.
TEST(PulseAudioCaptureTest, SystemSoundAndMicrophoneAreKeptApart) {
    NEEDS_SOUND_SERVER();
    auto system = Recording::of(AudioInput::SystemOutput);
    auto microphone = Recording::of(AudioInput::Microphone);
    ASSERT_TRUE(system && microphone);
    ASSERT_TRUE(system->waitForFrames(1) && microphone->waitForFrames(1));

    for (const auto& [sink, hearing, deaf] :
         {std::tuple{"ci_sink", system.get(), microphone.get()},
          std::tuple{"ci_voice", microphone.get(), system.get()}}) {
        const qint64 hearingFrom = hearing->heard().frames();
        const qint64 deafFrom = deaf->heard().frames();
        play(sink, leftTone());
        EXPECT_TRUE(waitUntil([&] { return hearing->heard().peak(0, hearingFrom) > kLoud; }))
            << "nothing heard from " << sink;
        ASSERT_TRUE(deaf->waitForMore(kAudioSampleRate / 10));
        EXPECT_LT(hearing->heard().peak(1, hearingFrom), kSilent) << "right channel of " << sink;
        EXPECT_LT(deaf->heard().peak(0, deafFrom), kSilent) << sink << " heard on the other input";
    }

    system->stream().stop();
    system->stream().stop();
    EXPECT_EQ(system->heard().stops, 0) << "stop() is not a stream ending by itself";
}

// Over two seconds each block starts where the last one ended, the sample count keeps pace
// with the media clock (a stream at another rate would not), and every block is stamped close
// to when it arrived.
TEST(PulseAudioCaptureTest, StampsAdvanceWithTheSamples) {
    NEEDS_SOUND_SERVER();
    auto system = Recording::of(AudioInput::SystemOutput);
    ASSERT_TRUE(system && system->waitForFrames(2 * kAudioSampleRate));
    system->stream().stop();

    const auto blocks = system->heard().blocks;
    ASSERT_GT(blocks.size(), 20u);
    for (std::size_t i = 1; i < blocks.size(); ++i) {
        const MediaTime end = blocks[i - 1].pts + framesToTime(blocks[i - 1].frames);
        EXPECT_LT(std::chrono::abs(blocks[i].pts - end), 1ms) << "block " << i;
        // A monitor may hand sound over a little before its output plays it, so a stamp can
        // lie just after the arrival.
        EXPECT_LT(std::chrono::abs(blocks[i].arrived - blocks[i].pts), 100ms) << "block " << i;
    }
    const MediaTime counted = framesToTime(blocks.back().firstFrame);
    EXPECT_LT(std::chrono::abs(blocks.back().pts - blocks.front().pts - counted), 3ms);
    // Arrivals jitter with the server's wake-ups, hence the looser bound; a stream at 44.1 kHz
    // would be 170 ms off.
    const MediaTime arrived = blocks.back().arrived - blocks.front().arrived;
    EXPECT_LT(std::chrono::abs(arrived - counted), 40ms);
}

// Records from a fresh stream, plays a click and expects it stamped within 30 ms of when the
// server played it.
void expectClickStampedWhenPlayed(AudioInput input, const char* sink) {
    const std::vector<float> click(kAudioSampleRate / 100 * kAudioChannels, 0.8f);
    auto recording = Recording::of(input);
    ASSERT_TRUE(recording && recording->waitForFrames(kAudioSampleRate / 10));
    const MediaTime played = play(sink, click);
    ASSERT_TRUE(waitUntil([&] { return recording->heard().onset(0.5f).has_value(); }));
    const MediaTime offBy = *recording->heard().onset(0.5f) - played;
    EXPECT_LT(std::chrono::abs(offBy), 30ms)
        << sink << ": stamped " << std::chrono::duration<double, std::milli>(offBy).count()
        << " ms after it was played";
}

// On either input, a few times over: each time a fresh stream, whose first stamp is the hard
// one.
TEST(PulseAudioCaptureTest, ASoundIsStampedWhenItWasHeard) {
    NEEDS_SOUND_SERVER();
    for (int attempt = 0; attempt < 3; ++attempt) {
        expectClickStampedWhenPlayed(AudioInput::SystemOutput, "ci_sink");
        expectClickStampedWhenPlayed(AudioInput::Microphone, "ci_voice");
    }
}

// With only outputs, the server makes an output's monitor the default input: that is no
// microphone, and the system sound still records.
TEST(PulseAudioCaptureTest, AMonitorIsNoMicrophone) {
    NEEDS_SOUND_SERVER();
    const auto setDefaultSource = [](const char* name) {
        return run(QStringLiteral("pactl"),
                   {QStringLiteral("set-default-source"), QString::fromLatin1(name)})
                   .exitCode == 0;
    };
    ASSERT_TRUE(setDefaultSource("ci_sink.monitor"));
    PulseAudioCaptureBackend backend;
    const auto microphone = backend.open(AudioInput::Microphone);
    const bool systemOpens = backend.open(AudioInput::SystemOutput).ok();
    ASSERT_TRUE(setDefaultSource("ci_mic"));
    ASSERT_FALSE(microphone);
    EXPECT_EQ(microphone.error().reason, QStringLiteral("No microphone is connected"));
    EXPECT_TRUE(systemOpens);
}

// A sound server of the test's own, which it may take away.
class PrivateSoundServer {
public:
    PrivateSoundServer() {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_dir.path());
        env.remove(QStringLiteral("PULSE_SERVER"));
        // Off the session bus, where the shared test server holds the sound server's name.
        env.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
        m_server.setProcessEnvironment(env);
        m_server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_server.start(QStringLiteral("pulseaudio"),
                       {QStringLiteral("-n"), QStringLiteral("--daemonize=no"),
                        QStringLiteral("--exit-idle-time=-1"), QStringLiteral("--use-pid-file=no"),
                        QStringLiteral("--log-level=0"), QStringLiteral("-L"),
                        QStringLiteral("module-native-protocol-unix socket=") + socket(),
                        QStringLiteral("-L"), QStringLiteral("module-null-sink sink_name=out"),
                        QStringLiteral("-L"), QStringLiteral("module-null-sink sink_name=voice")});
    }
    ~PrivateSoundServer() { kill(); }
    PrivateSoundServer(const PrivateSoundServer&) = delete;
    PrivateSoundServer& operator=(const PrivateSoundServer&) = delete;

    QByteArray address() const { return "unix:" + socket().toUtf8(); }
    bool ready() {
        return m_server.waitForStarted() &&
               waitUntil([&] { return pactl({"info"}).exitCode == 0; });
    }
    ProcessResult pactl(std::initializer_list<const char*> args) const {
        QStringList list{QStringLiteral("--server=") + QString::fromUtf8(address())};
        for (const char* arg : args)
            list << QString::fromUtf8(arg);
        return run(QStringLiteral("pactl"), list);
    }
    void kill() {
        m_server.kill();
        m_server.waitForFinished();
    }

private:
    QString socket() const { return m_dir.filePath(QStringLiteral("native")); }
    QTemporaryDir m_dir;
    QProcess m_server;
};

// Unplugging the microphone ends its stream and leaves the system sound running; the server
// going away ends that one. Each says why, once, and stopping afterwards (twice) is fine.
TEST(PulseAudioCaptureTest, AStreamThatEndsByItselfSaysSoOnce) {
    if (QStandardPaths::findExecutable(QStringLiteral("pulseaudio")).isEmpty())
        GTEST_SKIP() << "needs the pulseaudio program to start a private sound server";
    PrivateSoundServer server;
    ASSERT_TRUE(server.ready());
    const ProcessResult microphoneModule = server.pactl(
        {"load-module", "module-remap-source", "master=voice.monitor", "source_name=mic"});
    ASSERT_EQ(microphoneModule.exitCode, 0);
    ASSERT_EQ(server.pactl({"set-default-source", "mic"}).exitCode, 0);
    EnvOverride privateServer("PULSE_SERVER", server.address());

    auto system = Recording::of(AudioInput::SystemOutput);
    auto microphone = Recording::of(AudioInput::Microphone);
    ASSERT_TRUE(system && microphone);
    ASSERT_TRUE(system->waitForFrames(1) && microphone->waitForFrames(1));

    ASSERT_EQ(server.pactl({"unload-module", microphoneModule.out.trimmed().constData()}).exitCode,
              0);
    ASSERT_TRUE(waitUntil([&] { return microphone->heard().stops > 0; }));
    EXPECT_EQ(microphone->heard().reason, QStringLiteral("The microphone was disconnected"));
    EXPECT_TRUE(system->waitForMore(kAudioSampleRate / 10)) << "the system sound goes on";
    EXPECT_EQ(system->heard().stops, 0);

    server.kill();
    ASSERT_TRUE(waitUntil([&] { return system->heard().stops > 0; }));
    EXPECT_EQ(system->heard().reason, QStringLiteral("The sound server stopped"));
    for (Recording* recording : {system.get(), microphone.get()}) {
        recording->stream().stop();
        recording->stream().stop();
        EXPECT_EQ(recording->heard().stops, 1);
    }
}

// An output nobody listened to has rendered seconds ahead, and the server's first report of
// its timing still says so; the first sound recorded from it is placed where it was heard
// all the same.
TEST(PulseAudioCaptureTest, TheFirstSoundFromAnIdleOutputIsPlacedRight) {
    if (QStandardPaths::findExecutable(QStringLiteral("pulseaudio")).isEmpty())
        GTEST_SKIP() << "needs the pulseaudio program to start a private sound server";
    PrivateSoundServer server;
    ASSERT_TRUE(server.ready());
    EnvOverride privateServer("PULSE_SERVER", server.address());
    expectClickStampedWhenPlayed(AudioInput::SystemOutput, "out");
}

TEST(PulseAudioCaptureTest, WithoutASoundServerOpeningSaysWhy) {
    EnvOverride nowhere("PULSE_SERVER", "unix:/nonexistent/quillmark-no-server");
    for (const AudioInput input : {AudioInput::SystemOutput, AudioInput::Microphone}) {
        const auto stream = PulseAudioCaptureBackend().open(input);
        ASSERT_FALSE(stream);
        EXPECT_EQ(stream.error().reason, QStringLiteral("No sound server is running"));
    }
}

} // namespace
