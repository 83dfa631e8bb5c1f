#include "platform/video/x11/X11ScreenVideoSource.h"

#include "platform/video/x11/FramePacer.h"
#include "platform/video/x11/X11FrameGrabber.h"
#include "platform/video/x11/X11VideoDisplay.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <thread>
#include <unistd.h>
#include <xcb/randr.h>
#include <xcb/xfixes.h>

namespace qm::platform {

using x11::X11FrameGrabber;
using x11::X11VideoDisplay;

namespace {

// A file descriptor closed when it goes out of scope.
class FileDescriptor {
public:
    explicit FileDescriptor(int fd)
        : m_fd(fd) {}
    ~FileDescriptor() {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return m_fd; }
    bool valid() const { return m_fd >= 0; }

private:
    int m_fd;
};

QString connectionLost() {
    return QStringLiteral("The connection to the X display was lost.");
}

bool onAnyMonitor(const QRect& area, const std::vector<QRect>& monitors) {
    return std::any_of(monitors.begin(), monitors.end(),
                       [&](const QRect& monitor) { return monitor.intersects(area); });
}

// Why the area can no longer be recorded, if it cannot.
std::optional<QString> areaGone(const X11VideoDisplay& display, const QRect& area) {
    if (!display.rootRect().contains(area))
        return QStringLiteral("The recorded area is no longer part of the desktop.");
    if (!onAnyMonitor(area, display.monitors()))
        return QStringLiteral("The screen being recorded was disconnected.");
    return std::nullopt;
}

} // namespace

// One run of the stream, from start() until the thread has been joined.
struct X11ScreenVideoSource::Stream {
    std::unique_ptr<X11VideoDisplay> display;
    std::unique_ptr<X11FrameGrabber> grabber;
    FileDescriptor wake{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    FileDescriptor timer{timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)};
    int fps = 30;
    FrameSink onFrame;
    StopSink onStopped;
    std::atomic<std::uint64_t>* missed = nullptr;
    std::atomic<std::uint64_t>* pointerFetches = nullptr;
    std::atomic<bool> stopRequested{false};
    std::atomic<bool> finished{false}; // the thread left its loop, by itself or when asked
    std::thread thread;

    void run();
    void loop();
    void end(const QString& reason);
    void arm(MediaTime due);
    std::optional<QString> readEvents();
    void requestStop() {
        stopRequested = true;
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = ::write(wake.get(), &one, sizeof one);
    }
};

void X11ScreenVideoSource::Stream::arm(MediaTime due) {
    // The media clock is the monotonic clock, so its times serve as absolute timer values.
    itimerspec when{};
    when.it_value.tv_sec = time_t(due.count() / 1'000'000'000);
    when.it_value.tv_nsec = long(due.count() % 1'000'000'000);
    if (when.it_value.tv_sec == 0 && when.it_value.tv_nsec == 0)
        when.it_value.tv_nsec = 1; // zero would disarm the timer
    timerfd_settime(timer.get(), TFD_TIMER_ABSTIME, &when, nullptr);
}

std::optional<QString> X11ScreenVideoSource::Stream::readEvents() {
    xcb_connection_t* c = display->c;
    bool layoutChanged = false;
    while (x11::XReply<xcb_generic_event_t> event{xcb_poll_for_event(c)}) {
        const int type = event->response_type & 0x7f;
        if (type == XCB_CONFIGURE_NOTIFY)
            layoutChanged = true;
        else if (display->hasMonitors &&
                 (type == display->randrEvents + XCB_RANDR_NOTIFY ||
                  type == display->randrEvents + XCB_RANDR_SCREEN_CHANGE_NOTIFY))
            layoutChanged = true;
        else if (display->hasXFixes && type == display->xfixesEvents + XCB_XFIXES_CURSOR_NOTIFY)
            grabber->pointerShapeChanged();
    }
    if (display->lost())
        return connectionLost();
    if (layoutChanged)
        return areaGone(*display, grabber->area());
    return std::nullopt;
}

void X11ScreenVideoSource::Stream::end(const QString& reason) {
    if (!stopRequested && onStopped)
        onStopped(reason);
}

void X11ScreenVideoSource::Stream::run() {
    pthread_setname_np(pthread_self(), "qm-screen-video");
    loop();
    finished = true;
}

void X11ScreenVideoSource::Stream::loop() {
    FramePacer pacer(mediaClockNow(), fps);
    // A second of pictures refused in a row ends the stream rather than recording nothing.
    int refused = 0;
    pollfd watched[3] = {{wake.get(), POLLIN, 0},
                         {timer.get(), POLLIN, 0},
                         {xcb_get_file_descriptor(display->c), POLLIN, 0}};
    while (!stopRequested) {
        arm(pacer.due());
        if (::poll(watched, 3, -1) < 0 && errno != EINTR)
            return end(QStringLiteral("The screen stream could not wait for its next frame."));
        if (stopRequested)
            return;
        std::uint64_t expirations = 0;
        [[maybe_unused]] const auto read = ::read(timer.get(), &expirations, sizeof expirations);
        if (auto reason = readEvents())
            return end(*reason);
        const MediaTime now = mediaClockNow();
        if (now < pacer.due())
            continue; // woken by the server, not by the clock
        *missed += pacer.take(now);
        auto frame = grabber->grab();
        *pointerFetches = grabber->pointerFetches();
        if (!frame) {
            if (display->lost())
                return end(connectionLost());
            if (auto reason = areaGone(*display, grabber->area()))
                return end(*reason);
            if (++refused >= fps)
                return end(frame.error().reason);
            continue;
        }
        refused = 0;
        if (onFrame)
            onFrame(*frame);
    }
}

X11ScreenVideoSource::X11ScreenVideoSource(QByteArray displayName)
    : m_displayName(std::move(displayName)) {}

X11ScreenVideoSource::~X11ScreenVideoSource() {
    if (m_stream && m_stream->thread.get_id() == std::this_thread::get_id()) {
        // Destroyed from its own callback: the thread cannot wait for itself.
        m_stream->requestStop();
        m_stream->thread.detach();
        (void)m_stream.release(); // the thread still uses it; leaked rather than freed early
        return;
    }
    stop();
}

Status X11ScreenVideoSource::start(const ScreenVideoRequest& request, FrameSink onFrame,
                                   StopSink onStopped) {
    if (m_stream && ((!m_stream->finished && !m_stream->stopRequested) ||
                     m_stream->thread.get_id() == std::this_thread::get_id()))
        return failure(QStringLiteral("The screen is already being recorded."));
    stop(); // clears away a stream that ended by itself
    if (request.fps < 1 || request.fps > 240)
        return failure(QStringLiteral("The screen can be recorded at 1 to 240 frames a second."));
    if (request.area.isEmpty())
        return failure(QStringLiteral("The area to record is empty."));

    auto display = X11VideoDisplay::open(m_displayName);
    if (!display)
        return display.error();
    auto stream = std::make_unique<Stream>();
    stream->display = std::move(display).value();
    const QRect area = request.area & stream->display->rootRect();
    if (area.isEmpty())
        return failure(QStringLiteral("The area to record lies outside the desktop."));
    if (area.width() < 2 || area.height() < 2)
        return failure(QStringLiteral("The area to record is smaller than 2 × 2 pixels."));
    if (!onAnyMonitor(area, stream->display->monitors()))
        return failure(QStringLiteral("The area to record is not on any screen."));
    if (!stream->wake.valid() || !stream->timer.valid())
        return failure(QStringLiteral("The screen stream could not set up its clock."));

    stream->display->watchChanges(request.showPointer);
    stream->grabber =
        std::make_unique<X11FrameGrabber>(*stream->display, area, request.showPointer);
    stream->fps = request.fps;
    stream->onFrame = std::move(onFrame);
    stream->onStopped = std::move(onStopped);
    stream->missed = &m_missed;
    stream->pointerFetches = &m_pointerFetches;
    m_missed = 0;
    m_pointerFetches = 0;
    m_stream = std::move(stream);
    m_stream->thread = std::thread([s = m_stream.get()] { s->run(); });
    return {};
}

void X11ScreenVideoSource::stop() {
    if (!m_stream)
        return;
    m_stream->requestStop();
    if (m_stream->thread.get_id() == std::this_thread::get_id())
        return; // called from a callback: the thread ends when it returns; joined later
    if (m_stream->thread.joinable())
        m_stream->thread.join();
    m_stream.reset();
}

} // namespace qm::platform
