#pragma once

#include "base/Result.h"

#include <QString>
#include <optional>

namespace qm::platform {

// Where the Anthropic API key is kept: never in the settings file, a log or a command line.
inline const QString kAnthropicKeyAccount = QStringLiteral("anthropic-api-key");

// Secrets in the desktop's keyring (the freedesktop Secret Service, which GNOME Keyring,
// KWallet and KeePassXC answer), filed under the service "com.quillworks.quillmark" and an
// account name. Calls may wait on the keyring (an unlock prompt): call them off the GUI thread
// where that matters.
class SecretStore {
public:
    virtual ~SecretStore() = default;

    // Stores the secret, replacing the one already kept for the account.
    virtual Status save(const QString& account, const QString& secret) = 0;
    // The account's secret, or nothing when none is kept; an error when the keyring can't be
    // reached or stays locked.
    virtual Result<std::optional<QString>> load(const QString& account) = 0;
    // Removes the account's secret; one that is not there counts as removed.
    virtual Status remove(const QString& account) = 0;

    // Why no keyring can be used here, in one sentence, or empty when one can.
    virtual QString unavailableReason() const = 0;
};

} // namespace qm::platform
