#include "TestSupport.h"
#include "X11TestDesktop.h"
#include "platform/video/x11/X11ScreenVideoBackend.h"
#include "platform/video/x11/X11ScreenVideoSource.h"

#include <QFile>
#include <QImage>
#include <QProcess>
#include <QStringList>
#include <gtest/gtest.h>
#include <mutex>
#include <vector>

// Real streams of a private Xvfb desktop, 3200 × 1080 with two monitors side by side: qm0 at
// 0,0 1920 × 1080 and qm1 at 1920,0 1280 × 1024 (the strip below qm1 is on no monitor).

namespace qm::platform {
namespace {

using namespace std::chrono_literals;
using test::patternColor;
using test::waitUntil;

// What a stream delivered, gathered from its thread.
class Recording {
public:
    Status start(ScreenVideoSource& source, const ScreenVideoRequest& request,
                 std::function<void()> onStop = {}) {
        return source.start(
            request,
            [this](const VideoFrame& f) {
                QImage copy =
                    QImage(f.pixels, f.width, f.height, f.bytesPerLine, QImage::Format_RGB32)
                        .copy();
                {
                    std::lock_guard lock(m_mutex);
                    m_times.push_back(f.pts);
                    m_last = std::move(copy);
                }
            },
            [this, onStop](const QString& reason) {
                {
                    std::lock_guard lock(m_mutex);
                    m_stops << reason;
                }
                if (onStop)
                    onStop();
            });
    }
    std::vector<MediaTime> times() const { return locked(m_times); }
    std::size_t count() const { return times().size(); }
    QImage last() const { return locked(m_last); }
    QStringList stops() const { return locked(m_stops); }
    bool waitForFrames(std::size_t more) const {
        const std::size_t target = count() + more;
        return waitUntil([&] { return count() >= target; });
    }

private:
    template <class T> T locked(const T& value) const {
        std::lock_guard lock(m_mutex);
        return value;
    }
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
        pointerTo(QPoint(10, 1070)); // away from every recorded area
    }

    // A borderless window of one colour at a desktop position, shown until the test ends.
    static std::unique_ptr<test::ColourWindow> window(QColor colour, QRect rect,
                                                      Qt::CursorShape cursor = Qt::ArrowCursor) {
        auto w = std::make_unique<test::ColourWindow>(colour);
        w->setFlags(Qt::Window | Qt::FramelessWindowHint);
        w->setGeometry(rect);
        w->setCursor(cursor);
        w->show();
        EXPECT_TRUE(waitUntil([&] { return w->isExposed() && w->geometry() == rect; }));
        return w;
    }

    test::RootPattern pattern;
    X11ScreenVideoBackend backend;
};

TEST_F(X11ScreenVideoTest, FramesArriveThirtyTimesASecondStampedOnTheMediaClock) {
    Recording recording;
    auto source = backend.createSource();
    const MediaTime before = mediaClockNow();
    ASSERT_TRUE(recording.start(*source, {QRect(100, 100, 640, 480)}).ok());
    ASSERT_TRUE(waitUntil([&] {
        const auto t = recording.times();
        return t.size() > 1 && t.back() - t.front() >= 1s;
    }));
    source->stop();
    const MediaTime after = mediaClockNow();

    const auto times = recording.times();
    std::size_t inFirstSecond = 0;
    for (std::size_t i = 0; i < times.size(); ++i) {
        EXPECT_TRUE(times[i] > before && times[i] < after && (i == 0 || times[i] > times[i - 1]));
        inFirstSecond += times[i] < times.front() + 1s;
    }
    // A busy machine may cost a frame or two, which are then counted as missed.
    EXPECT_LE(inFirstSecond, 31u);
    EXPECT_GE(inFirstSecond + source->missedFrames(), 28u) << inFirstSecond;
    EXPECT_GE(inFirstSecond, 20u);
    EXPECT_TRUE(recording.stops().isEmpty());
}

TEST_F(X11ScreenVideoTest, FramesShowTheDesktopPixelForPixelClippedToIt) {
    const QColor colour(30, 140, 200);
    const QRect windowRect(300, 200, 400, 300);
    const auto shown = window(colour, windowRect);
    struct Case {
        QRect requested;
        QRect recorded;
    };
    for (const Case& c :
         {Case{{250, 150, 501, 401}, {250, 150, 501, 401}}, Case{{7, 9, 2, 2}, {7, 9, 2, 2}},
          Case{{3100, 1000, 300, 200}, {3100, 1000, 100, 80}},
          Case{{-50, -20, 150, 100}, {0, 0, 100, 80}}}) {
        SCOPED_TRACE(testing::Message() << c.requested.x() << "," << c.requested.y());
        Recording recording;
        auto source = backend.createSource();
        ASSERT_TRUE(recording.start(*source, {c.requested}).ok());
        ASSERT_TRUE(recording.waitForFrames(1));
        source->stop();
        const QImage frame = recording.last();
        ASSERT_EQ(frame.size(), c.recorded.size());
        int wrong = 0;
        for (int y = 0; y < frame.height(); ++y)
            for (int x = 0; x < frame.width(); ++x) {
                const QPoint at = c.recorded.topLeft() + QPoint(x, y);
                wrong += frame.pixel(x, y) !=
                         (windowRect.contains(at) ? colour.rgb() : patternColor(at.x(), at.y()));
            }
        EXPECT_EQ(wrong, 0);
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
        Recording recording;
        auto source = backend.createSource();
        const Status started = recording.start(*source, {c.area});
        ASSERT_FALSE(started.ok()) << c.reason;
        EXPECT_TRUE(started.error().reason.contains(QString::fromUtf8(c.reason)))
            << started.error().reason.toStdString();
    }
    auto source = backend.createSource();
    EXPECT_FALSE(source->start({QRect(0, 0, 64, 64), 0}, {}, {}).ok());
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
    ASSERT_TRUE(recording.start(source, {area}).ok());
    QRect drawn;
    ASSERT_TRUE(waitUntil([&] {
        drawn = differing(recording.last(), colour.rgb());
        return !drawn.isEmpty();
    })) << "no pointer in the frames";
    // Xvfb draws its pointer in software and leaves it out of grabs: this one is ours.
    EXPECT_TRUE(QRect(onArrow - area.topLeft() - QPoint(40, 40), QSize(80, 80)).contains(drawn))
        << drawn.x() << "," << drawn.y() << " " << drawn.width() << "x" << drawn.height();

    // Over the window without a pointer shape the pointer goes: its picture is fetched anew.
    pointerTo(QPoint(700, 400));
    EXPECT_TRUE(waitUntil([&] { return differing(recording.last(), colour.rgb()).isEmpty(); }));
    pointerTo(onArrow);
    EXPECT_TRUE(waitUntil([&] { return !differing(recording.last(), colour.rgb()).isEmpty(); }));
    // ... but only when it changed, not with every frame.
    ASSERT_TRUE(recording.waitForFrames(30));
    EXPECT_LE(source.pointerFetches(), 8u) << "of " << recording.count() << " frames";
    source.stop();

    Recording without;
    ASSERT_TRUE(without.start(source, {area, 30, /*showPointer=*/false}).ok());
    ASSERT_TRUE(without.waitForFrames(5));
    source.stop();
    EXPECT_TRUE(differing(without.last(), colour.rgb()).isEmpty());
}

TEST_F(X11ScreenVideoTest, StopEndsTheStreamAtOnceTwiceIsHarmlessAndTheSourceStartsAgain) {
    Recording first, refused, second;
    auto source = backend.createSource();
    ASSERT_TRUE(first.start(*source, {QRect(0, 0, 200, 200)}).ok());
    ASSERT_TRUE(first.waitForFrames(3));
    EXPECT_FALSE(refused.start(*source, {QRect(0, 0, 200, 200)}).ok()) << "already running";
    source->stop();
    const std::size_t delivered = first.count();
    source->stop();

    ASSERT_TRUE(second.start(*source, {QRect(0, 0, 100, 100)}).ok());
    ASSERT_TRUE(second.waitForFrames(5));
    source.reset(); // the destructor stops a running stream
    EXPECT_EQ(first.count(), delivered);
    EXPECT_EQ(refused.count(), 0u);
    EXPECT_TRUE(first.stops().isEmpty() && second.stops().isEmpty());
}

TEST_F(X11ScreenVideoTest, AStreamWhoseDisplayServerQuitsEndsOnceWithAReason) {
    // A second, private X server that can be shut down under the stream.
    const QString numberFile = qEnvironmentVariable("TMPDIR") + QStringLiteral("/display");
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
    ASSERT_TRUE(recording.start(*source, {QRect(0, 0, 320, 200)}).ok());
    ASSERT_TRUE(recording.waitForFrames(3));
    server.terminate();
    ASSERT_TRUE(server.waitForFinished());
    ASSERT_TRUE(waitUntil([&] { return !recording.stops().isEmpty(); }));
    source->stop();
    EXPECT_EQ(recording.stops(),
              QStringList{QStringLiteral("The connection to the X display was lost.")});
}

// Runs last: it takes the second monitor away and puts it back.
TEST_F(X11ScreenVideoTest, AStreamWhoseMonitorGoesAwayEndsOnceWithAReason) {
    Recording onQm1, acrossBoth;
    auto gone = backend.createSource();
    auto staying = backend.createSource();
    // The stream that ends stops itself from its own callback, as a recorder may.
    ASSERT_TRUE(onQm1.start(*gone, {QRect(2000, 100, 400, 300)}, [&] { gone->stop(); }).ok());
    ASSERT_TRUE(acrossBoth.start(*staying, {QRect(1800, 100, 300, 200)}).ok());
    ASSERT_TRUE(onQm1.waitForFrames(3) && acrossBoth.waitForFrames(3));

    ASSERT_EQ(
        test::run(QStringLiteral("xrandr"), {QStringLiteral("--delmonitor"), QStringLiteral("qm1")})
            .exitCode,
        0);
    ASSERT_TRUE(waitUntil([&] { return !onQm1.stops().isEmpty(); }));
    // The area that still touches qm0 goes on being recorded.
    EXPECT_TRUE(acrossBoth.waitForFrames(10));
    gone->stop();
    gone->stop();
    staying->stop();
    EXPECT_EQ(onQm1.stops(),
              QStringList{QStringLiteral("The screen being recorded was disconnected.")});
    EXPECT_TRUE(acrossBoth.stops().isEmpty());

    test::run(QStringLiteral("xrandr"),
              {QStringLiteral("--setmonitor"), QStringLiteral("qm1"),
               QStringLiteral("1280/338x1024/270+1920+0"), QStringLiteral("none")});
}

} // namespace
} // namespace qm::platform
