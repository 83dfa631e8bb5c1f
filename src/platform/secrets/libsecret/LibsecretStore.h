#pragma once

#include "platform/secrets/api/SecretStore.h"

#include <memory>

namespace qm::platform {

// Secrets in the desktop keyring through the freedesktop Secret Service. Items carry the
// attributes service = "com.quillworks.quillmark" and account = the account name, so
// `secret-tool lookup service com.quillworks.quillmark account NAME` finds them too.
class LibsecretStore final : public SecretStore {
public:
    // The store, or why no keyring answers on the session bus (no bus, or nothing there that
    // owns or can start the Secret Service).
    static Result<std::unique_ptr<LibsecretStore>> open();

    Status save(const QString& account, const QString& secret) override;
    Result<std::optional<QString>> load(const QString& account) override;
    Status remove(const QString& account) override;
    QString unavailableReason() const override { return {}; }

private:
    LibsecretStore() = default;
};

} // namespace qm::platform
