#include "media/gif/GIFExportJob.h"

#include <QMetaObject>
#include <QObject>

namespace qm::media {

GIFExportJob::GIFExportJob(GIFExporter::Request request, QObject* context, OnProgress onProgress,
                           OnFinished onFinished) {
    QPointer<QObject> target(context);
    request.cancel = &m_cancel;
    request.progress = [target, onProgress](double fraction) {
        if (!onProgress || !target)
            return;
        QMetaObject::invokeMethod(
            target.data(), [onProgress, fraction] { onProgress(fraction); }, Qt::QueuedConnection);
    };
    m_thread = std::thread([request = std::move(request), target, onFinished] {
        Result<QString> written = GIFExporter::exportRange(request);
        if (!onFinished || !target)
            return;
        QMetaObject::invokeMethod(
            target.data(), [onFinished, written = std::move(written)] { onFinished(written); },
            Qt::QueuedConnection);
    });
}

GIFExportJob::~GIFExportJob() {
    m_cancel = true;
    if (m_thread.joinable())
        m_thread.join();
}

} // namespace qm::media
