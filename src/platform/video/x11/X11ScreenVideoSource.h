#pragma once

#include "platform/video/api/ScreenVideoSource.h"

#include <QByteArray>
#include <atomic>
#include <memory>

namespace qm::platform {

// A screen stream on X11: its own connection and its own thread, which wakes on an absolute
// schedule of the monotonic clock, reads the area through shared memory and draws the
// pointer in. It also listens to the server, and ends the stream itself when the recorded
// monitor goes away or the connection breaks.
class X11ScreenVideoSource final : public ScreenVideoSource {
public:
    explicit X11ScreenVideoSource(QByteArray displayName = {});
    ~X11ScreenVideoSource() override; // stops the stream

    Status start(const ScreenVideoRequest& request, FrameSink onFrame, StopSink onStopped) override;
    void stop() override;
    std::uint64_t missedFrames() const override { return m_missed.load(); }

    // How often the pointer's picture was fetched from the server in the last stream (kept
    // after it ended); a small number, since it is fetched only when the pointer changes.
    std::uint64_t pointerFetches() const { return m_pointerFetches.load(); }

private:
    struct Stream;

    QByteArray m_displayName;
    std::unique_ptr<Stream> m_stream;
    std::atomic<std::uint64_t> m_missed{0};
    std::atomic<std::uint64_t> m_pointerFetches{0};
};

} // namespace qm::platform
