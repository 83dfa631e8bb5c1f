#pragma once

#include "platform/secrets/api/SecretStore.h"

namespace qm::platform {

// Stands in where no keyring answers: nothing is kept, and every call says why.
class NullSecretStore final : public SecretStore {
public:
    explicit NullSecretStore(QString reason);

    Status save(const QString& account, const QString& secret) override;
    Result<std::optional<QString>> load(const QString& account) override;
    Status remove(const QString& account) override;
    QString unavailableReason() const override { return m_reason; }

private:
    QString m_reason;
};

} // namespace qm::platform
