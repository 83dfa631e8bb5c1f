#include "TestSupport.h"
#include "X11TestDesktop.h"
#include "platform/video/x11/X11ScreenVideoBackend.h"
#include "platform/video/x11/X11ScreenVideoSource.h"

#include <QCursor>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QStringList>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>
#include <vector>

// Real streams of a private Xvfb desktop, 3200 × 1080 with two monitors side by side: qm0 at
// 0,0 1920 × 1080 and qm1 at 1920,0 1280 × 1024 (the strip below qm1 is on no monitor).

namespace qm::platform {
namespace {

using namespace std::chrono_literals;
using test::ColourWindow;
using test::patternColor;
using test::waitUntil;

// What a stream delivered, gathered from its thread.
class Recording {
public:
    ScreenVideoSource::FrameSink frames(std::chrono::milliseconds slowness = 0ms) {
        return [this, slowness](const VideoFrame& f) {
            QImage copy =
                QImage(f.pixels, f.width, f.height, f.bytesPerLine, QImage::Format_RGB32).copy();
            {
                std::lock_guard lock(m_mutex);
                m_times.push_back(f.pts);
                m_last = std::move(copy);
            }
            std::this_thread::sleep_for(slowness); // a consumer that holds the stream up
        };
    }
    ScreenVideoSource::StopSink stops(std::function<void()> also = {}) {
        return [this, also](const QString& reason) {
            {
                std::lock_guard lock(m_mutex);
                m_stops << reason;
            }
            if (also)
                also();
        };
    }
    std::vector<MediaTime> times() const {
        std::lock_guard lock(m_mutex);
        return m_times;
    }
    std::size_t count() const { return times().size(); }
    QImage last() const {
        std::lock_guard lock(m_mutex);
        return m_last;
    }
    QStringList stopReasons() const {
        std::lock_guard lock(m_mutex);
        return m_stops;
    }
    // Waits for `n` more frames than there are now.
    bool waitForFrames(std::size_t n) const {
        const std::size_t target = count() + n;
        return waitUntil([&] { return count() >= target; });
    }

private:
    mutable std::mutex m_mutex;
    std::vector<MediaTime> m_times;
    QImage m_last;
    QStringList m_stops;
};

void pointerTo(QPoint p) {
    test::run(QStringLiteral("xdotool"),
              {QStringLiteral("mousemove"), QString::number(p.x()), QString::number(p.y())});
}

// The pixels of `image` that differ from `flat`, as one bounding rectangle.
QRect differing(const QImage& image, QRgb flat) {
    QRect found;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (image.pixel(x, y) != flat)
                found |= QRect(x, y, 1, 1);
    return found;
}

class X11ScreenVideoTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(pattern.ok());
        ASSERT_EQ(backend.unavailableReason(), QString());
        ASSERT_EQ(backend.name(), QStringLiteral("x11"));
        pointerTo(kParked);
    }

    // A borderless window of one colour at a desktop position, shown until the test ends.
    std::unique_ptr<ColourWindow> window(QColor colour, QRect rect,
                                         Qt::CursorShape cursor = Qt::ArrowCursor) {
        auto w = std::make_unique<ColourWindow>(colour);
        w->setFlags(Qt::Window | Qt::FramelessWindowHint);
        w->setGeometry(rect);
        w->setCursor(cursor);
        w->show();
        EXPECT_TRUE(waitUntil([&] { return w->isExposed() && w->geometry() == rect; }));
        return w;
    }

    static constexpr QPoint kParked{10, 1070}; // away from every recorded area
    test::RootPattern pattern;
    X11ScreenVideoBackend backend;
};

TEST_F(X11ScreenVideoTest, FramesArriveThirtyTimesASecondStampedOnTheMediaClock) {
    Recording recording;
    auto source = backend.createSource();
    const MediaTime before = mediaClockNow();
    ASSERT_TRUE(
        source->start({QRect(100, 100, 640, 480)}, recording.frames(), recording.stops()).ok());
    ASSERT_TRUE(waitUntil([&] {
        const auto t = recording.times();
        return t.size() > 1 && t.back() - t.front() >= 1s;
    }));
    source->stop();
    const MediaTime after = mediaClockNow();

    const auto times = recording.times();
    std::size_t inFirstSecond = 0;
    for (std::size_t i = 0; i < times.size(); ++i) {
        EXPECT_GE(times[i], before);
        EXPECT_LE(times[i], after);
        if (i > 0) {
            EXPECT_GT(times[i], times[i - 1]);
        }
        inFirstSecond += times[i] < times.front() + 1s;
    }
    // A busy machine may cost a frame or two, which are then counted as missed.
    EXPECT_LE(inFirstSecond, 31u);
    EXPECT_GE(inFirstSecond + source->missedFrames(), 28u) << inFirstSecond;
    EXPECT_GE(inFirstSecond, 20u);
    EXPECT_EQ(recording.last().size(), QSize(640, 480));
    EXPECT_TRUE(recording.stopReasons().isEmpty());
}

TEST_F(X11ScreenVideoTest, AConsumerThatHoldsTheStreamUpCostsFramesCountedNotBunched) {
    Recording recording;
    X11ScreenVideoSource source;
    ASSERT_TRUE(
        source.start({QRect(0, 0, 320, 200)}, recording.frames(80ms), recording.stops()).ok());
    ASSERT_TRUE(recording.waitForFrames(8));
    source.stop();
    const auto times = recording.times();
    // Each frame takes 80 ms to hand over, so the slots in between go by unused; the next
    // frame then waits for its slot rather than following at once. Every slot of the span is
    // either a frame or a missed one.
    for (std::size_t i = 1; i < times.size(); ++i)
        EXPECT_GE(times[i] - times[i - 1], 75ms) << i;
    const double slots = double((times.back() - times.front()) / (MediaTime(1s) / 30)) + 1;
    EXPECT_NEAR(double(times.size() + source.missedFrames()), slots, 2.5);
    EXPECT_GE(source.missedFrames(), times.size() - 2);
}

TEST_F(X11ScreenVideoTest, FramesShowTheDesktopPixelForPixel) {
    const QColor colour(30, 140, 200);
    const QRect windowRect(300, 200, 400, 300);
    const auto shown = window(colour, windowRect);
    const QRect area(250, 150, 501, 401);

    Recording recording;
    auto source = backend.createSource();
    ASSERT_TRUE(source->start({area}, recording.frames(), recording.stops()).ok());
    const QPoint inside = windowRect.center() - area.topLeft();
    ASSERT_TRUE(waitUntil([&] {
        const QImage last = recording.last();
        return !last.isNull() && last.pixel(inside) == colour.rgb();
    }));
    const QImage frame = recording.last();
    source->stop();

    ASSERT_EQ(frame.size(), area.size());
    int wrong = 0;
    for (int y = 0; y < frame.height(); ++y)
        for (int x = 0; x < frame.width(); ++x) {
            const QPoint desktop = area.topLeft() + QPoint(x, y);
            const QRgb expected = windowRect.contains(desktop)
                                      ? colour.rgb()
                                      : patternColor(desktop.x(), desktop.y());
            wrong += frame.pixel(x, y) != expected;
        }
    EXPECT_EQ(wrong, 0);
}

TEST_F(X11ScreenVideoTest, PointerIsDrawnInItsCurrentShapeOnlyWhenAsked) {
    const QColor colour(40, 90, 160);
    const auto arrow = window(colour, QRect(400, 300, 200, 200), Qt::ArrowCursor);
    const auto blank = window(colour, QRect(600, 300, 200, 200), Qt::BlankCursor);
    const QRect area(400, 300, 400, 200);
    const QPoint onArrow(500, 400);
    pointerTo(onArrow);

    Recording recording;
    X11ScreenVideoSource source;
    ASSERT_TRUE(source.start({area}, recording.frames(), recording.stops()).ok());
    QRect drawn;
    ASSERT_TRUE(waitUntil([&] {
        drawn = differing(recording.last(), colour.rgb());
        return !drawn.isEmpty();
    })) << "no pointer in the frames";
    // Xvfb's arrow is drawn by the server's software cursor, which the grab leaves out: the
    // pointer in the frame is ours, around its hot spot.
    EXPECT_TRUE(QRect(onArrow - area.topLeft() - QPoint(40, 40), QSize(80, 80)).contains(drawn))
        << drawn.x() << "," << drawn.y() << " " << drawn.width() << "x" << drawn.height();

    // Over the window with no pointer shape the pointer disappears: the shape is fetched anew.
    pointerTo(QPoint(700, 400));
    EXPECT_TRUE(waitUntil([&] { return differing(recording.last(), colour.rgb()).isEmpty(); }));
    pointerTo(onArrow);
    EXPECT_TRUE(waitUntil([&] { return !differing(recording.last(), colour.rgb()).isEmpty(); }));
    // ... but only when it changed, not with every frame.
    ASSERT_TRUE(recording.waitForFrames(30));
    EXPECT_LE(source.pointerFetches(), 8u) << "of " << recording.count() << " frames";
    source.stop();

    Recording without;
    ASSERT_TRUE(
        source.start({area, 30, /*showPointer=*/false}, without.frames(), without.stops()).ok());
    ASSERT_TRUE(without.waitForFrames(5));
    source.stop();
    EXPECT_TRUE(differing(without.last(), colour.rgb()).isEmpty());
}

TEST_F(X11ScreenVideoTest, OddAreasAreRecordedAsTheyAreAndClippedToTheDesktop) {
    struct Case {
        QRect requested;
        QRect recorded;
    };
    for (const Case& c :
         {Case{{101, 37, 333, 177}, {101, 37, 333, 177}}, Case{{7, 9, 2, 2}, {7, 9, 2, 2}},
          Case{{3100, 1000, 300, 200}, {3100, 1000, 100, 80}},
          Case{{-50, -20, 150, 100}, {0, 0, 100, 80}}}) {
        SCOPED_TRACE(testing::Message() << c.requested.x() << "," << c.requested.y());
        Recording recording;
        auto source = backend.createSource();
        ASSERT_TRUE(source->start({c.requested}, recording.frames(), recording.stops()).ok());
        ASSERT_TRUE(recording.waitForFrames(1));
        source->stop();
        const QImage frame = recording.last();
        ASSERT_EQ(frame.size(), c.recorded.size());
        for (const QPoint corner : {QPoint(0, 0), QPoint(frame.width() - 1, frame.height() - 1)}) {
            const QPoint desktop = c.recorded.topLeft() + corner;
            EXPECT_EQ(frame.pixel(corner), patternColor(desktop.x(), desktop.y()));
        }
    }
}

TEST_F(X11ScreenVideoTest, AreasThatCannotBeRecordedFailWithTheirReason) {
    struct Case {
        QRect area;
        const char* reason;
    };
    for (const Case& c :
         {Case{{}, "empty"}, Case{{10, 10, 0, 5}, "empty"}, Case{{10, 10, 1, 1}, "2 × 2"},
          Case{{10, 10, 5, 1}, "2 × 2"}, Case{{3199, 1079, 5, 5}, "2 × 2"},
          Case{{3200, 0, 100, 100}, "outside the desktop"},
          Case{{-300, -300, 100, 100}, "outside the desktop"},
          Case{{2000, 1030, 100, 40}, "not on any screen"}}) {
        SCOPED_TRACE(c.reason);
        Recording recording;
        auto source = backend.createSource();
        const Status started = source->start({c.area}, recording.frames(), recording.stops());
        ASSERT_FALSE(started.ok());
        EXPECT_TRUE(started.error().reason.contains(QString::fromUtf8(c.reason)))
            << started.error().reason.toStdString();
        source->stop();
    }
    auto source = backend.createSource();
    EXPECT_FALSE(source->start({QRect(0, 0, 64, 64), 0}, {}, {}).ok());
}

TEST_F(X11ScreenVideoTest, StopEndsTheStreamAtOnceAndTwiceIsHarmless) {
    Recording first;
    auto source = backend.createSource();
    ASSERT_TRUE(source->start({QRect(0, 0, 200, 200)}, first.frames(), first.stops()).ok());
    ASSERT_TRUE(first.waitForFrames(3));
    Recording other;
    EXPECT_FALSE(source->start({QRect(0, 0, 200, 200)}, other.frames(), other.stops()).ok());
    source->stop();
    const std::size_t delivered = first.count();
    source->stop();

    // The same source streams again; the first sink hears nothing more meanwhile.
    Recording second;
    ASSERT_TRUE(source->start({QRect(0, 0, 100, 100)}, second.frames(), second.stops()).ok());
    ASSERT_TRUE(second.waitForFrames(5));
    EXPECT_EQ(first.count(), delivered);
    EXPECT_EQ(other.count(), 0u);
    // Dropped while running: the destructor stops it.
    source.reset();
    const std::size_t last = second.count();
    Recording third;
    auto another = backend.createSource();
    ASSERT_TRUE(another->start({QRect(0, 0, 100, 100)}, third.frames(), third.stops()).ok());
    ASSERT_TRUE(third.waitForFrames(5));
    EXPECT_EQ(second.count(), last);
    EXPECT_TRUE(first.stopReasons().isEmpty() && second.stopReasons().isEmpty());
}

TEST_F(X11ScreenVideoTest, AStreamWhoseDisplayServerQuitsEndsOnceWithAReason) {
    // A second, private X server that can be shut down under the stream.
    const QString numberFile = qEnvironmentVariable("TMPDIR") + QStringLiteral("/private-display");
    QProcess server;
    server.start(QStringLiteral("sh"),
                 {QStringLiteral("-c"),
                  QStringLiteral("exec Xvfb -noreset -displayfd 3 -screen 0 320x200x24 "
                                 "-nolisten tcp 3>'%1' 2>/dev/null")
                      .arg(numberFile)});
    QByteArray number;
    ASSERT_TRUE(waitUntil([&] {
        QFile file(numberFile);
        number = file.open(QIODevice::ReadOnly) ? file.readLine().trimmed() : QByteArray();
        return !number.isEmpty();
    }));

    Recording recording;
    X11ScreenVideoBackend other(":" + number);
    ASSERT_EQ(other.unavailableReason(), QString());
    auto source = other.createSource();
    ASSERT_TRUE(source->start({QRect(0, 0, 320, 200)}, recording.frames(), recording.stops()).ok());
    ASSERT_TRUE(recording.waitForFrames(3));
    server.terminate();
    ASSERT_TRUE(server.waitForFinished());
    ASSERT_TRUE(waitUntil([&] { return !recording.stopReasons().isEmpty(); }));
    source->stop();
    EXPECT_EQ(recording.stopReasons(),
              QStringList{QStringLiteral("The connection to the X display was lost.")});
}

// Runs last: it takes the second monitor away and puts it back.
TEST_F(X11ScreenVideoTest, AStreamWhoseMonitorGoesAwayEndsOnceWithAReason) {
    Recording onQm1;
    Recording acrossBoth;
    auto gone = backend.createSource();
    auto staying = backend.createSource();
    // The stream that ends stops itself from its own callback, as a recorder may.
    ASSERT_TRUE(gone->start({QRect(2000, 100, 400, 300)}, onQm1.frames(),
                            onQm1.stops([&] { gone->stop(); }))
                    .ok());
    ASSERT_TRUE(
        staying->start({QRect(1800, 100, 300, 200)}, acrossBoth.frames(), acrossBoth.stops()).ok());
    ASSERT_TRUE(onQm1.waitForFrames(3) && acrossBoth.waitForFrames(3));

    ASSERT_EQ(
        test::run(QStringLiteral("xrandr"), {QStringLiteral("--delmonitor"), QStringLiteral("qm1")})
            .exitCode,
        0);
    ASSERT_TRUE(waitUntil([&] { return !onQm1.stopReasons().isEmpty(); }));
    // The area that still touches qm0 goes on being recorded.
    EXPECT_TRUE(acrossBoth.waitForFrames(10));
    gone->stop();
    gone->stop();
    staying->stop();
    EXPECT_EQ(onQm1.stopReasons().size(), 1);
    EXPECT_TRUE(onQm1.stopReasons().value(0).contains(QStringLiteral("disconnected")))
        << onQm1.stopReasons().value(0).toStdString();
    EXPECT_TRUE(acrossBoth.stopReasons().isEmpty());

    test::run(QStringLiteral("xrandr"),
              {QStringLiteral("--setmonitor"), QStringLiteral("qm1"),
               QStringLiteral("1280/338x1024/270+1920+0"), QStringLiteral("none")});
}

} // namespace
} // namespace qm::platform
