#include "recorder/ui/RippleView.h"

#include "ui/FloatingWindow.h"

#include <QGuiApplication>
#include <QPaintEvent>
#include <QPainter>
#include <QPalette>
#include <algorithm>
#include <cmath>

namespace qm {

RippleView::RippleView(Clock clock)
    : m_clock(std::move(clock)) {
    setObjectName(QStringLiteral("ClickHighlights"));
    setWindowTitle(QStringLiteral("Quillmark Click Highlights"));
    makeFloatingWindow(this, PointerInput::PassThrough);
    m_frames.setInterval(16);
    connect(&m_frames, &QTimer::timeout, this, &RippleView::advance);
}

RippleView::TimePoint RippleView::now() const {
    return m_clock ? m_clock() : std::chrono::steady_clock::now();
}

double RippleView::eased(double progress) {
    const double t = std::clamp(progress, 0.0, 1.0);
    return 1.0 - (1.0 - t) * (1.0 - t) * (1.0 - t); // ease-out: fast start, gentle landing
}

double RippleView::progress(const Ripple& ripple) const {
    return std::chrono::duration<double>(now() - ripple.start) /
           std::chrono::duration<double>(duration);
}

QRectF RippleView::reach(const Ripple& ripple) const {
    const double radius = (diameter * endScale + lineWidth * endScale) / 2 + 1;
    return {ripple.centre - QPointF(radius, radius), QSizeF(2 * radius, 2 * radius)};
}

void RippleView::addRipple(QPointF centre) {
    m_ripples.push_back({centre, now()});
    updateShape();
    if (!isVisible())
        show();
    raise();
    update(reach(m_ripples.back()).toAlignedRect());
    if (!m_frames.isActive())
        m_frames.start();
}

void RippleView::advance() {
    for (const Ripple& ripple : m_ripples)
        update(reach(ripple).toAlignedRect());
    std::erase_if(m_ripples, [this](const Ripple& ripple) { return progress(ripple) >= 1.0; });
    updateShape();
    if (m_ripples.empty())
        m_frames.stop();
}

void RippleView::updateShape() {
    if (testAttribute(Qt::WA_TranslucentBackground))
        return;
    // Nothing can be see-through: cut the window down to the rings themselves, and take it
    // off the screen between clicks.
    if (m_ripples.empty()) {
        hide();
        return;
    }
    QRegion rings;
    for (const Ripple& ripple : m_ripples) {
        const double scale = startScale + (endScale - startScale) * eased(progress(ripple));
        const double outer = (diameter + lineWidth) * scale / 2;
        const double inner = std::max(0.0, (diameter - lineWidth) * scale / 2);
        auto disc = [&](double r) {
            return QRegion(
                QRectF(ripple.centre - QPointF(r, r), QSizeF(2 * r, 2 * r)).toAlignedRect(),
                QRegion::Ellipse);
        };
        rings += disc(outer).subtracted(disc(inner));
    }
    setMask(rings);
}

void RippleView::paintEvent(QPaintEvent* event) {
    QPainter painter(this);
    const bool seeThrough = testAttribute(Qt::WA_TranslucentBackground);
    if (seeThrough) {
        painter.setCompositionMode(QPainter::CompositionMode_Source);
        painter.fillRect(event->rect(), Qt::transparent);
        painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    }
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor accent = QGuiApplication::palette().color(QPalette::Highlight);
    for (const Ripple& ripple : m_ripples) {
        const double t = eased(progress(ripple));
        const double scale = startScale + (endScale - startScale) * t;
        painter.setOpacity(seeThrough ? startOpacity * (1.0 - t) : 1.0);
        QColor fill = accent;
        fill.setAlphaF(float(fillAlpha));
        painter.setBrush(seeThrough ? QBrush(fill) : QBrush(Qt::NoBrush));
        painter.setPen(QPen(accent, lineWidth * scale));
        const double r = diameter * scale / 2;
        painter.drawEllipse(ripple.centre, r, r);
    }
}

} // namespace qm
