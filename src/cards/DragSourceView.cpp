#include "cards/DragSourceView.h"

#include <QDrag>
#include <QMimeData>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPointer>
#include <QUrl>

namespace qm {

namespace {
QRectF fitted(QSizeF image, const QRectF& into) {
    if (image.isEmpty())
        return into;
    const QSizeF size = image.scaled(into.size(), Qt::KeepAspectRatio);
    return QRectF(into.center() - QPointF(size.width() / 2, size.height() / 2), size);
}
} // namespace

DragSourceView::DragSourceView(QWidget* parent)
    : QWidget(parent) {
    setObjectName(QStringLiteral("thumbnail"));
    setFocusPolicy(Qt::NoFocus);
    setToolTip(QStringLiteral("Click to annotate · drag out to export the file"));
    setAccessibleName(QStringLiteral("Annotate"));
    m_gesture.onStartDrag = [this](const QString& file) { runDrag(file); };
}

void DragSourceView::configure(const QImage& image, std::function<void()> onClick,
                               DragOutGesture::FileProvider fileURL,
                               DragOutGesture::ImageProvider fullImage) {
    if (image != m_image) {
        m_image = image;
        // A tiny copy, drawn enlarged, is a soft blur of the capture.
        m_backdrop = image.isNull() ? QImage()
                                    : image.scaled(QSize(24, 24), Qt::KeepAspectRatioByExpanding,
                                                   Qt::SmoothTransformation);
        update();
    }
    m_gesture.configure(image, std::move(onClick), std::move(fileURL), std::move(fullImage));
}

void DragSourceView::setHoverProgress(double progress) {
    m_hover = progress;
    update();
}

void DragSourceView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    const QRectF bounds(rect());
    QPainterPath card;
    card.addRoundedRect(bounds, cornerRadius, cornerRadius);
    painter.setClipPath(card);
    painter.fillRect(bounds, QColor(30, 30, 33));
    if (!m_image.isNull()) {
        // Where the capture's shape leaves bands, a dimmed blur of it fills them.
        const QSizeF filled =
            QSizeF(m_backdrop.size()).scaled(bounds.size(), Qt::KeepAspectRatioByExpanding);
        painter.drawImage(
            QRectF(bounds.center() - QPointF(filled.width() / 2, filled.height() / 2), filled),
            m_backdrop);
        painter.fillRect(bounds, QColor(18, 18, 20, 150));
        painter.drawImage(fitted(QSizeF(m_image.size()), bounds), m_image);
    }

    if (m_hover > 0.0) {
        // Shade the top and bottom so the white symbols read on any capture.
        painter.setOpacity(m_hover);
        QLinearGradient shade(bounds.topLeft(), bounds.bottomLeft());
        shade.setColorAt(0.0, QColor(0, 0, 0, 120));
        shade.setColorAt(0.32, QColor(0, 0, 0, 30));
        shade.setColorAt(0.62, QColor(0, 0, 0, 40));
        shade.setColorAt(1.0, QColor(0, 0, 0, 150));
        painter.fillRect(bounds, shade);
        painter.setOpacity(1.0);
    }
    painter.setClipping(false);
    // A hairline rim keeps the card apart from captures of the same colour as the desktop.
    painter.setPen(QPen(QColor(255, 255, 255, int(40 + 50 * m_hover)), 1.0));
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(bounds.adjusted(0.5, 0.5, -0.5, -0.5), cornerRadius - 0.5,
                            cornerRadius - 0.5);
}

void DragSourceView::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton)
        return QWidget::mousePressEvent(event);
    m_gesture.press(event->position());
}

void DragSourceView::mouseMoveEvent(QMouseEvent* event) {
    if (event->buttons() & Qt::LeftButton)
        m_gesture.move(event->position());
}

void DragSourceView::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton)
        m_gesture.release();
}

void DragSourceView::runDrag(const QString& file) {
    QPointer<DragSourceView> self(this);
    auto* drag = new QDrag(this);
    auto* mime = new QMimeData;
    mime->setUrls({QUrl::fromLocalFile(file)});
    drag->setMimeData(mime);
    if (!m_image.isNull()) {
        // The picture under the pointer while dragging: the thumbnail at the card's size.
        const qreal ratio = devicePixelRatioF();
        QPixmap picture =
            QPixmap::fromImage(m_image.scaled((QSizeF(size()) * ratio * 0.6).toSize(),
                                              Qt::KeepAspectRatio, Qt::SmoothTransformation));
        picture.setDevicePixelRatio(ratio);
        drag->setPixmap(picture);
        drag->setHotSpot(QPoint(int(picture.deviceIndependentSize().width() / 2),
                                int(picture.deviceIndependentSize().height() / 2)));
    }
    if (onDragChanged)
        onDragChanged(true);
    drag->exec(Qt::CopyAction);
    if (!self)
        return;
    m_gesture.dragEnded();
    if (onDragChanged)
        onDragChanged(false);
}

} // namespace qm
