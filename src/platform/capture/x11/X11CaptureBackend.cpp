#include "platform/capture/x11/X11CaptureBackend.h"

#include "platform/capture/x11/X11Display.h"
#include "platform/capture/x11/X11ImageReader.h"
#include "platform/capture/x11/X11WindowList.h"
#include "platform/capture/x11/X11WindowPixels.h"

#include <QTimer>
#include <xcb/randr.h>

namespace qm::platform {

using namespace x11;

struct X11CaptureBackend::Private {
    explicit Private(std::unique_ptr<X11Display> d)
        : display(std::move(d))
        , reader(*display) {}

    std::unique_ptr<X11Display> display;
    X11ImageReader reader; // declared after the display: detaches before it disconnects
};

std::unique_ptr<X11CaptureBackend> X11CaptureBackend::connect(const QByteArray& displayName) {
    auto display = X11Display::open(displayName);
    if (!display)
        return nullptr;
    return std::unique_ptr<X11CaptureBackend>(
        new X11CaptureBackend(std::make_unique<Private>(std::move(display))));
}

X11CaptureBackend::X11CaptureBackend(std::unique_ptr<Private> priv)
    : d(std::move(priv)) {}

X11CaptureBackend::~X11CaptureBackend() = default;

CaptureResult<ShareableContent> X11CaptureBackend::fetchContentNow() {
    X11Display& display = *d->display;
    xcb_connection_t* c = display.c;
    if (display.lost())
        return CaptureFailure{CaptureError::CaptureFailed,
                              QStringLiteral("The connection to the X display was lost.")};
    ShareableContent content;

    if (display.hasMonitors) {
        auto monitors = wait(c, xcb_randr_get_monitors_reply,
                             xcb_randr_get_monitors(c, display.screen->root, 1));
        if (monitors) {
            std::vector<xcb_get_atom_name_cookie_t> names;
            std::vector<QRect> rects;
            for (auto it = xcb_randr_get_monitors_monitors_iterator(monitors.get()); it.rem;
                 xcb_randr_monitor_info_next(&it)) {
                names.push_back(xcb_get_atom_name(c, it.data->name));
                rects.emplace_back(it.data->x, it.data->y, it.data->width, it.data->height);
            }
            for (std::size_t i = 0; i < names.size(); ++i) {
                auto name = wait(c, xcb_get_atom_name_reply, names[i]);
                content.displays.push_back(
                    {name ? QString::fromLatin1(xcb_get_atom_name_name(name.get()),
                                                xcb_get_atom_name_name_length(name.get()))
                          : QString(),
                     rects[i] & display.rootRect()});
            }
        }
    }
    if (content.displays.empty())
        content.displays.push_back({QString(), display.rootRect()});

    if (auto tree = wait(c, xcb_query_tree_reply, xcb_query_tree(c, display.screen->root))) {
        const xcb_window_t* children = xcb_query_tree_children(tree.get());
        const int count = xcb_query_tree_children_length(tree.get());
        std::vector<xcb_get_window_attributes_cookie_t> cookies;
        cookies.reserve(std::size_t(count));
        for (int i = 0; i < count; ++i)
            cookies.push_back(xcb_get_window_attributes(c, children[i]));
        for (int i = 0; i < count; ++i) {
            auto attributes = wait(c, xcb_get_window_attributes_reply, cookies[std::size_t(i)]);
            if (attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE &&
                attributes->_class == XCB_WINDOW_CLASS_INPUT_OUTPUT)
                content.windows.push_back(children[i]);
        }
    }
    display.drainEvents();
    return content;
}

void X11CaptureBackend::fetchContent(BackendCompletion<ShareableContent> done) {
    QTimer::singleShot(0, &m_context, [done, result = fetchContentNow()] { done(result); });
}

std::vector<ServerWindow> X11CaptureBackend::windowList() {
    return listWindows(*d->display);
}

CaptureResult<QImage> X11CaptureBackend::grabDisplayNow(const QRect& pixelRect) {
    return d->reader.readDisplay(pixelRect);
}

void X11CaptureBackend::grabDisplay(const QRect& pixelRect, BackendCompletion<QImage> done) {
    QTimer::singleShot(0, &m_context, [done, result = grabDisplayNow(pixelRect)] { done(result); });
}

bool X11CaptureBackend::compositorRunning() {
    return d->display->compositorRunning();
}

CaptureResult<WindowImage> X11CaptureBackend::grabWindowNow(std::uint32_t id) {
    return readWindow(*d->display, d->reader, id);
}

void X11CaptureBackend::grabWindow(std::uint32_t id, BackendCompletion<WindowImage> done) {
    QTimer::singleShot(0, &m_context, [done, result = grabWindowNow(id)] { done(result); });
}

std::optional<std::uint32_t> X11CaptureBackend::activeWindow() {
    return x11::activeWindow(*d->display);
}

} // namespace qm::platform
