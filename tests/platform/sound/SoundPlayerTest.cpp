#include "TestSupport.h"
#include "platform/sound/canberra/CanberraSoundPlayer.h"

#include <QProcess>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

using namespace qm;
using namespace qm::test;

namespace {

bool soundServerRunning() {
    return run(QStringLiteral("pactl"), {QStringLiteral("info")}).exitCode == 0;
}

// Listens to what the test sound server plays (its null sink's monitor) and counts the separate
// sounds heard. The recorder asks for a short latency: by default parec asks for two-second
// fragments, the null sink then renders two seconds of silence ahead into its monitor, and the
// start of a sound played just after the recorder connects is lost to the rewind (a short one
// such as "bell" entirely).
class SinkListener {
public:
    SinkListener() {
        process_.start(QStringLiteral("parec"),
                       {QStringLiteral("--device=ci_sink.monitor"), QStringLiteral("--raw"),
                        QStringLiteral("--format=s16le"), QStringLiteral("--channels=1"),
                        QStringLiteral("--rate=%1").arg(kRate),
                        QStringLiteral("--latency-msec=20")});
    }
    ~SinkListener() {
        process_.kill();
        process_.waitForFinished();
    }
    SinkListener(const SinkListener&) = delete;
    SinkListener& operator=(const SinkListener&) = delete;

    // True once the recording runs (the monitor streams silence while nothing plays).
    bool listening() {
        return waitUntil([&] { return consume(), received_ > 0; });
    }
    // True when the count of separate sounds heard reaches `count` before the deadline.
    bool heard(int count) {
        return waitUntil([&] { return consume(), sounds_ >= count; }, std::chrono::seconds(5));
    }
    int soundsHeard() {
        consume();
        return sounds_;
    }
    // True once the sink has been quiet long enough that the next sound counts as a new one.
    bool silent() {
        return waitUntil([&] { return consume(), quietBlocks_ >= kQuietBlocksBetweenSounds; },
                         std::chrono::seconds(5));
    }

private:
    static constexpr int kRate = 16000;
    static constexpr qsizetype kBlockSamples = kRate / 100; // 10 ms
    static constexpr int kQuietBlocksBetweenSounds = 20;    // 200 ms of silence
    static constexpr int kLoud = 300;

    void consume() {
        pending_ += process_.readAllStandardOutput();
        received_ += pending_.size();
        const qsizetype blockBytes = kBlockSamples * qsizetype(sizeof(std::int16_t));
        qsizetype offset = 0;
        for (; offset + blockBytes <= pending_.size(); offset += blockBytes) {
            bool loud = false;
            for (qsizetype i = 0; i < kBlockSamples; ++i) {
                std::int16_t sample;
                std::memcpy(&sample, pending_.constData() + offset + i * 2, sizeof sample);
                loud = loud || std::abs(int(sample)) > kLoud;
            }
            if (loud && quietBlocks_ >= kQuietBlocksBetweenSounds)
                ++sounds_;
            quietBlocks_ = loud ? 0 : quietBlocks_ + 1;
        }
        pending_.remove(0, offset);
    }

    QProcess process_;
    QByteArray pending_;
    qint64 received_ = 0;
    int quietBlocks_ = kQuietBlocksBetweenSounds;
    int sounds_ = 0;
};

TEST(SoundPlayerTest, EverySoundNameRingsThroughTheSoundServer) {
    if (!soundServerRunning())
        GTEST_SKIP() << "needs the test sound server (scripts/test-services.sh)";
    const auto player = CanberraSoundPlayer::open();
    ASSERT_TRUE(player);
    for (const SystemSound sound :
         {SystemSound::Capture, SystemSound::Notify, SystemSound::Complete, SystemSound::Alert}) {
        SinkListener listener;
        ASSERT_TRUE(listener.listening());
        player->play(sound);
        EXPECT_TRUE(listener.heard(1)) << soundEventId(sound).toStdString() << " was not heard";
    }
}

// A countdown's ticks and then the capture sound, on one player: each is heard. The next one
// plays as soon as the last has died away, faster than a countdown would.
TEST(SoundPlayerTest, CountdownTicksAndTheCaptureSoundAreEachHeard) {
    if (!soundServerRunning())
        GTEST_SKIP() << "needs the test sound server (scripts/test-services.sh)";
    const auto player = CanberraSoundPlayer::open();
    SinkListener listener;
    ASSERT_TRUE(listener.listening());
    for (int tick = 1; tick <= 3; ++tick) {
        player->play(SystemSound::Alert);
        EXPECT_TRUE(listener.heard(tick)) << "tick " << tick << " was not heard";
        ASSERT_TRUE(listener.silent());
    }
    player->play(SystemSound::Capture);
    EXPECT_TRUE(listener.heard(4)) << "the capture sound was not heard";
    EXPECT_EQ(listener.soundsHeard(), 4);
}

TEST(SoundPlayerTest, WithoutASoundServerPlayingIsSilent) {
    qputenv("PULSE_SERVER", "unix:/nonexistent/quillmark-no-server");
    // Either no player opens (the app then stays silent) or playing returns and nothing happens.
    if (const auto player = CanberraSoundPlayer::open()) {
        player->play(SystemSound::Capture);
        player->play(SystemSound::Alert);
    }
}

} // namespace
