// The recorder with the real screen stream of an Xvfb desktop and the real sound server of the
// test session (scripts/test-services.sh: the default output ci_sink, and a microphone ci_mic
// that hears whatever is played into ci_voice), read back with ffprobe and ffmpeg.
#include "recorder/core/ScreenRecorder.h"

#include "MovieProbe.h"
#include "ScratchMount.h"
#include "TestSupport.h"
#include "X11TestDesktop.h"
#include "base/MediaClock.h"
#include "platform/audio/pulse/PulseAudioCaptureBackend.h"
#include "platform/video/x11/X11ScreenVideoBackend.h"
#include "recorder/core/RecordingFiles.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QProcess>
#include <QScreen>
#include <QTemporaryDir>
#include <atomic>
#include <cmath>
#include <gtest/gtest.h>
#include <iostream>
#include <pulse/simple.h>
#include <thread>

using namespace qm;
using namespace qm::recorder;

namespace {

bool soundServer() {
    return test::run(QStringLiteral("pactl"), {QStringLiteral("info")}).exitCode == 0;
}

// A second of a 1 kHz tone as a WAV file, played into a sink with paplay.
QString tone(const QTemporaryDir& dir, double seconds = 1.0) {
    const QString path = dir.filePath(QStringLiteral("tone-%1.wav").arg(seconds));
    if (!QFile::exists(path))
        test::run(QStringLiteral("ffmpeg"),
                  {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-f"),
                   QStringLiteral("lavfi"), QStringLiteral("-i"),
                   QStringLiteral("sine=frequency=1000:duration=%1").arg(seconds),
                   QStringLiteral("-ac"), QStringLiteral("2"), QStringLiteral("-ar"),
                   QStringLiteral("48000"), path});
    return path;
}

void play(const QString& wav, const QString& sink) {
    test::run(QStringLiteral("paplay"), {QStringLiteral("-d"), sink, wav});
}

class ScreenRecorderTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    platform::X11ScreenVideoBackend video;
    platform::PulseAudioCaptureBackend audio;
    ScreenRecorder recorder{video, audio};
    int unexpectedStops = 0;
    QString stopReason;

    void SetUp() override {
        recorder.onStoppedUnexpectedly = [this](const QString& reason) {
            ++unexpectedStops;
            stopReason = reason;
        };
    }

    QString path(const QString& name) const { return dir.filePath(name); }

    // Waits until the screen stream has delivered `frames` more pictures.
    bool waitForFrames(std::uint64_t frames) {
        const std::uint64_t until = recorder.stats().framesSeen + frames;
        return test::waitUntil([&] { return recorder.stats().framesSeen >= until; });
    }

    Result<RecordedMovie> stop() {
        std::optional<Result<RecordedMovie>> result;
        recorder.stop([&](Result<RecordedMovie> movie) { result = std::move(movie); });
        EXPECT_TRUE(test::waitUntil([&] { return result.has_value(); }));
        return result.value_or(failure(QStringLiteral("no answer")));
    }

    // Finishes the recording as the program does: a normal movie in a save folder.
    QString finished(const Result<RecordedMovie>& movie) {
        if (!movie.ok())
            return {};
        const auto delivered = deliverRecording(movie->path, path(QStringLiteral("Saved")));
        return delivered.ok() ? delivered->path : QString();
    }
};

TEST_F(ScreenRecorderTest,
       TheMovieHoldsHighProfileVideoAtAnEvenSizeAndTheSoundOfEachInputOnItsOwnTrack) {
    if (!soundServer())
        GTEST_SKIP() << "no sound server in this session (run under scripts/test-services.sh)";
    RecordingConfig config{QRect(40, 30, 1001, 601), true, true};
    auto started = recorder.start(config, path(QStringLiteral("system.partial.mov")));
    ASSERT_TRUE(started.ok()) << started.error().reason.toStdString();
    EXPECT_EQ(started->size, QSize(1000, 600));
    EXPECT_TRUE(started->systemAudio && started->microphone);
    ASSERT_TRUE(waitForFrames(5));
    play(tone(dir), QStringLiteral("ci_sink")); // what the computer plays
    const QString systemMovie = finished(stop());
    ASSERT_FALSE(systemMovie.isEmpty());

    const auto probed = test::probeMovie(systemMovie);
    ASSERT_TRUE(probed.has_value());
    ASSERT_EQ(probed->of(QStringLiteral("video")).size(), 1u);
    const test::ProbedStream picture = probed->of(QStringLiteral("video")).front();
    EXPECT_EQ(picture.codec, QStringLiteral("h264"));
    EXPECT_EQ(picture.profile, QStringLiteral("High"));
    EXPECT_EQ(picture.pixelFormat, QStringLiteral("yuv420p"));
    EXPECT_EQ(QSize(picture.width, picture.height), QSize(1000, 600));
    const auto sound = probed->of(QStringLiteral("audio"));
    ASSERT_EQ(sound.size(), 2u);
    for (const test::ProbedStream& track : sound) {
        EXPECT_EQ(track.codec, QStringLiteral("aac"));
        EXPECT_EQ(track.sampleRate, 48000);
        EXPECT_EQ(track.channels, 2);
    }
    EXPECT_TRUE(test::indexAtFront(systemMovie));
    EXPECT_GT(test::audioLevel(systemMovie, 0), -30.0) << "the tone belongs on the system track";
    EXPECT_LT(test::audioLevel(systemMovie, 1), -60.0) << "and not on the microphone's";

    ASSERT_TRUE(recorder.start(config, path(QStringLiteral("voice.partial.mov"))).ok());
    ASSERT_TRUE(waitForFrames(5));
    play(tone(dir), QStringLiteral("ci_voice")); // what the microphone hears
    const QString voiceMovie = finished(stop());
    ASSERT_FALSE(voiceMovie.isEmpty());
    EXPECT_LT(test::audioLevel(voiceMovie, 0), -60.0);
    EXPECT_GT(test::audioLevel(voiceMovie, 1), -30.0);
    EXPECT_EQ(unexpectedStops, 0);
}

TEST_F(ScreenRecorderTest, PausesAreCutOutWithoutAHoleAndAddUp) {
    RecordingConfig config{QRect(0, 0, 640, 480), soundServer(), false};
    QElapsedTimer wall;
    wall.start();
    ASSERT_TRUE(recorder.start(config, path(QStringLiteral("paused.partial.mov"))).ok());
    ASSERT_TRUE(waitForFrames(15));
    recorder.setPaused(true);
    ASSERT_TRUE(waitForFrames(45)); // 1.5 s paused
    recorder.setPaused(false);
    ASSERT_TRUE(waitForFrames(15));
    recorder.setPaused(true);
    recorder.setPaused(true);       // a repeated press changes nothing
    ASSERT_TRUE(waitForFrames(30)); // 1 s paused
    recorder.setPaused(false);
    ASSERT_TRUE(waitForFrames(15));
    const auto movie = stop();
    const double wallSeconds = wall.elapsed() / 1000.0;
    ASSERT_TRUE(movie.ok()) << movie.error().reason.toStdString();
    const QString saved = finished(movie);

    const auto probed = test::probeMovie(saved);
    ASSERT_TRUE(probed.has_value());
    // About 2.5 s of pauses out of the wall-clock time; the start-up before the first frame
    // is not in the movie either.
    EXPECT_NEAR(probed->duration, wallSeconds - 2.5, 0.6);
    EXPECT_NEAR(probed->duration, 1.5, 0.5);
    const std::vector<double> times = test::videoFrameTimes(saved);
    ASSERT_GT(times.size(), 30u);
    EXPECT_NEAR(times.front(), 0.0, 0.001) << "the movie starts at its first frame";
    double widest = 0;
    for (size_t i = 1; i < times.size(); ++i)
        widest = std::max(widest, times[i] - times[i - 1]);
    EXPECT_LT(widest, 0.1) << "a pause must not leave a gap";
}

// Plays a beep into a sink after a fifth of a second of silence (so the playback runs
// steadily), and says on `heardAt` when the server will play its first sample.
void beep(const char* sink, std::atomic<std::int64_t>& heardAt) {
    const pa_sample_spec spec{PA_SAMPLE_FLOAT32LE, 48000, 2};
    const auto none = std::uint32_t(-1);
    const pa_buffer_attr attr{none, std::uint32_t(48000 / 50 * 8), none, none, none};
    int error = 0;
    std::unique_ptr<pa_simple, decltype(&pa_simple_free)> player(
        pa_simple_new(nullptr, "quillmark-test", PA_STREAM_PLAYBACK, sink, "beep", &spec, nullptr,
                      &attr, &error),
        &pa_simple_free);
    if (!player)
        return;
    const std::vector<float> silence(48000 / 5 * 2, 0.0f);
    std::vector<float> sound;
    for (int i = 0; i < 48000 / 5; ++i) {
        const float v = 0.5f * float(std::sin(2 * M_PI * 1000 * i / 48000));
        sound.insert(sound.end(), {v, v});
    }
    pa_simple_write(player.get(), silence.data(), silence.size() * sizeof(float), &error);
    // The write returns once the silence is queued; the latency is how long until it has
    // played, and the beep that follows is heard then.
    heardAt =
        (mediaClockNow() + std::chrono::microseconds(pa_simple_get_latency(player.get(), &error)))
            .count();
    pa_simple_write(player.get(), sound.data(), sound.size() * sizeof(float), &error);
    pa_simple_write(player.get(), silence.data(), silence.size() * sizeof(float), &error);
    pa_simple_drain(player.get(), &error);
}

TEST_F(ScreenRecorderTest, SoundAndPictureStayInStep) {
    if (!soundServer())
        GTEST_SKIP() << "no sound server in this session";
    // A white window, painted beforehand beside the recorded area and moved into it at the
    // moment the beep is heard: the server moves its pixels at once.
    test::ColourWindow flash(Qt::white);
    flash.setFlags(Qt::FramelessWindowHint | Qt::X11BypassWindowManagerHint);
    flash.setGeometry(400, 300, 320, 240);
    flash.show();
    ASSERT_TRUE(test::waitUntil([&] { return flash.isExposed(); }));
    for (int i = 0; i < 5; ++i)
        QCoreApplication::processEvents();

    RecordingConfig config{QRect(0, 0, 320, 240), true, false};
    ASSERT_TRUE(recorder.start(config, path(QStringLiteral("sync.partial.mov"))).ok());
    ASSERT_TRUE(waitForFrames(20));
    std::atomic<std::int64_t> heardAt{0};
    std::thread player([&] { beep("ci_sink", heardAt); });
    ASSERT_TRUE(test::waitUntil([&] { return heardAt.load() != 0; }));
    while (mediaClockNow().count() < heardAt.load())
        QCoreApplication::processEvents(); // a precise moment, not a pause
    flash.setPosition(0, 0);
    QCoreApplication::processEvents();
    player.join();
    ASSERT_TRUE(waitForFrames(10));
    const QString saved = finished(stop());
    ASSERT_FALSE(saved.isEmpty());

    const auto seen = test::brightOnset(saved);
    const auto heard = test::soundOnset(saved, 0);
    ASSERT_TRUE(seen && heard);
    std::cout << "the beep starts at " << *heard << " s, the flash at " << *seen << " s\n";
    EXPECT_LT(std::abs(*seen - *heard), 0.040)
        << "flash at " << *seen << " s, beep at " << *heard << " s";
}

TEST_F(ScreenRecorderTest, AFullDiskEndsTheRecordingAndKeepsWhatWasWritten) {
    test::ScratchMount small(QStringLiteral("size=1m"));
    if (!small.ok())
        GTEST_SKIP() << "mounting a small tmpfs was refused (needs root)";
    test::RootPattern busy; // every pixel different: a megabyte fills in a few seconds
    ASSERT_TRUE(busy.ok());
    RecordingConfig config{QRect(0, 0, 1280, 720), false, false};
    const QString file = small.filePath(QStringLiteral("full.partial.mov"));
    ASSERT_TRUE(recorder.start(config, file).ok());
    ASSERT_TRUE(test::waitUntil([&] { return unexpectedStops > 0; }, std::chrono::seconds(30)));
    EXPECT_EQ(unexpectedStops, 1);
    EXPECT_TRUE(stopReason.contains(QStringLiteral("disk is full"))) << stopReason.toStdString();
    const auto movie = stop();
    ASSERT_TRUE(movie.ok()) << movie.error().reason.toStdString();
    EXPECT_FALSE(movie->problem.isEmpty());
    EXPECT_GT(movie->stats.framesWritten, 0u);
    // What reached the disk plays.
    EXPECT_FALSE(test::videoFrameTimes(file).empty());
}

TEST_F(ScreenRecorderTest, WithoutASoundServerTheMovieHasPictureOnlyAndTheReasonIsKept) {
    const QByteArray server = qgetenv("PULSE_SERVER");
    qputenv("PULSE_SERVER", "unix:/nonexistent/pulse/native");
    test::LogCapture log;
    const auto started = recorder.start({QRect(0, 0, 320, 240), true, true},
                                        path(QStringLiteral("quiet.partial.mov")));
    qputenv("PULSE_SERVER", server);
    ASSERT_TRUE(started.ok()) << started.error().reason.toStdString();
    EXPECT_FALSE(started->systemAudio || started->microphone);
    EXPECT_EQ(started->systemAudioProblem, QStringLiteral("No sound server is running"));
    EXPECT_TRUE(log.contains(
        QStringLiteral("Quillmark: no microphone available, recording without voiceover")));
    ASSERT_TRUE(waitForFrames(10));
    const QString saved = finished(stop());
    const auto probed = test::probeMovie(saved);
    ASSERT_TRUE(probed.has_value());
    EXPECT_EQ(probed->of(QStringLiteral("video")).size(), 1u);
    EXPECT_TRUE(probed->of(QStringLiteral("audio")).empty());
}

TEST_F(ScreenRecorderTest, RefusalsSayWhy) {
    const auto tiny =
        recorder.start({QRect(0, 0, 1, 1), false, false}, path(QStringLiteral("tiny.mov")));
    ASSERT_FALSE(tiny.ok());
    EXPECT_TRUE(tiny.error().reason.contains(QStringLiteral("2 × 2")));
    EXPECT_FALSE(QFile::exists(path(QStringLiteral("tiny.mov"))));

    ASSERT_TRUE(
        recorder.start({QRect(0, 0, 64, 64), false, false}, path(QStringLiteral("one.partial.mov")))
            .ok());
    const auto second = recorder.start({QRect(0, 0, 64, 64), false, false},
                                       path(QStringLiteral("two.partial.mov")));
    ASSERT_FALSE(second.ok());
    EXPECT_TRUE(second.error().reason.contains(QStringLiteral("already")));
    ASSERT_TRUE(waitForFrames(3));
    EXPECT_TRUE(stop().ok());
    bool answered = false;
    recorder.stop([&](Result<RecordedMovie>) { answered = true; }); // stopping twice: nothing
    QCoreApplication::processEvents();
    EXPECT_FALSE(answered);
}

} // namespace
