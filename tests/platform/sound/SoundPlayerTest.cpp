#include "platform/sound/SoundPlayer.h"

#include "TestSupport.h"

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

// Listens to what the test sound server plays (its null sink's monitor).
class SinkListener {
public:
    SinkListener() {
        process_.start(QStringLiteral("parec"),
                       {QStringLiteral("--device=ci_sink.monitor"), QStringLiteral("--raw"),
                        QStringLiteral("--format=s16le"), QStringLiteral("--channels=1"),
                        QStringLiteral("--rate=16000")});
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
    // True when something audible arrived before the deadline.
    bool heardSomething() {
        return waitUntil([&] { return consume(), loud_; }, std::chrono::seconds(5));
    }

private:
    void consume() {
        const QByteArray bytes = process_.readAllStandardOutput();
        received_ += bytes.size();
        for (qsizetype i = 0; i + 1 < bytes.size(); i += 2) {
            std::int16_t sample;
            std::memcpy(&sample, bytes.constData() + i, sizeof sample);
            if (std::abs(int(sample)) > 300)
                loud_ = true;
        }
    }

    QProcess process_;
    qint64 received_ = 0;
    bool loud_ = false;
};

TEST(SoundPlayerTest, EverySoundNameRingsThroughTheSoundServer) {
    if (!soundServerRunning())
        GTEST_SKIP() << "needs the test sound server (scripts/test-services.sh)";
    const std::unique_ptr<SoundPlayer> player = makeSoundPlayer();
    ASSERT_TRUE(player);
    for (const char* name : {"Grab", "Pop", "Glass", "Tink"}) {
        const std::optional<SystemSound> sound = systemSoundNamed(QString::fromLatin1(name));
        ASSERT_TRUE(sound) << name;
        SinkListener listener;
        ASSERT_TRUE(listener.listening());
        player->play(*sound);
        EXPECT_TRUE(listener.heardSomething())
            << name << " (" << soundEventId(*sound).toStdString() << ") was not heard";
    }
    EXPECT_FALSE(systemSoundNamed(u"Basso"));
}

TEST(SoundPlayerTest, WithoutASoundServerPlayingIsSilent) {
    qputenv("PULSE_SERVER", "unix:/nonexistent/quillmark-no-server");
    const std::unique_ptr<SoundPlayer> player = makeSoundPlayer();
    ASSERT_TRUE(player);
    player->play(SystemSound::Grab); // returns, and nothing else happens
    player->play(SystemSound::Tink);
}

} // namespace
