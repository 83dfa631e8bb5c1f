#include "platform/video/null/NullScreenVideoBackend.h"
#include "platform/video/x11/FramePacer.h"
#include "platform/video/x11/PointerImage.h"
#include "platform/video/x11/X11ScreenVideoBackend.h"

#include <QRect>
#include <cstring>
#include <gtest/gtest.h>
#include <vector>

// The pieces of the screen stream that need no display: its schedule, drawing the pointer and
// the reasons given when a stream cannot be made.

namespace qm::platform {
namespace {

using namespace std::chrono_literals;

TEST(FramePacerTest, AnHourOfOnTimeFramesStaysOnTheGrid) {
    const MediaTime start = 5s + 123ns;
    FramePacer pacer(start, 30);
    for (int k = 0; k < 30 * 3600; ++k) {
        ASSERT_EQ(pacer.take(pacer.due()), 0u) << k;
    }
    // 1/30 s is no whole number of nanoseconds: adding periods up would have drifted.
    EXPECT_EQ(pacer.due(), start + 3600s);
}

TEST(FramePacerTest, LateFramesSkipWholePeriodsAndNeverBurst) {
    const MediaTime start = 1s;
    const MediaTime period = MediaTime(1s) / 30;
    FramePacer pacer(start, 30);
    EXPECT_EQ(pacer.due(), start);
    EXPECT_EQ(pacer.take(start), 0u);

    // Late within its own period: taken, nothing skipped, and the next slot keeps its time.
    EXPECT_EQ(pacer.take(start + period + 20ms), 0u);
    EXPECT_EQ(pacer.due(), start + 2 * period);

    // A stall of a second: the 30 slots that went by are counted, the frame is taken now and
    // the next one waits for its own slot instead of following straight after.
    const MediaTime stalled = start + 2 * period + 1s + 5ms;
    EXPECT_EQ(pacer.take(stalled), 30u);
    EXPECT_GT(pacer.due(), stalled);
    EXPECT_LE(pacer.due() - stalled, period);

    // Woken a little early (a timer's slack): that frame is the due one, nothing skipped.
    const MediaTime due = pacer.due();
    EXPECT_EQ(pacer.take(due - 1ms), 0u);
    EXPECT_LE(std::chrono::abs(pacer.due() - due - period), 1ns);
}

// A 4 × 3 frame of one colour inside a larger buffer, so drawing past an edge shows.
struct Canvas {
    static constexpr int kWidth = 4, kHeight = 3, kStride = 6 * 4, kRows = 5;
    std::vector<std::uint32_t> words = std::vector<std::uint32_t>(kStride / 4 * kRows, 0xAB102030);
    std::uint8_t* bytes() { return reinterpret_cast<std::uint8_t*>(words.data()); }
    std::uint32_t at(int x, int y) const { return words[std::size_t(y) * kStride / 4 + x]; }
    void draw(const PointerImage& pointer, QPoint at) {
        drawPointer(bytes(), kWidth, kHeight, kStride, pointer, at);
    }
};

PointerImage solidPointer(int w, int h, std::uint32_t argb, QPoint hotSpot = {}) {
    return PointerImage{w, h, hotSpot, std::vector<std::uint32_t>(std::size_t(w) * h, argb)};
}

TEST(PointerImageTest, PremultipliedPixelsBlendOverTheFrameAndKeepItsFourthByte) {
    Canvas canvas;
    // Opaque, half-covering white, and fully transparent pixels side by side.
    const PointerImage pointer{3, 1, {}, {0xff00ff00, 0x80808080, 0x00000000}};
    canvas.draw(pointer, {0, 0});
    EXPECT_EQ(canvas.at(0, 0), 0xAB00ff00u);
    // 0x80 + 0x10 × 127/255 ≈ 0x88, and so on for each channel.
    EXPECT_EQ(canvas.at(1, 0), 0xAB889098u);
    EXPECT_EQ(canvas.at(2, 0), 0xAB102030u);
}

TEST(PointerImageTest, PointerIsClippedAtEveryEdgeOfTheFrame) {
    const std::uint32_t red = 0xffff0000;
    struct Case {
        QPoint at;
        QRect expected; // the frame pixels it covers
    };
    // A 3 × 3 pointer whose hot spot is its middle, pushed over each edge and corner.
    for (const Case& c :
         {Case{{0, 0}, {0, 0, 2, 2}}, Case{{3, 2}, {2, 1, 2, 2}}, Case{{-1, 1}, {0, 0, 1, 3}},
          Case{{2, -1}, {1, 0, 3, 1}}, Case{{5, 1}, {}}, Case{{1, 4}, {}}, Case{{-2, -2}, {}}}) {
        SCOPED_TRACE(testing::Message() << c.at.x() << "," << c.at.y());
        Canvas canvas;
        canvas.draw(solidPointer(3, 3, red, {1, 1}), c.at);
        for (int y = 0; y < Canvas::kRows; ++y)
            for (int x = 0; x < Canvas::kStride / 4; ++x) {
                const bool covered = c.expected.contains(x, y);
                EXPECT_EQ(canvas.at(x, y), covered ? 0xABff0000u : 0xAB102030u) << x << "," << y;
            }
    }
}

TEST(ScreenVideoBackendTest, BackendsThatCannotRecordSayWhyAndSoDoTheirStreams) {
    NullScreenVideoBackend null;
    X11ScreenVideoBackend unreachable(":2147");
    for (ScreenVideoBackend* backend : {static_cast<ScreenVideoBackend*>(&null),
                                        static_cast<ScreenVideoBackend*>(&unreachable)}) {
        SCOPED_TRACE(backend->name().toStdString());
        ASSERT_FALSE(backend->unavailableReason().isEmpty());
        auto source = backend->createSource();
        bool called = false;
        const Status started = source->start(
            ScreenVideoRequest{QRect(0, 0, 64, 64)}, [&](const VideoFrame&) { called = true; },
            [&](const QString&) { called = true; });
        ASSERT_FALSE(started.ok());
        EXPECT_EQ(started.error().reason, backend->unavailableReason());
        source->stop();
        source->stop();
        EXPECT_FALSE(called);
    }
}

} // namespace
} // namespace qm::platform
