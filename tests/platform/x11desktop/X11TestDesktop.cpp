#include "X11TestDesktop.h"

#include "TestSupport.h"

#include <QRegularExpression>
#include <cstdlib>
#include <vector>
#include <xcb/xcb.h>

namespace qm::test {

// 12 bits of x and of y across the three channels, so a 4096 × 4096 desktop has no repeats.
QRgb patternColor(int x, int y) {
    const int r = x & 0xff;
    const int g = ((x >> 8) & 0xf) | ((y & 0xf) << 4);
    const int b = (y >> 4) & 0xff;
    return qRgb(r, g, b);
}

QPoint patternPoint(QRgb color) {
    const int x = qRed(color) | ((qGreen(color) & 0xf) << 8);
    const int y = (qGreen(color) >> 4) | (qBlue(color) << 4);
    return {x, y};
}

struct RootPattern::Private {
    xcb_connection_t* c = nullptr;
    bool ok = false;
    ~Private() {
        if (c)
            xcb_disconnect(c);
    }
};

RootPattern::RootPattern()
    : d(std::make_unique<Private>()) {
    d->c = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(d->c))
        return;
    xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(d->c)).data;
    const int w = screen->width_in_pixels;
    const int h = screen->height_in_pixels;
    const xcb_pixmap_t pixmap = xcb_generate_id(d->c);
    xcb_create_pixmap(d->c, screen->root_depth, pixmap, screen->root, uint16_t(w), uint16_t(h));
    const xcb_gcontext_t gc = xcb_generate_id(d->c);
    xcb_create_gc(d->c, gc, pixmap, 0, nullptr);
    // Strips of rows keep each request below the server's size limit.
    const int rows = 32;
    std::vector<uint32_t> strip(std::size_t(w) * rows);
    for (int top = 0; top < h; top += rows) {
        const int n = std::min(rows, h - top);
        for (int y = 0; y < n; ++y)
            for (int x = 0; x < w; ++x)
                strip[std::size_t(y) * w + x] = patternColor(x, top + y) & 0xffffff;
        xcb_put_image(d->c, XCB_IMAGE_FORMAT_Z_PIXMAP, pixmap, gc, uint16_t(w), uint16_t(n), 0,
                      int16_t(top), 0, screen->root_depth, uint32_t(std::size_t(w) * n * 4),
                      reinterpret_cast<const uint8_t*>(strip.data()));
    }
    xcb_change_window_attributes(d->c, screen->root, XCB_CW_BACK_PIXMAP, &pixmap);
    xcb_clear_area(d->c, 0, screen->root, 0, 0, 0, 0);
    xcb_free_gc(d->c, gc);
    xcb_free_pixmap(d->c, pixmap);
    // A round trip makes sure the server has painted before anyone looks.
    free(xcb_get_input_focus_reply(d->c, xcb_get_input_focus(d->c), nullptr));
    d->ok = !xcb_connection_has_error(d->c);
}

RootPattern::~RootPattern() = default;
bool RootPattern::ok() const {
    return d->ok;
}

ForeignWindow::ForeignWindow(const QString& className, const QColor& background,
                             const QString& geometry) {
    m_process.start(QStringLiteral("xterm"),
                    {QStringLiteral("-class"), className, QStringLiteral("-bg"), background.name(),
                     QStringLiteral("-fg"), background.name(), QStringLiteral("-cr"),
                     background.name(), QStringLiteral("-geometry"), geometry,
                     QStringLiteral("+sb"), QStringLiteral("-bw"), QStringLiteral("0"),
                     QStringLiteral("-e"), QStringLiteral("sleep"), QStringLiteral("600")});
    if (!m_process.waitForStarted())
        return;
    // The window is searched for by its class and waited on until the manager has mapped it.
    waitUntil([&] {
        const auto found = run(QStringLiteral("xdotool"),
                               {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                QStringLiteral("--class"), QStringLiteral("^%1$").arg(className)});
        const QByteArray first = found.out.split('\n').value(0).trimmed();
        m_window = first.isEmpty() ? 0 : first.toUInt();
        return m_window != 0;
    });
    // xterm paints after mapping; give the server a moment by waiting for its state property.
    waitUntil([&] {
        const auto state =
            run(QStringLiteral("xprop"), {QStringLiteral("-id"), QString::number(m_window),
                                          QStringLiteral("_NET_FRAME_EXTENTS")});
        return state.out.contains("=");
    });
}

ForeignWindow::~ForeignWindow() {
    if (m_process.state() != QProcess::NotRunning) {
        m_process.kill();
        m_process.waitForFinished();
    }
}

QRect ForeignWindow::geometry() const {
    const auto info =
        run(QStringLiteral("xwininfo"), {QStringLiteral("-id"), QString::number(m_window)});
    const QString text = QString::fromLocal8Bit(info.out);
    auto field = [&](const char* name) {
        const QRegularExpression re(QLatin1String(name) + QStringLiteral(":\\s*(-?\\d+)"));
        return re.match(text).captured(1).toInt();
    };
    return QRect(field("Absolute upper-left X"), field("Absolute upper-left Y"), field("Width"),
                 field("Height"));
}

void ForeignWindow::activate() const {
    run(QStringLiteral("xdotool"),
        {QStringLiteral("windowactivate"), QStringLiteral("--sync"), QString::number(m_window)});
}

bool windowManagerRunning() {
    const auto check = run(QStringLiteral("xprop"),
                           {QStringLiteral("-root"), QStringLiteral("_NET_SUPPORTING_WM_CHECK")});
    return check.out.contains("window id");
}

bool compositorSelectionOwned() {
    xcb_connection_t* c = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(c)) {
        xcb_disconnect(c);
        return false;
    }
    const char name[] = "_NET_WM_CM_S0";
    auto* atom = xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, sizeof(name) - 1, name), nullptr);
    bool owned = false;
    if (atom) {
        auto* reply =
            xcb_get_selection_owner_reply(c, xcb_get_selection_owner(c, atom->atom), nullptr);
        owned = reply && reply->owner != XCB_WINDOW_NONE;
        free(reply);
        free(atom);
    }
    xcb_disconnect(c);
    return owned;
}

Compositor::Compositor() {
    m_process.start(QStringLiteral("xcompmgr"), {});
    m_running = m_process.waitForStarted() && waitUntil([] { return compositorSelectionOwned(); });
}

Compositor::~Compositor() {
    if (m_process.state() != QProcess::NotRunning) {
        m_process.kill();
        m_process.waitForFinished();
    }
}

} // namespace qm::test
