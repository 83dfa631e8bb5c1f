#include "platform/input/null/NullClickSource.h"

namespace qm::platform {

NullClickSource::NullClickSource(QString reason)
    : m_reason(std::move(reason)) {}

QString NullClickSource::defaultReason() {
    return QStringLiteral("Click highlights need an X11 session");
}

Result<std::unique_ptr<ClickWatch>> NullClickSource::watch(ClickSink) {
    return failure(m_reason);
}

} // namespace qm::platform
