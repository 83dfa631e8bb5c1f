// The client as the panel and the command use it, against a local server that answers by hand:
// what is sent, how a streamed reply is rebuilt, and every way a request can fail.
#include "ai/core/ClaudeClient.h"

#include "FakeMessagesApi.h"
#include "TestSupport.h"
#include "platform/secrets/api/SecretStore.h"

#include <QBuffer>
#include <QImageReader>
#include <QNetworkAccessManager>
#include <QTcpServer>
#include <gtest/gtest.h>

using namespace qm;
using namespace qm::ai;
using namespace qm::test;
using namespace std::chrono_literals;

namespace {

class FakeKeys final : public platform::SecretStore {
public:
    Result<std::optional<QString>> stored = std::optional<QString>(QStringLiteral("sk-test-key"));
    Status save(const QString&, const QString&) override { return {}; }
    Result<std::optional<QString>> load(const QString& account) override {
        EXPECT_EQ(account, platform::kAnthropicKeyAccount);
        return stored;
    }
    Status remove(const QString&) override { return {}; }
    QString unavailableReason() const override { return {}; }
};

// What one request delivered: every textChanged, and the single finish.
struct Outcome {
    QStringList texts;
    QList<Result<QString>> finishes;
    bool done() const { return !finishes.isEmpty(); }
    QString error() const {
        return finishes.isEmpty() || finishes[0].ok() ? QString() : finishes[0].error().reason;
    }
};

class ClaudeClientTest : public ::testing::Test {
protected:
    void SetUp() override { qputenv("QUILLMARK_API_URL", api.base().toUtf8()); }
    void TearDown() override { qunsetenv("QUILLMARK_API_URL"); }

    AskReply* start(Outcome& outcome, QImage image = QImage(320, 200, QImage::Format_RGB32)) {
        if (!image.isNull())
            image.fill(Qt::darkCyan);
        AskRequest request{
            QStringLiteral("What is this?"), {image}, QStringLiteral("claude-sonnet-5"), 4096};
        AskReply* reply = client.ask(request, &context);
        QObject::connect(reply, &AskReply::textChanged, &context,
                         [&outcome](const QString& text) { outcome.texts << text; });
        QObject::connect(reply, &AskReply::finished, &context,
                         [&outcome](const Result<QString>& r) { outcome.finishes << r; });
        return reply;
    }
    Outcome askAndWait(QImage image = QImage(320, 200, QImage::Format_RGB32)) {
        Outcome outcome;
        start(outcome, std::move(image));
        EXPECT_TRUE(waitUntil([&] { return outcome.done(); }));
        // Exactly once, even after the connection closes behind it.
        QCoreApplication::processEvents();
        EXPECT_EQ(outcome.finishes.size(), 1);
        return outcome;
    }

    FakeMessagesApi api;
    FakeKeys keys;
    QNetworkAccessManager network;
    ClaudeClient client{keys, network};
    QObject context;
};

TEST_F(ClaudeClientTest, StreamsTheTextBlocksAroundAToolUseBlockAsTheyArrive) {
    Outcome outcome;
    api.respond = [](QTcpSocket* socket) {
        socket->write(FakeMessagesApi::openStream() + FakeMessagesApi::messageStart() +
                      FakeMessagesApi::textStart(0) +
                      FakeMessagesApi::textDelta(0, QStringLiteral("Hello")));
    };
    start(outcome, QImage(3000, 2000, QImage::Format_ARGB32));
    // The first piece shows before the reply is complete.
    ASSERT_TRUE(waitUntil([&] { return outcome.texts.contains(QStringLiteral("Hello")); }));
    EXPECT_FALSE(outcome.done());
    // The rest, with an event cut in the middle of its data line across two writes.
    const QByteArray rest = FakeMessagesApi::textDelta(0, QStringLiteral(", wörld")) +
                            FakeMessagesApi::blockStop(0) + FakeMessagesApi::toolUse(1) +
                            FakeMessagesApi::textStart(2) +
                            FakeMessagesApi::textDelta(2, QStringLiteral("Second block.")) +
                            FakeMessagesApi::blockStop(2) + FakeMessagesApi::messageStop();
    api.last->write(rest.left(20));
    api.last->flush();
    ASSERT_TRUE(waitUntil([&] { return api.last->bytesToWrite() == 0; }));
    api.last->write(rest.mid(20));
    api.last->disconnectFromHost();
    ASSERT_TRUE(waitUntil([&] { return outcome.done(); }));
    ASSERT_TRUE(outcome.finishes[0].ok()) << outcome.error().toStdString();
    EXPECT_EQ(*outcome.finishes[0], QStringLiteral("Hello, wörld\nSecond block."));
    EXPECT_EQ(outcome.texts.last(), *outcome.finishes[0]);

    // What went out: the headers, and a body with the shrunken JPEG before the prompt.
    ASSERT_EQ(api.requests.size(), 1);
    const FakeMessagesApi::Request& sent = api.requests[0];
    EXPECT_EQ(sent.method, "POST");
    EXPECT_EQ(sent.path, "/v1/messages");
    EXPECT_EQ(sent.headers.value("x-api-key"), "sk-test-key");
    EXPECT_EQ(sent.headers.value("anthropic-version"), "2023-06-01");
    EXPECT_EQ(sent.headers.value("content-type"), "application/json");
    const QJsonObject body = sent.json();
    EXPECT_EQ(body.value(QStringLiteral("model")).toString(), QStringLiteral("claude-sonnet-5"));
    EXPECT_EQ(body.value(QStringLiteral("max_tokens")).toInt(), 4096);
    EXPECT_TRUE(body.value(QStringLiteral("stream")).toBool());
    const QJsonArray messages = body.value(QStringLiteral("messages")).toArray();
    ASSERT_EQ(messages.size(), 1);
    EXPECT_EQ(messages[0][QStringLiteral("role")].toString(), QStringLiteral("user"));
    const QJsonArray content = messages[0][QStringLiteral("content")].toArray();
    ASSERT_EQ(content.size(), 2);
    const QJsonObject source = content[0][QStringLiteral("source")].toObject();
    EXPECT_EQ(content[0][QStringLiteral("type")].toString(), QStringLiteral("image"));
    EXPECT_EQ(source[QStringLiteral("type")].toString(), QStringLiteral("base64"));
    EXPECT_EQ(source[QStringLiteral("media_type")].toString(), QStringLiteral("image/jpeg"));
    QByteArray jpeg = QByteArray::fromBase64(source[QStringLiteral("data")].toString().toLatin1(),
                                             QByteArray::AbortOnBase64DecodingErrors);
    QBuffer buffer(&jpeg);
    QImageReader reader(&buffer, "jpeg");
    EXPECT_EQ(reader.size(), QSize(1568, 1045));
    EXPECT_EQ(content[1][QStringLiteral("type")].toString(), QStringLiteral("text"));
    EXPECT_EQ(content[1][QStringLiteral("text")].toString(), QStringLiteral("What is this?"));
}

TEST_F(ClaudeClientTest, UploadsShrinkOnlyLargeImagesKeepingTheLongSideExact) {
    const auto sizeOf = [](const QImage& image) {
        QByteArray jpeg = ClaudeClient::jpegForUpload(image).value_or(QByteArray());
        QBuffer buffer(&jpeg);
        return QImageReader(&buffer, "jpeg").size();
    };
    EXPECT_EQ(sizeOf(QImage(3000, 2000, QImage::Format_RGB32)), QSize(1568, 1045));
    EXPECT_EQ(sizeOf(QImage(2000, 3000, QImage::Format_RGB32)), QSize(1045, 1568));
    EXPECT_EQ(sizeOf(QImage(1000, 600, QImage::Format_RGB32)), QSize(1000, 600));
    EXPECT_EQ(sizeOf(QImage(1568, 1568, QImage::Format_ARGB32)), QSize(1568, 1568));
    EXPECT_EQ(sizeOf(QImage(6272, 3, QImage::Format_RGB32)), QSize(1568, 1));
    EXPECT_FALSE(ClaudeClient::jpegForUpload(QImage()).has_value());

    // Nothing to send is reported without a request.
    const Outcome outcome = askAndWait(QImage());
    EXPECT_EQ(outcome.error(), QStringLiteral("Couldn't encode the capture."));
    EXPECT_EQ(api.connections, 0);
}

TEST_F(ClaudeClientTest, AnErrorReplySaysWhatTheServerSaidOrItsStatus) {
    struct Case {
        int status;
        QByteArray type;
        QByteArray body;
        QString expected;
    };
    const QList<Case> cases = {
        {401, "application/json",
         R"({"type":"error","error":{"type":"authentication_error","message":"invalid x-api-key"}})",
         QStringLiteral("invalid x-api-key")},
        {429, "application/json",
         R"({"type":"error","error":{"type":"rate_limit_error","message":"Slow down."}})",
         QStringLiteral("Slow down.")},
        {500, "text/html", "<html><body>Internal error</body></html>", QStringLiteral("HTTP 500")},
        {529, "application/json", "", QStringLiteral("HTTP 529")},
        {400, "application/json", R"({"error":{"message":42}})", QStringLiteral("HTTP 400")},
        {404, "application/json", R"(["error"])", QStringLiteral("HTTP 404")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.status);
        api.respond = [&c](QTcpSocket* s) { FakeMessagesApi::reply(s, c.status, c.type, c.body); };
        EXPECT_EQ(askAndWait().error(), c.expected);
    }
    // Nothing is retried.
    EXPECT_EQ(api.requests.size(), cases.size());
}

TEST_F(ClaudeClientTest, AReplyWithoutTextFailsAndAWholeReplyIsReadLikeAStream) {
    const QList<QByteArray> noText = {
        "not json at all",
        R"({"content":"a string, not blocks"})",
        R"({"content":[{"type":"tool_use","id":"t","name":"x","input":{}},{"type":"text"}]})",
    };
    for (const QByteArray& body : noText) {
        SCOPED_TRACE(body.toStdString());
        api.respond = [&body](QTcpSocket* s) {
            FakeMessagesApi::reply(s, 200, "application/json", body);
        };
        EXPECT_EQ(askAndWait().error(), QStringLiteral("The reply contained no text."));
    }
    // A stream of nothing but a tool-use block.
    api.respond = [](QTcpSocket* s) {
        s->write(FakeMessagesApi::openStream() + FakeMessagesApi::messageStart() +
                 FakeMessagesApi::toolUse(0) + FakeMessagesApi::messageStop());
        s->disconnectFromHost();
    };
    EXPECT_EQ(askAndWait().error(), QStringLiteral("The reply contained no text."));

    // A server that answers all at once is still understood, its text not trimmed.
    api.respond = [](QTcpSocket* s) {
        FakeMessagesApi::reply(
            s, 200, "application/json",
            R"({"content":[{"type":"text","text":" One "},{"type":"tool_use","id":"t"},)"
            R"({"type":"text","text":"Two"}]})");
    };
    const Outcome whole = askAndWait();
    ASSERT_TRUE(whole.finishes[0].ok());
    EXPECT_EQ(*whole.finishes[0], QStringLiteral(" One \nTwo"));
}

TEST_F(ClaudeClientTest, AStreamThatFailsOrStopsHalfWayKeepsTheTextSoFar) {
    // The API reports an overload in the middle of the stream.
    api.respond = [](QTcpSocket* s) {
        s->write(FakeMessagesApi::openStream() + FakeMessagesApi::textStart(0) +
                 FakeMessagesApi::textDelta(0, QStringLiteral("Partial")) +
                 FakeMessagesApi::event(
                     {{QStringLiteral("type"), QStringLiteral("error")},
                      {QStringLiteral("error"),
                       QJsonObject{{QStringLiteral("type"), QStringLiteral("overloaded_error")},
                                   {QStringLiteral("message"), QStringLiteral("Overloaded")}}}}));
    };
    Outcome failed = askAndWait();
    EXPECT_EQ(failed.texts, QStringList{QStringLiteral("Partial")});
    EXPECT_EQ(failed.error(), QStringLiteral("Overloaded"));

    // The connection closes before the message ends.
    api.respond = [](QTcpSocket* s) {
        s->write(FakeMessagesApi::openStream() + FakeMessagesApi::textStart(0) +
                 FakeMessagesApi::textDelta(0, QStringLiteral("Half a sen")));
        s->disconnectFromHost();
    };
    Outcome cut = askAndWait();
    EXPECT_EQ(cut.texts.value(cut.texts.size() - 1), QStringLiteral("Half a sen"));
    EXPECT_TRUE(cut.error().contains(QStringLiteral("cut off"))) << cut.error().toStdString();
}

TEST_F(ClaudeClientTest, TransportFailuresPassThroughWithoutRetrying) {
    // A server that accepts and never answers.
    client.setTransferTimeout(150ms);
    EXPECT_EQ(askAndWait().error(), QStringLiteral("The request timed out."));
    EXPECT_EQ(api.connections, 1);

    // Nobody listening.
    QTcpServer closed;
    ASSERT_TRUE(closed.listen(QHostAddress::LocalHost));
    const quint16 port = closed.serverPort();
    closed.close();
    qputenv("QUILLMARK_API_URL", QByteArray("http://127.0.0.1:") + QByteArray::number(port));
    EXPECT_EQ(askAndWait().error(), QStringLiteral("Connection refused"));
}

TEST_F(ClaudeClientTest, AReplyOverTwentyMegabytesIsStopped) {
    const QByteArray huge(ClaudeClient::kMaxReplyBytes + 1024 * 1024, 'x');
    api.respond = [&huge](QTcpSocket* s) {
        s->write(FakeMessagesApi::head(200, "application/json") +
                 "Content-Length: " + QByteArray::number(huge.size()) + "\r\n\r\n");
        s->write(huge);
    };
    EXPECT_EQ(askAndWait().error(),
              QStringLiteral("The reply was larger than 20 MB, so it was stopped."));
}

TEST_F(ClaudeClientTest, NoKeyMeansNoTraffic) {
    const QString noKey = QStringLiteral("No API key set — add one in Settings → AI.");
    keys.stored = std::optional<QString>(QString());
    EXPECT_EQ(askAndWait().error(), noKey);
    keys.stored = std::optional<QString>();
    EXPECT_EQ(askAndWait().error(), noKey);
    // A keyring that can't be reached says so.
    keys.stored = failure(QStringLiteral("No keyring answers on the session bus."));
    EXPECT_EQ(askAndWait().error(), QStringLiteral("No keyring answers on the session bus."));
    EXPECT_EQ(api.connections, 0);
}

TEST_F(ClaudeClientTest, ACancelledOrDeletedRequestReportsNothingMore) {
    api.respond = [](QTcpSocket* s) {
        s->write(FakeMessagesApi::openStream() + FakeMessagesApi::textStart(0) +
                 FakeMessagesApi::textDelta(0, QStringLiteral("Hi")));
    };
    for (const bool deleteIt : {false, true}) {
        SCOPED_TRACE(deleteIt ? "deleted" : "cancelled");
        Outcome outcome;
        AskReply* reply = start(outcome);
        ASSERT_TRUE(waitUntil([&] { return !outcome.texts.isEmpty(); }));
        if (deleteIt)
            delete reply;
        else
            reply->cancel();
        // The connection is dropped; what the server still sends is not reported.
        QPointer<QTcpSocket> socket = api.last;
        ASSERT_TRUE(waitUntil(
            [&] { return !socket || socket->state() == QAbstractSocket::UnconnectedState; }));
        QCoreApplication::processEvents();
        EXPECT_EQ(outcome.texts, QStringList{QStringLiteral("Hi")});
        EXPECT_FALSE(outcome.done());
        if (!deleteIt)
            delete reply;
    }
}

} // namespace
