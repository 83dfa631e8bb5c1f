#include "RecorderUiFixture.h"
#include "recorder/ui/WebcamBubbleController.h"

#include <QApplication>
#include <QPainter>
#include <QSignalSpy>
#include <QThread>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace qm::test {
namespace {

// A camera that sends one picture over and over from a thread of its own.
class FakeStream final : public platform::CameraStream {
public:
    FakeStream(QImage picture, std::atomic<int>& stops)
        : m_picture(std::move(picture))
        , m_stops(stops) {}
    ~FakeStream() override { stop(); }

    Status start(FrameSink onFrame, StopSink) override {
        m_thread = std::thread([this, onFrame = std::move(onFrame)] {
            std::unique_lock lock(m_mutex);
            while (!m_stopping) {
                onFrame(m_picture);
                // A camera's pace; stop() wakes it at once.
                m_wake.wait_for(lock, std::chrono::milliseconds(20),
                                [this] { return m_stopping.load(); });
            }
        });
        return {};
    }
    void stop() override {
        {
            std::lock_guard lock(m_mutex);
            if (m_stopping.exchange(true))
                return;
        }
        m_wake.notify_all();
        if (m_thread.joinable())
            m_thread.join();
        ++m_stops;
    }

private:
    QImage m_picture;
    std::atomic<int>& m_stops;
    std::atomic<bool> m_stopping{false};
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::thread m_thread;
};

class FakeCameras final : public platform::CameraBackend {
public:
    QImage picture; // null: no camera
    std::atomic<int> opens{0};
    std::atomic<int> stops{0};
    std::atomic<bool> openedOnGuiThread{false};

    QString name() const override { return QStringLiteral("fake"); }
    Result<std::unique_ptr<platform::CameraStream>> openDefault() override {
        ++opens;
        if (QThread::currentThread() == qApp->thread())
            openedOnGuiThread = true;
        if (picture.isNull())
            return failure(QStringLiteral("No camera is connected"));
        return std::unique_ptr<platform::CameraStream>(
            std::make_unique<FakeStream>(picture, stops));
    }
};

// Left half red, right half blue, in a 4:3 picture.
QImage halves() {
    QImage picture(320, 240, QImage::Format_RGB32);
    picture.fill(Qt::blue);
    QPainter(&picture).fillRect(0, 0, 160, 240, Qt::red);
    return picture;
}

TEST_F(RecorderUi, TheBubbleShowsTheCameraRoundAndMirroredInTheAreasCorner) {
    TargetWindow below(QRect(300, 150, 1000, 700));
    ASSERT_TRUE(waitUntil([&] { return below.isExposed(); }));
    FakeCameras cameras;
    cameras.picture = halves();
    WebcamBubbleController bubble(cameras);
    QSignalSpy shownSpy(&bubble, &WebcamBubbleController::shown);

    const QRect area(400, 200, 800, 500);
    bubble.show(QGuiApplication::primaryScreen(), area);
    ASSERT_TRUE(shownSpy.wait(10000));
    EXPECT_FALSE(cameras.openedOnGuiThread);
    ASSERT_TRUE(shown(bubble.window()));
    const QRect at = bubble.window()->frameGeometry();
    EXPECT_EQ(at, QRect(1200 - 16 - 160, 700 - 16 - 160, 160, 160));

    const QPoint o = at.topLeft();
    // Like a looking glass: the picture's left (red) is on the bubble's right.
    ASSERT_TRUE(waitUntil([&] {
        const QImage shot = screenPixels();
        return near(shot.pixelColor(o + QPoint(50, 80)), Qt::blue, 30) &&
               near(shot.pixelColor(o + QPoint(110, 80)), Qt::red, 30);
    }));
    const QImage shot = screenPixels();
    // Filled, not fitted: the picture reaches the top and bottom of the circle.
    EXPECT_TRUE(near(shot.pixelColor(o + QPoint(60, 10)), Qt::blue, 30));
    EXPECT_TRUE(near(shot.pixelColor(o + QPoint(100, 150)), Qt::red, 30));
    // Round: the corners show what is beneath.
    EXPECT_EQ(shot.pixelColor(o + QPoint(4, 4)), QColor(Qt::white));
    EXPECT_EQ(shot.pixelColor(o + QPoint(155, 155)), QColor(Qt::white));
    // With a light border on the rim.
    EXPECT_GT(shot.pixelColor(o + QPoint(80, 1)).green(), 200);

    bubble.close();
    EXPECT_FALSE(bubble.window());
    EXPECT_TRUE(waitUntil([&] { return cameras.stops == 1; })) << "the camera was left running";
    EXPECT_TRUE(waitUntil(
        [&] { return screenPixels().pixelColor(o + QPoint(80, 80)) == QColor(Qt::white); }));
}

TEST_F(RecorderUi, WithoutACameraNothingIsShownAndTheLogSaysSoOnce) {
    LogCapture log;
    FakeCameras cameras; // none
    WebcamBubbleController bubble(cameras);
    QSignalSpy unavailable(&bubble, &WebcamBubbleController::unavailable);
    QScreen* screen = QGuiApplication::primaryScreen();

    bubble.show(screen);
    ASSERT_TRUE(unavailable.wait(10000));
    EXPECT_EQ(unavailable.at(0).at(0).toString(), QStringLiteral("No camera is connected"));
    bubble.show(screen, QRect(0, 0, 500, 500)); // asked again in the same recording
    ASSERT_TRUE(unavailable.wait(10000));
    EXPECT_FALSE(bubble.window());
    for (QWidget* window : QApplication::topLevelWidgets())
        EXPECT_FALSE(window->isVisible()) << window->objectName().toStdString();
    EXPECT_EQ(
        log.lines()
            .filter(QStringLiteral("Quillmark: no camera available, recording without webcam"))
            .size(),
        1);
}

TEST_F(RecorderUi, ClosingWhileTheCameraOpensLeavesItStopped) {
    FakeCameras cameras;
    cameras.picture = halves();
    WebcamBubbleController bubble(cameras);
    QSignalSpy shownSpy(&bubble, &WebcamBubbleController::shown);
    bubble.show(QGuiApplication::primaryScreen(), QRect(100, 100, 600, 400));
    bubble.close(); // before the camera had time to open
    ASSERT_TRUE(waitUntil([&] { return cameras.opens == 1 && cameras.stops == 1; }));
    QCoreApplication::processEvents();
    EXPECT_EQ(shownSpy.count(), 0);
    EXPECT_FALSE(bubble.window());
}

TEST(WebcamBubblePlacement, StaysOnTheScreen) {
    const QRect screen(0, 0, 1920, 1080);
    EXPECT_EQ(WebcamBubbleController::placement(screen, screen), QRect(1744, 904, 160, 160));
    // An area smaller than the bubble near the top-left corner of a screen left of the
    // primary one.
    const QRect left(-1280, 0, 1280, 1024);
    EXPECT_EQ(WebcamBubbleController::placement(QRect(-1270, 10, 100, 100), left),
              QRect(-1280, 0, 160, 160));
}

} // namespace
} // namespace qm::test
