#include "ui/FloatingWindow.h"

#include "platform/surface/null/NullSurfaceBackend.h"

#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>
#include <QRegion>
#include <QScreen>
#include <QWidget>

namespace qm {

namespace {
platform::SurfaceBackend* installedBackend = nullptr;
} // namespace

void installSurfaceBackend(platform::SurfaceBackend* backend) {
    installedBackend = backend;
}

platform::SurfaceBackend& surfaceBackend() {
    static platform::NullSurfaceBackend fallback;
    return installedBackend ? *installedBackend : fallback;
}

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
    return surfaceBackend().compositingAvailable();
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
