#include "platform/secrets/null/NullSecretStore.h"

namespace qm::platform {

NullSecretStore::NullSecretStore(QString reason)
    : m_reason(std::move(reason)) {}

Status NullSecretStore::save(const QString&, const QString&) {
    return failure(m_reason);
}

Result<std::optional<QString>> NullSecretStore::load(const QString&) {
    return failure(m_reason);
}

Status NullSecretStore::remove(const QString&) {
    return failure(m_reason);
}

} // namespace qm::platform
