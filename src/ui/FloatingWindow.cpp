#include "ui/FloatingWindow.h"

#include <QCursor>
#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>
#include <QRegion>
#include <QScreen>
#include <QWidget>
#include <cstdlib>
#include <memory>
#include <xcb/xcb.h>

namespace qm {

namespace {
template <typename T> using XcbReply = std::unique_ptr<T, decltype(&std::free)>;

// The X screen number of DISPLAY (":0.1" → 1).
int defaultScreenNumber() {
    const QByteArray display = qgetenv("DISPLAY");
    const int colon = display.lastIndexOf(':');
    const int dot = display.indexOf('.', colon < 0 ? 0 : colon);
    return dot < 0 ? 0 : display.mid(dot + 1).toInt();
}
} // namespace

void makeFloatingWindow(QWidget* window, PointerInput input) {
    Qt::WindowFlags flags = Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                            Qt::X11BypassWindowManagerHint | Qt::WindowDoesNotAcceptFocus |
                            Qt::NoDropShadowWindowHint;
    if (input == PointerInput::PassThrough)
        flags |= Qt::ToolTip | Qt::WindowTransparentForInput;
    else
        flags |= Qt::Tool;
    window->setWindowFlags(flags);
    window->setAttribute(Qt::WA_ShowWithoutActivating);
    window->setAttribute(Qt::WA_X11DoNotAcceptFocus);
    window->setAttribute(Qt::WA_TransparentForMouseEvents, input == PointerInput::PassThrough);
    window->setFocusPolicy(Qt::NoFocus);
    if (translucencyAvailable()) {
        window->setAttribute(Qt::WA_TranslucentBackground);
        window->setAttribute(Qt::WA_NoSystemBackground);
    }
}

bool translucencyAvailable() {
    const auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    if (!x11 || !x11->connection())
        return false;
    xcb_connection_t* connection = x11->connection();
    const QByteArray name = "_NET_WM_CM_S" + QByteArray::number(defaultScreenNumber());
    const XcbReply<xcb_intern_atom_reply_t> atom(
        xcb_intern_atom_reply(connection,
                              xcb_intern_atom(connection, 1, uint16_t(name.size()), name.data()),
                              nullptr),
        &std::free);
    if (!atom || atom->atom == XCB_ATOM_NONE)
        return false;
    const XcbReply<xcb_get_selection_owner_reply_t> owner(
        xcb_get_selection_owner_reply(connection, xcb_get_selection_owner(connection, atom->atom),
                                      nullptr),
        &std::free);
    return owner && owner->owner != XCB_WINDOW_NONE;
}

void shapeRounded(QWidget* window, double radius) {
    if (window->testAttribute(Qt::WA_TranslucentBackground)) {
        window->clearMask();
        return;
    }
    QPainterPath path;
    path.addRoundedRect(QRectF(window->rect()), radius, radius);
    window->setMask(QRegion(path.toFillPolygon().toPolygon()));
}

QScreen* screenUnderPointer() {
    if (QScreen* screen = QGuiApplication::screenAt(QCursor::pos()))
        return screen;
    return QGuiApplication::primaryScreen();
}

void paintPanelFace(QPainter& painter, const QWidget* window, double radius) {
    painter.setRenderHint(QPainter::Antialiasing);
    // With a compositor the corners outside the face must stay fully transparent.
    if (window->testAttribute(Qt::WA_TranslucentBackground))
        painter.setCompositionMode(QPainter::CompositionMode_Source);
    const QRectF bounds(window->rect());
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(24, 24, 27, 235));
    painter.drawRoundedRect(bounds, radius, radius);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    painter.setPen(QPen(QColor(255, 255, 255, 28), 1.0));
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(bounds.adjusted(0.5, 0.5, -0.5, -0.5), radius - 0.5, radius - 0.5);
}

} // namespace qm
