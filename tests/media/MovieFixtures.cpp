#include "MovieFixtures.h"

#include "TestSupport.h"
#include "media/MovieWriter.h"

#include <QJsonDocument>
#include <QRandomGenerator>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>

namespace qm::test {

std::vector<std::uint8_t> movingBar(int width, int height, int frame) {
    std::vector<std::uint8_t> pixels(std::size_t(width) * height * 4);
    const int barX = (frame * 8) % width;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            std::uint8_t* p = &pixels[(std::size_t(y) * width + x) * 4];
            const bool bar = x >= barX && x < barX + width / 8;
            p[0] = bar ? 40 : std::uint8_t(x * 255 / width);   // blue
            p[1] = bar ? 200 : std::uint8_t(y * 255 / height); // green
            p[2] = bar ? 240 : 90;                             // red
            p[3] = 0xff;
        }
    return pixels;
}

std::vector<std::uint8_t> noise(int width, int height, int frame) {
    QRandomGenerator random(quint32(frame + 1));
    std::vector<std::uint8_t> pixels(std::size_t(width) * height * 4);
    random.fillRange(reinterpret_cast<quint32*>(pixels.data()), pixels.size() / 4);
    return pixels;
}

std::vector<float> tone(double hz, int frames, float amplitude) {
    std::vector<float> samples(std::size_t(frames) * 2, 0.0f);
    if (hz > 0)
        for (int i = 0; i < frames; ++i)
            samples[2 * i] = samples[2 * i + 1] =
                amplitude * float(std::sin(2 * M_PI * hz * i / 48000.0));
    return samples;
}

void feed(media::MovieWriter& writer, int width, int height, MediaTime from, MediaTime to,
          double systemHz, double micHz, bool system, bool microphone, int fps) {
    constexpr MediaTime kChunk = 10ms;
    std::int64_t frameIndex = from.count() * fps / 1'000'000'000;
    const auto frameTime = [&] { return MediaTime(frameIndex * 1'000'000'000 / fps); };
    MediaTime nextChunk = from;
    const auto systemSound = tone(systemHz, 480);
    const auto micSound = tone(micHz, 480);
    while (frameTime() < to || nextChunk < to) {
        if (nextChunk <= frameTime() && nextChunk < to) {
            if (system) {
                ASSERT_TRUE(
                    writer.writeAudio(media::AudioTrack::System, systemSound.data(), 480, nextChunk)
                        .ok());
            }
            if (microphone) {
                ASSERT_TRUE(
                    writer
                        .writeAudio(media::AudioTrack::Microphone, micSound.data(), 480, nextChunk)
                        .ok());
            }
            nextChunk += kChunk;
        } else {
            const auto pixels = movingBar(width, height, int(frameIndex));
            ASSERT_TRUE(writer.writeVideo(pixels.data(), width * 4, frameTime()).ok());
            ++frameIndex;
        }
    }
}

namespace {

QJsonObject probe(const QString& path, const QStringList& what) {
    const auto result = run(QStringLiteral("ffprobe"),
                            QStringList{QStringLiteral("-v"), QStringLiteral("error")} + what +
                                QStringList{QStringLiteral("-of"), QStringLiteral("json"), path});
    EXPECT_EQ(result.exitCode, 0) << result.err.toStdString();
    return QJsonDocument::fromJson(result.out).object();
}

} // namespace

QJsonArray probeStreams(const QString& path) {
    return probe(path, {QStringLiteral("-show_streams")})[QLatin1String("streams")].toArray();
}

std::vector<PacketTime> probePackets(const QString& path, const QString& streamSpecifier) {
    const QJsonArray packets =
        probe(path,
              {QStringLiteral("-select_streams"), streamSpecifier, QStringLiteral("-show_entries"),
               QStringLiteral("packet=pts_time,duration_time")})[QLatin1String("packets")]
            .toArray();
    std::vector<PacketTime> times;
    for (const auto& p : packets)
        times.push_back({p[QLatin1String("pts_time")].toString().toDouble(),
                         p[QLatin1String("duration_time")].toString().toDouble()});
    return times;
}

int decodedFrames(const QString& path) {
    const QJsonArray streams =
        probe(path, {QStringLiteral("-count_frames"), QStringLiteral("-select_streams"),
                     QStringLiteral("v:0"), QStringLiteral("-show_entries"),
                     QStringLiteral("stream=nb_read_frames")})[QLatin1String("streams")]
            .toArray();
    return streams.isEmpty() ? -1 : streams[0][QLatin1String("nb_read_frames")].toString().toInt();
}

std::vector<float> decodeAudio(const QString& path, int track) {
    const auto result = run(QStringLiteral("ffmpeg"),
                            {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-i"),
                             path, QStringLiteral("-map"), QStringLiteral("0:a:%1").arg(track),
                             QStringLiteral("-ac"), QStringLiteral("1"), QStringLiteral("-f"),
                             QStringLiteral("f32le"), QStringLiteral("-")});
    EXPECT_EQ(result.exitCode, 0) << result.err.toStdString();
    std::vector<float> samples(std::size_t(result.out.size()) / sizeof(float));
    std::memcpy(samples.data(), result.out.constData(), samples.size() * sizeof(float));
    return samples;
}

double rms(const std::vector<float>& samples, std::size_t from, std::size_t to) {
    to = std::min(to, samples.size());
    if (from >= to)
        return 0;
    double sum = 0;
    for (std::size_t i = from; i < to; ++i)
        sum += double(samples[i]) * samples[i];
    return std::sqrt(sum / double(to - from));
}

double firstSoundSeconds(const std::vector<float>& samples, float above) {
    for (std::size_t i = 0; i < samples.size(); ++i)
        if (std::abs(samples[i]) > above)
            return double(i) / 48000.0;
    return -1;
}

} // namespace qm::test
