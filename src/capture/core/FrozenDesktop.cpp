#include "capture/core/FrozenDesktop.h"

#include "capture/core/CaptureGeometry.h"

#include <QLineF>
#include <QPainter>
#include <algorithm>
#include <cmath>
#include <limits>

namespace qm {

namespace {

double distanceTo(const QRectF& rect, QPointF point) {
    const double dx = std::max({rect.left() - point.x(), 0.0, point.x() - rect.right()});
    const double dy = std::max({rect.top() - point.y(), 0.0, point.y() - rect.bottom()});
    return std::hypot(dx, dy);
}

QRect devicePixels(const DisplayCapture& display) {
    return QRect(display.pixelOrigin, display.image.size());
}

} // namespace

int FrozenDesktop::displayAt(QPointF global) const {
    int nearest = -1;
    double best = std::numeric_limits<double>::infinity();
    for (int i = 0; i < int(displays.size()); ++i) {
        const QRectF& geometry = displays[std::size_t(i)].geometry;
        // Half-open, so a point on the seam between two monitors belongs to the right one.
        if (global.x() >= geometry.left() && global.x() < geometry.right() &&
            global.y() >= geometry.top() && global.y() < geometry.bottom())
            return i;
        const double distance = distanceTo(geometry, global);
        if (distance < best) {
            best = distance;
            nearest = i;
        }
    }
    return nearest;
}

int FrozenDesktop::displayOf(const QScreen* screen) const {
    for (int i = 0; i < int(displays.size()); ++i)
        if (screen && displays[std::size_t(i)].screen == screen)
            return i;
    return -1;
}

bool DesktopCropPlan::complete() const {
    qint64 covered = 0;
    for (const Piece& piece : pieces)
        covered += qint64(piece.source.width()) * piece.source.height();
    return covered == qint64(size.width()) * size.height();
}

std::optional<DesktopCropPlan> planDesktopCrop(const FrozenDesktop& desktop, const QRectF& rect) {
    DesktopCropPlan plan;
    QRect bounds;
    std::vector<QRect> placed;
    qint64 largest = -1;
    for (int i = 0; i < int(desktop.displays.size()); ++i) {
        const DisplayCapture& display = desktop.displays[std::size_t(i)];
        const QRectF part = rect.intersected(display.geometry);
        if (part.isEmpty())
            continue;
        const auto pixels = cropPixels(display.geometry, display.scale, display.image.size(), part);
        if (!pixels)
            continue;
        const QRect onDesktop = pixels->translated(display.pixelOrigin);
        bounds = bounds.united(onDesktop);
        plan.pieces.push_back({i, *pixels, {}});
        placed.push_back(onDesktop);
        const qint64 area = qint64(pixels->width()) * pixels->height();
        if (area > largest) {
            largest = area;
            plan.scale = display.scale;
        }
    }
    if (plan.pieces.empty())
        return std::nullopt;
    for (std::size_t i = 0; i < plan.pieces.size(); ++i)
        plan.pieces[i].target = placed[i].topLeft() - bounds.topLeft();
    plan.size = bounds.size();
    return plan;
}

std::optional<QImage> cropDesktop(const FrozenDesktop& desktop, const QRectF& rect) {
    const auto plan = planDesktopCrop(desktop, rect);
    if (!plan)
        return std::nullopt;
    if (plan->pieces.size() == 1 && plan->complete()) {
        const DisplayCapture& display = desktop.displays[std::size_t(plan->pieces[0].display)];
        QImage region = display.image.copy(plan->pieces[0].source);
        if (region.isNull())
            return std::nullopt;
        region.setDevicePixelRatio(display.scale);
        return region;
    }
    const bool opaque = plan->complete();
    QImage result(plan->size, opaque ? QImage::Format_RGB32 : QImage::Format_ARGB32_Premultiplied);
    if (result.isNull())
        return std::nullopt;
    result.fill(Qt::transparent);
    QPainter painter(&result);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    for (const DesktopCropPlan::Piece& piece : plan->pieces) {
        QImage part = desktop.displays[std::size_t(piece.display)].image.copy(piece.source);
        part.setDevicePixelRatio(1.0);
        painter.drawImage(piece.target, part);
    }
    painter.end();
    result.setDevicePixelRatio(plan->scale);
    return result;
}

std::optional<QPointF> globalPointOfPixel(const FrozenDesktop& desktop, QPointF desktopPixel) {
    for (const DisplayCapture& display : desktop.displays) {
        const QRect pixels = devicePixels(display);
        if (desktopPixel.x() >= pixels.left() &&
            desktopPixel.x() < pixels.left() + pixels.width() && desktopPixel.y() >= pixels.top() &&
            desktopPixel.y() < pixels.top() + pixels.height())
            return display.geometry.topLeft() +
                   (desktopPixel - display.pixelOrigin) / display.scale;
    }
    return std::nullopt;
}

FrozenDesktop joinFrozenScreens(std::vector<DisplayCapture> screens, int pointerScreen) {
    FrozenDesktop desktop;
    if (screens.empty())
        return desktop;
    pointerScreen = std::clamp(pointerScreen, 0, int(screens.size()) - 1);
    const std::size_t count = screens[std::size_t(pointerScreen)].windows.size();
    const bool sameLists = std::all_of(screens.begin(), screens.end(), [&](const auto& screen) {
        return screen.windows.size() == count;
    });
    for (std::size_t w = 0; w < count; ++w) {
        CapturedWindow window = screens[std::size_t(pointerScreen)].windows[w];
        // A window list that changed between the grabs cannot be matched up; the pointer's
        // screen then speaks for all.
        if (sameLists)
            for (const DisplayCapture& screen : screens)
                if (screen.geometry.contains(screen.windows[w].frame.center())) {
                    window = screen.windows[w];
                    break;
                }
        desktop.windows.push_back(std::move(window));
    }
    for (DisplayCapture& screen : screens) {
        screen.windows.clear();
        desktop.displays.push_back(std::move(screen));
    }
    return desktop;
}

} // namespace qm
