#include "ai/core/ClaudeClient.h"

#include "ai/core/EventStream.h"
#include "platform/secrets/api/SecretStore.h"

#include <QBuffer>
#include <QColorSpace>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPainter>
#include <QPointer>

namespace qm::ai {

namespace {

const QString kNoKey = QStringLiteral("No API key set — add one in Settings → AI.");

// One request in flight: reads the stream as it arrives and ends exactly once.
class StreamingReply final : public AskReply {
public:
    using AskReply::AskReply;
    ~StreamingReply() override { stop(); }

    void start(QNetworkReply* reply) {
        m_reply = reply;
        reply->setParent(this);
        connect(reply, &QNetworkReply::readyRead, this, &StreamingReply::read);
        connect(reply, &QNetworkReply::finished, this, &StreamingReply::ended);
    }

    // Fails after the caller had the chance to connect.
    void failSoon(const QString& reason) {
        QMetaObject::invokeMethod(
            this, [this, reason] { finish(failure(reason)); }, Qt::QueuedConnection);
    }

    void cancel() override {
        m_done = true;
        stop();
    }

private:
    void stop() {
        if (!m_reply)
            return;
        m_reply->disconnect(this);
        m_reply->abort();
        m_reply->deleteLater();
        m_reply = nullptr;
    }

    void finish(const Result<QString>& outcome) {
        if (m_done)
            return;
        m_done = true;
        stop();
        Q_EMIT finished(outcome);
    }

    int status() const {
        return m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    }

    bool streaming() const {
        return status() == 200 && m_reply->header(QNetworkRequest::ContentTypeHeader)
                                      .toString()
                                      .startsWith(QLatin1String("text/event-stream"));
    }

    void read() {
        if (m_done || !m_reply || !m_reply->isOpen())
            return;
        const QByteArray bytes = m_reply->readAll();
        m_received += bytes.size();
        if (m_received > ClaudeClient::kMaxReplyBytes) {
            finish(failure(QStringLiteral("The reply was larger than 20 MB, so it was stopped.")));
            return;
        }
        if (!streaming()) {
            m_body += bytes;
            return;
        }
        m_streamed = true;
        for (const EventStream::Event& event : m_events.feed(bytes)) {
            const QJsonObject object = QJsonDocument::fromJson(event.data).object();
            const MessageStream::Step step = m_message.apply(object);
            if (m_message.textChanged())
                Q_EMIT textChanged(m_message.text());
            if (step == MessageStream::Step::Failed)
                return finish(failure(m_message.error()));
            if (step == MessageStream::Step::Stopped)
                return finish(replyText(m_message.text()));
        }
    }

    static Result<QString> replyText(const QString& text) {
        if (text.isEmpty())
            return failure(QStringLiteral("The reply contained no text."));
        return text;
    }

    void ended() {
        read();
        if (m_done || !m_reply)
            return;
        const QVariant code = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        const QNetworkReply::NetworkError error = m_reply->error();
        if (!code.isValid()) {
            // Our own cancel never gets here, so a cancelled transfer is the timeout.
            if (error == QNetworkReply::OperationCanceledError)
                return finish(failure(QStringLiteral("The request timed out.")));
            if (error != QNetworkReply::NoError)
                return finish(failure(m_reply->errorString()));
            return finish(failure(QStringLiteral("No response from the API.")));
        }
        if (m_streamed)
            return finish(failure(QStringLiteral("The reply was cut off before it was complete; "
                                                 "the text above is all that arrived.")));
        // Anything that is not a JSON object counts as an empty one.
        const QJsonObject body = QJsonDocument::fromJson(m_body).object();
        if (code.toInt() != 200) {
            const QJsonValue message =
                body.value(QLatin1String("error")).toObject().value(QLatin1String("message"));
            if (message.isString())
                return finish(failure(message.toString()));
            return finish(failure(QStringLiteral("HTTP %1").arg(code.toInt())));
        }
        if (error != QNetworkReply::NoError)
            return finish(failure(m_reply->errorString()));
        // A whole reply rather than a stream: read it the same way.
        finish(replyText(textOfMessage(body)));
    }

    QPointer<QNetworkReply> m_reply;
    EventStream m_events;
    MessageStream m_message;
    QByteArray m_body;
    qint64 m_received = 0;
    bool m_streamed = false;
    bool m_done = false;
};

QJsonObject imageBlock(const QByteArray& jpeg) {
    return {{QStringLiteral("type"), QStringLiteral("image")},
            {QStringLiteral("source"),
             QJsonObject{{QStringLiteral("type"), QStringLiteral("base64")},
                         {QStringLiteral("media_type"), QStringLiteral("image/jpeg")},
                         {QStringLiteral("data"), QString::fromLatin1(jpeg.toBase64())}}}};
}

} // namespace

ClaudeClient::ClaudeClient(platform::SecretStore& keys, QNetworkAccessManager& network,
                           QObject* parent)
    : QObject(parent)
    , m_keys(keys)
    , m_network(network) {}

QUrl ClaudeClient::endpoint() {
    QString base = qEnvironmentVariable("QUILLMARK_API_URL");
    if (base.isEmpty())
        base = QStringLiteral("https://api.anthropic.com");
    while (base.endsWith(QLatin1Char('/')))
        base.chop(1);
    return QUrl(base + QStringLiteral("/v1/messages"));
}

AskReply* ClaudeClient::ask(const AskRequest& request, QObject* context) {
    auto* reply = new StreamingReply(context);
    // The key is read for every request, so a key changed in the settings applies at once.
    const auto key = m_keys.load(platform::kAnthropicKeyAccount);
    if (!key) {
        reply->failSoon(key.error().reason);
        return reply;
    }
    if (!key->has_value() || (*key)->isEmpty()) {
        reply->failSoon(kNoKey);
        return reply;
    }
    QJsonArray content;
    for (const QImage& image : request.images)
        if (const auto jpeg = jpegForUpload(image))
            content.append(imageBlock(*jpeg));
    if (content.isEmpty()) {
        reply->failSoon(QStringLiteral("Couldn't encode the capture."));
        return reply;
    }
    content.append(QJsonObject{{QStringLiteral("type"), QStringLiteral("text")},
                               {QStringLiteral("text"), request.prompt}});
    const QJsonObject body{{QStringLiteral("model"), request.model},
                           {QStringLiteral("max_tokens"), request.maxTokens},
                           {QStringLiteral("stream"), true},
                           {QStringLiteral("messages"),
                            QJsonArray{QJsonObject{{QStringLiteral("role"), QStringLiteral("user")},
                                                   {QStringLiteral("content"), content}}}}};

    QNetworkRequest http(endpoint());
    http.setRawHeader("x-api-key", (*key)->toUtf8());
    http.setRawHeader("anthropic-version", "2023-06-01");
    http.setRawHeader("content-type", "application/json");
    http.setRawHeader("accept", "text/event-stream");
    http.setTransferTimeout(int(m_timeout.count()));
    reply->start(m_network.post(http, QJsonDocument(body).toJson(QJsonDocument::Compact)));
    return reply;
}

std::optional<QByteArray> ClaudeClient::jpegForUpload(const QImage& image, int maxSide) {
    if (image.isNull() || maxSide <= 0)
        return std::nullopt;
    const qint64 w = image.width();
    const qint64 h = image.height();
    QImage picture = image;
    if (std::max(w, h) > maxSide) {
        // Whole-number arithmetic: the long side lands on maxSide exactly, the other truncated.
        const int sw = int(w >= h ? maxSide : w * maxSide / h);
        const int sh = int(w >= h ? h * maxSide / w : maxSide);
        picture = image.scaled(std::max(sw, 1), std::max(sh, 1), Qt::IgnoreAspectRatio,
                               Qt::SmoothTransformation);
    }
    if (picture.colorSpace().isValid() && picture.colorSpace() != QColorSpace::SRgb)
        picture.convertToColorSpace(QColorSpace::SRgb);
    // JPEG keeps no transparency: see-through pixels go on white, not black.
    if (picture.hasAlphaChannel()) {
        QImage flat(picture.size(), QImage::Format_RGB32);
        flat.fill(Qt::white);
        QPainter(&flat).drawImage(0, 0, picture);
        picture = flat;
    }
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    if (!picture.save(&buffer, "JPG", 85))
        return std::nullopt;
    return bytes;
}

} // namespace qm::ai
