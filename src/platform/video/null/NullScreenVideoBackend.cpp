#include "platform/video/null/NullScreenVideoBackend.h"

namespace qm::platform {

namespace {

class NullScreenVideoSource final : public ScreenVideoSource {
public:
    explicit NullScreenVideoSource(QString reason)
        : m_reason(std::move(reason)) {}
    Status start(const ScreenVideoRequest&, FrameSink, StopSink) override {
        return failure(m_reason);
    }
    void stop() override {}
    std::uint64_t missedFrames() const override { return 0; }

private:
    QString m_reason;
};

} // namespace

NullScreenVideoBackend::NullScreenVideoBackend(QString reason)
    : m_reason(reason.isEmpty() ? defaultReason() : std::move(reason)) {}

QString NullScreenVideoBackend::defaultReason() {
    return QStringLiteral("Recording the screen needs an X11 session.");
}

std::unique_ptr<ScreenVideoSource> NullScreenVideoBackend::createSource() {
    return std::make_unique<NullScreenVideoSource>(m_reason);
}

} // namespace qm::platform
