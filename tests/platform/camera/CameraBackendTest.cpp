#include "TestSupport.h"
#include "platform/camera/null/NullCameraBackend.h"
#include "platform/camera/v4l2/FfmpegCameraStream.h"
#include "platform/camera/v4l2/V4l2CameraBackend.h"

#include <QFile>
#include <QTemporaryDir>
#include <atomic>
#include <gtest/gtest.h>
#include <mutex>

namespace {

using qm::platform::FfmpegCameraStream;

// What a stream delivered, filled on the camera's thread.
struct Received {
    std::mutex lock;
    QImage last;
    int frames = 0;
    int stops = 0;
    QString reason;

    int frameCount() {
        std::lock_guard guard(lock);
        return frames;
    }
    int stopCount() {
        std::lock_guard guard(lock);
        return stops;
    }
};

// A camera stand-in: libavdevice's filter-graph input, paced like a real device.
auto openPattern(const QString& graph) {
    return FfmpegCameraStream::open(QStringLiteral("lavfi"), graph);
}

void startInto(qm::platform::CameraStream& stream, Received& received) {
    const auto started = stream.start(
        [&](const QImage& image) {
            std::lock_guard guard(received.lock);
            received.last = image;
            ++received.frames;
        },
        [&](const QString& reason) {
            std::lock_guard guard(received.lock);
            received.reason = reason;
            ++received.stops;
        });
    ASSERT_TRUE(started.ok()) << started.error().reason.toStdString();
}

TEST(CameraStream, DeliversRgbPicturesUntilStopped) {
    auto opened = openPattern(QStringLiteral("color=c=0xff2010:size=32x24:rate=25,realtime"));
    ASSERT_TRUE(opened.ok()) << opened.error().reason.toStdString();
    Received received;
    startInto(**opened, received);
    ASSERT_TRUE(qm::test::waitUntil([&] { return received.frameCount() >= 3; }));

    opened.value()->stop();
    const int atStop = received.frameCount();
    {
        std::lock_guard guard(received.lock);
        EXPECT_EQ(received.last.format(), QImage::Format_RGB32);
        EXPECT_EQ(received.last.size(), QSize(32, 24));
        // Red stays red: the bytes are in the order QImage expects.
        const QColor pixel = received.last.pixelColor(16, 12);
        EXPECT_NEAR(pixel.red(), 0xff, 6);
        EXPECT_NEAR(pixel.green(), 0x20, 6);
        EXPECT_NEAR(pixel.blue(), 0x10, 6);
    }
    opened.value()->stop(); // twice is harmless
    EXPECT_EQ(received.frameCount(), atStop);
    EXPECT_EQ(received.stopCount(), 0) << "a stop asked for is not a camera that went away";
}

TEST(CameraStream, SaysOnceWhenTheCameraEndsByItself) {
    auto opened = openPattern(QStringLiteral("color=c=blue:size=16x16:rate=25:duration=0.2"));
    ASSERT_TRUE(opened.ok()) << opened.error().reason.toStdString();
    Received received;
    qm::platform::CameraStream& stream = **opened;
    const auto started = stream.start(
        [&](const QImage&) {
            std::lock_guard guard(received.lock);
            ++received.frames;
        },
        [&](const QString& reason) {
            {
                std::lock_guard guard(received.lock);
                received.reason = reason;
                ++received.stops;
            }
            stream.stop(); // from the camera's own thread: must not wait for itself
        });
    ASSERT_TRUE(started.ok());
    ASSERT_TRUE(qm::test::waitUntil([&] { return received.stopCount() == 1; }));
    stream.stop();
    EXPECT_EQ(received.stopCount(), 1);
    EXPECT_GT(received.frameCount(), 0);
    EXPECT_FALSE(received.reason.isEmpty());
}

TEST(V4l2CameraBackend, SaysWhyThereIsNoCamera) {
    QTemporaryDir devices;
    ASSERT_TRUE(devices.isValid());
    qm::platform::V4l2CameraBackend backend(devices.path());
    auto none = backend.openDefault();
    ASSERT_FALSE(none.ok());
    EXPECT_EQ(none.error().reason, QStringLiteral("No camera is connected"));

    // A node that is no camera: its own reason, not "no camera".
    QFile fake(devices.filePath(QStringLiteral("video0")));
    ASSERT_TRUE(fake.open(QIODevice::WriteOnly));
    fake.close();
    auto broken = backend.openDefault();
    ASSERT_FALSE(broken.ok());
    EXPECT_TRUE(broken.error().reason.startsWith(QStringLiteral("The camera could not be opened")))
        << broken.error().reason.toStdString();

    qm::platform::NullCameraBackend null;
    EXPECT_EQ(null.openDefault().error().reason, QStringLiteral("No camera is connected"));
}

} // namespace
