#pragma once

#include "platform/input/api/ClickSource.h"

namespace qm::platform {

// Sees no clicks and says why.
class NullClickSource final : public ClickSourceBackend {
public:
    explicit NullClickSource(QString reason = defaultReason());
    static QString defaultReason();

    QString name() const override { return QStringLiteral("null"); }
    Result<std::unique_ptr<ClickWatch>> watch(ClickSink onClick) override;

private:
    QString m_reason;
};

} // namespace qm::platform
