#pragma once

#include "base/Result.h"

#include <QImage>
#include <QList>
#include <QObject>
#include <QString>
#include <QUrl>
#include <chrono>
#include <optional>

class QNetworkAccessManager;

namespace qm::platform {
class SecretStore;
}

namespace qm::ai {

// One of the ready-made questions of the AI panel and `quillmark ask --action`.
struct AIAction {
    QString id;    // "describe", "explain-error", "extract", "bug-report"
    QString title; // "Describe", …
    QString icon;  // freedesktop icon name
    QString prompt;
    bool operator==(const AIAction&) const = default;
};
// The four actions in display order.
const QList<AIAction>& aiActions();
std::optional<AIAction> aiAction(const QString& id);

// The models offered, identifier and display name, in order (the first is the default).
struct AIModel {
    QString id;
    QString name;
};
const QList<AIModel>& aiModels();
// The display name of a model identifier, or the identifier itself when it is not listed.
QString modelName(const QString& id);

struct AskRequest {
    QString prompt;
    QList<QImage> images;
    QString model;
    int maxTokens = 4096;
};

// One request on its way: the reply's text arrives in pieces as it streams, then the request
// ends exactly once with the whole text or the reason it failed. Deleting it (or cancel())
// aborts the request; nothing is reported after that.
class AskReply : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    virtual void cancel() = 0;

Q_SIGNALS:
    // The text so far (all of it, not the piece), as it streams in.
    void textChanged(const QString& textSoFar);
    // The joined text of the reply, or the error's message.
    void finished(const qm::Result<QString>& reply);
};

// Sends capture images and a prompt to Anthropic's Messages API with the key from the
// keyring, streaming the reply. Nothing is retried. The address is the vendor's unless
// QUILLMARK_API_URL points elsewhere (tests only).
class ClaudeClient : public QObject {
    Q_OBJECT
public:
    ClaudeClient(platform::SecretStore& keys, QNetworkAccessManager& network,
                 QObject* parent = nullptr);

    // Starts the request; the reply is owned by the caller (parented to `context` when given).
    AskReply* ask(const AskRequest& request, QObject* context = nullptr);

    // JPEG at quality 85, never larger than `maxSide` on its longer side; nothing when the
    // image can't be encoded.
    static std::optional<QByteArray> jpegForUpload(const QImage& image, int maxSide = 1568);
    // The Messages endpoint (…/v1/messages).
    static QUrl endpoint();

    // How long a request may go without any data moving before it fails (120 s; shorter in
    // tests).
    void setTransferTimeout(std::chrono::milliseconds timeout) { m_timeout = timeout; }
    // A reply larger than this is stopped rather than held in memory.
    static constexpr qint64 kMaxReplyBytes = 20LL * 1024 * 1024;

private:
    platform::SecretStore& m_keys;
    QNetworkAccessManager& m_network;
    std::chrono::milliseconds m_timeout = std::chrono::seconds(120);
};

} // namespace qm::ai
