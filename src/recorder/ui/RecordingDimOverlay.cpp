#include "recorder/ui/RecordingDimOverlay.h"

#include "ui/FloatingWindow.h"

#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>
#include <QPalette>
#include <QScreen>
#include <QWindow>

namespace qm {

namespace {
QRect outlineBounds(const QRect& hole) {
    const int w = DimView::outlineWidth;
    return hole.adjusted(-w, -w, w, w);
}
} // namespace

DimView::DimView(const QRect& hole)
    : m_hole(hole) {
    setObjectName(QStringLiteral("RecordingDim"));
    setWindowTitle(QStringLiteral("Quillmark Recording Dim"));
    makeFloatingWindow(this, PointerInput::PassThrough);
}

void DimView::resizeEvent(QResizeEvent*) {
    if (testAttribute(Qt::WA_TranslucentBackground))
        return;
    // Opaque window: keep only the outline's ring, the rest of the screen shows through.
    setMask(QRegion(outlineBounds(m_hole)).subtracted(QRegion(m_hole)));
}

void DimView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    if (testAttribute(Qt::WA_TranslucentBackground)) {
        QColor dim(Qt::black);
        dim.setAlphaF(float(dimAlpha));
        painter.fillRect(rect(), dim);
        painter.fillRect(m_hole, Qt::transparent);
    }
    // Four strips, whole pixels, just outside the hole.
    QPainterPath ring;
    ring.setFillRule(Qt::OddEvenFill);
    ring.addRect(QRectF(outlineBounds(m_hole)));
    ring.addRect(QRectF(m_hole));
    painter.fillPath(ring, QGuiApplication::palette().color(QPalette::Highlight));
}

RecordingDimOverlay::RecordingDimOverlay(QObject* parent)
    : QObject(parent) {}

RecordingDimOverlay::~RecordingDimOverlay() {
    close();
}

void RecordingDimOverlay::show(const QRect& area) {
    close();
    for (QScreen* screen : QGuiApplication::screens()) {
        const QRect frame = screen->geometry();
        if (!frame.intersects(outlineBounds(area)))
            continue;
        auto* view = new DimView(area.translated(-frame.topLeft()));
        view->winId();
        view->windowHandle()->setScreen(screen);
        view->setGeometry(frame);
        view->show();
        view->raise();
        m_windows.emplace_back(view);
    }
}

void RecordingDimOverlay::close() {
    for (const auto& window : m_windows)
        delete window.data();
    m_windows.clear();
}

std::vector<DimView*> RecordingDimOverlay::windows() const {
    std::vector<DimView*> shown;
    for (const auto& window : m_windows)
        if (window)
            shown.push_back(window);
    return shown;
}

} // namespace qm
