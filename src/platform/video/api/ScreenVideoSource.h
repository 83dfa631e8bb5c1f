#pragma once

#include "base/MediaClock.h"
#include "base/Result.h"

#include <QRect>
#include <QString>
#include <cstdint>
#include <functional>
#include <memory>

namespace qm::platform {

// One picture of the recorded area, valid only during the callback that delivers it.
// Pixels are 32-bit BGRX in memory (QImage::Format_RGB32 on little-endian machines).
struct VideoFrame {
    const std::uint8_t* pixels = nullptr;
    int width = 0;
    int height = 0;
    int bytesPerLine = 0;
    MediaTime pts{}; // when the picture was taken, on the media clock
};

// What to record: an area of the desktop in device pixels (X root coordinates, top-left
// origin), at a steady rate, with or without the pointer drawn in. The area is clipped to the
// desktop, and frames have the clipped size (odd sizes included: making them even for the
// encoder is the recorder's choice).
struct ScreenVideoRequest {
    QRect area;
    int fps = 30;
    bool showPointer = true;
};

// A live stream of the screen. Frames arrive on the source's own thread, paced by the media
// clock; the callback must return quickly (copy what it needs). `onStopped` runs at most once,
// on the source's thread, when the stream ends by itself (the monitor went away, the display
// server closed), with a sentence saying why; it never runs after `stop()` returned.
class ScreenVideoSource {
public:
    using FrameSink = std::function<void(const VideoFrame&)>;
    using StopSink = std::function<void(const QString& reason)>;

    virtual ~ScreenVideoSource() = default;

    // Starts the stream; fails with a reason when the area cannot be recorded at all (empty,
    // under 2 × 2 pixels once clipped, off the desktop or on no monitor), or a stream of this
    // source still runs. A source whose stream ended can be started again.
    virtual Status start(const ScreenVideoRequest& request, FrameSink onFrame,
                         StopSink onStopped) = 0;
    // Ends the stream and waits until no callback runs any more. Safe to call twice.
    virtual void stop() = 0;
    // Frames the source could not take on time (the grab itself fell behind the clock, or
    // the frame callback held the stream up), counted since the last start.
    virtual std::uint64_t missedFrames() const = 0;
};

// Makes screen streams for this session, or says why it cannot.
class ScreenVideoBackend {
public:
    virtual ~ScreenVideoBackend() = default;
    virtual QString name() const = 0; // "x11", "null"
    // Empty when streams can be made; otherwise the one sentence the user is shown.
    virtual QString unavailableReason() const = 0;
    virtual std::unique_ptr<ScreenVideoSource> createSource() = 0;
};

} // namespace qm::platform
