#include "cards/DragOutGesture.h"

#include "base/ImageExport.h"

#include <QFileInfo>
#include <QFutureWatcher>
#include <QLineF>
#include <QtConcurrent/QtConcurrentRun>

namespace qm {

DragOutGesture::DragOutGesture(QObject* parent)
    : QObject(parent)
    , m_tempWriter([](const QImage& image) {
        const Result<QString> path =
            ImageExport::writeTempPNG(image, ImageExport::screenshotPrefix);
        return path ? std::optional<QString>(*path) : std::nullopt;
    }) {}

DragOutGesture::~DragOutGesture() = default;

void DragOutGesture::configure(QImage image, std::function<void()> onClick, FileProvider fileURL,
                               ImageProvider fullImage) {
    m_image = std::move(image);
    m_onClick = std::move(onClick);
    m_fileURL = std::move(fileURL);
    m_fullImage = std::move(fullImage);
}

void DragOutGesture::setTempWriter(TempWriter writer) {
    m_tempWriter = std::move(writer);
}

void DragOutGesture::press(QPointF point) {
    m_downPoint = point;
    m_didStartDrag = false;
    m_wantsDrag = false;
    m_lastDragPoint.reset();
    m_pendingURL.reset();

    if (m_fileURL) {
        if (const auto file = m_fileURL(); file && QFileInfo(*file).isFile()) {
            m_pendingURL = *file;
            return;
        }
    }
    QImage image = m_fullImage ? m_fullImage() : QImage();
    if (image.isNull())
        image = m_image;
    if (image.isNull())
        return;

    const int generation = ++m_encodeGeneration;
    // The watcher is a child: once this gesture is gone, a late result lands nowhere.
    auto* watcher = new QFutureWatcher<std::optional<QString>>(this);
    connect(watcher, &QFutureWatcher<std::optional<QString>>::finished, this,
            [this, watcher, generation] {
                watcher->deleteLater();
                const std::optional<QString> file = watcher->result();
                // A newer press owns the drag; this file belongs to nobody.
                if (generation == m_encodeGeneration && file) {
                    m_pendingURL = *file;
                    startDragIfReady();
                }
                Q_EMIT encodingFinished(generation);
            });
    watcher->setFuture(QtConcurrent::run(
        [writer = m_tempWriter, image = std::move(image)] { return writer(image); }));
}

void DragOutGesture::move(QPointF point) {
    if (m_didStartDrag || !m_downPoint)
        return;
    m_lastDragPoint = point;
    if (QLineF(*m_downPoint, point).length() > dragThreshold)
        m_wantsDrag = true;
    startDragIfReady();
}

void DragOutGesture::release() {
    if (!m_wantsDrag && !m_didStartDrag && m_onClick)
        m_onClick();
    m_wantsDrag = false;
    // Anything still encoding for this press has nothing left to start.
    m_downPoint.reset();
}

void DragOutGesture::dragEnded() {
    m_downPoint.reset();
    m_wantsDrag = false;
}

void DragOutGesture::startDragIfReady() {
    if (!m_wantsDrag || m_didStartDrag || !m_pendingURL || !m_lastDragPoint)
        return;
    m_didStartDrag = true;
    if (onStartDrag)
        onStartDrag(*m_pendingURL);
}

} // namespace qm
