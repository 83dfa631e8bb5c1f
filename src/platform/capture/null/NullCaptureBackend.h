#pragma once

#include "platform/capture/api/ScreenCaptureBackend.h"

#include <QObject>

namespace qm::platform {

// The backend for sessions where nothing can be captured: every request fails with the reason
// the user is shown.
class NullCaptureBackend final : public ScreenCaptureBackend {
public:
    explicit NullCaptureBackend(QString reason);

    QString name() const override { return QStringLiteral("null"); }
    QString unavailableReason() const override { return m_reason; }

    void fetchContent(BackendCompletion<ShareableContent> done) override;
    std::vector<ServerWindow> windowList() override { return {}; }
    void grabDisplay(const QRect& pixelRect, BackendCompletion<QImage> done) override;
    void grabWindow(std::uint32_t id, BackendCompletion<WindowImage> done) override;
    std::optional<std::uint32_t> activeWindow() override { return std::nullopt; }

private:
    CaptureFailure failure() const;

    QString m_reason;
    QObject m_context; // completions are posted to it, so they die with the backend
};

} // namespace qm::platform
