#include "media/ui/VideoSurface.h"

#include <QPainter>

namespace qm::media::ui {

VideoSurface::VideoSurface(QWidget* parent)
    : QWidget(parent) {
    setAttribute(Qt::WA_OpaquePaintEvent);
    setMinimumSize(160, 90);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
}

void VideoSurface::setPicture(const QImage& picture) {
    m_picture = picture;
    update();
}

QRect VideoSurface::pictureRect() const {
    if (m_picture.isNull())
        return {};
    const QSize fitted = m_picture.size().scaled(size(), Qt::KeepAspectRatio);
    return QRect(QPoint((width() - fitted.width()) / 2, (height() - fitted.height()) / 2), fitted);
}

void VideoSurface::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), Qt::black);
    if (m_picture.isNull())
        return;
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(pictureRect(), m_picture);
}

} // namespace qm::media::ui
