#include "platform/capture/null/NullCaptureBackend.h"

#include <QTimer>

namespace qm::platform {

NullCaptureBackend::NullCaptureBackend(QString reason)
    : m_reason(std::move(reason)) {}

CaptureFailure NullCaptureBackend::failure() const {
    return CaptureFailure{CaptureError::CaptureFailed, m_reason};
}

void NullCaptureBackend::fetchContent(BackendCompletion<ShareableContent> done) {
    QTimer::singleShot(0, &m_context, [done, f = failure()] { done(f); });
}

void NullCaptureBackend::grabDisplay(const QRect&, BackendCompletion<QImage> done) {
    QTimer::singleShot(0, &m_context, [done, f = failure()] { done(f); });
}

void NullCaptureBackend::grabWindow(std::uint32_t, BackendCompletion<WindowImage> done) {
    QTimer::singleShot(0, &m_context, [done, f = failure()] { done(f); });
}

} // namespace qm::platform
