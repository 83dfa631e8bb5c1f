#pragma once

#include "base/Result.h"
#include "platform/video/api/ScreenVideoSource.h"
#include "platform/video/x11/PointerImage.h"
#include "platform/video/x11/X11VideoDisplay.h"

#include <QRect>
#include <cstdint>
#include <memory>
#include <vector>

namespace qm::platform::x11 {

class ShmSegment;

// Takes pictures of one area of the desktop: the pixels through a shared-memory segment the
// size of the area (a plain image request when the server cannot share memory), and the
// pointer drawn in. The pointer's position is asked for with every picture, in the same round
// trip; its picture only after the server said it changed.
class X11FrameGrabber {
public:
    X11FrameGrabber(X11VideoDisplay& display, QRect area, bool showPointer);
    ~X11FrameGrabber(); // detaches the segment; the connection must still be open
    X11FrameGrabber(const X11FrameGrabber&) = delete;
    X11FrameGrabber& operator=(const X11FrameGrabber&) = delete;

    // One picture, stamped on the media clock as soon as the pixels arrived; valid until the
    // next call.
    Result<VideoFrame> grab();
    // The pointer's shape changed: its picture is fetched again with the next frame.
    void pointerShapeChanged() { m_pointerStale = true; }

    QRect area() const { return m_area; }
    bool sharesMemory() const { return m_segment != nullptr; }
    // How often the pointer's picture was fetched; a picture per frame would mean the change
    // notices do not work.
    std::uint64_t pointerFetches() const { return m_pointerFetches; }

private:
    X11VideoDisplay& m_display;
    QRect m_area;
    bool m_showPointer;
    std::unique_ptr<ShmSegment> m_segment;
    std::vector<std::uint8_t> m_plain; // the pixels when memory cannot be shared
    PointerImage m_pointer;
    bool m_pointerStale = true;
    std::uint64_t m_pointerFetches = 0;
};

} // namespace qm::platform::x11
