// `quillmark ask` as a script runs it: no display, no running Quillmark, the key in a real
// keyring, the reply streamed from a local stand-in for the Messages API.
#include "FakeMessagesApi.h"
#include "TestKeyring.h"
#include "TestSupport.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace qm;
using namespace qm::test;

namespace {

const char* const kDescribe = "Describe what this screenshot shows, concisely. Mention the app "
                              "or site if identifiable and anything notable.";

ProcessResult quillmark(const QStringList& args) {
    return run(QStringLiteral(QUILLMARK_BINARY), args, std::chrono::seconds(60));
}

class AskE2ETest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { s_keyring = new TestKeyring; }
    static void TearDownTestSuite() { delete s_keyring; }
    void SetUp() override {
        ASSERT_TRUE(s_keyring->ready());
        qunsetenv("DISPLAY");
        qputenv("QUILLMARK_API_URL", api.base().toUtf8());
        QImage shot(640, 400, QImage::Format_RGB32);
        shot.fill(Qt::darkMagenta);
        image = dir.filePath(QStringLiteral("Quillmark shot.png"));
        ASSERT_TRUE(shot.save(image));
        ASSERT_TRUE(TestKeyring::store(QStringLiteral("anthropic-api-key"), "sk-ant-e2e"));
    }

    static inline TestKeyring* s_keyring = nullptr;
    FakeMessagesApi api;
    QTemporaryDir dir;
    QString image;
};

TEST_F(AskE2ETest, PrintsTheStreamedReplyToAnActionOrAQuestion) {
    api.respond = [](QTcpSocket* s) {
        s->write(FakeMessagesApi::twoTextBlocks(QStringLiteral("A purple window."),
                                                QStringLiteral("Nothing else.")));
        s->disconnectFromHost();
    };
    const ProcessResult described = quillmark(
        {QStringLiteral("ask"), image, QStringLiteral("--action"), QStringLiteral("describe")});
    EXPECT_EQ(described.exitCode, 0) << described.err.toStdString();
    EXPECT_EQ(described.out, "A purple window.\nNothing else.\n");
    ASSERT_EQ(api.requests.size(), 1);
    const QJsonObject body = api.requests[0].json();
    EXPECT_EQ(api.requests[0].headers.value("x-api-key"), "sk-ant-e2e");
    // The model the settings name by default.
    EXPECT_EQ(body[QStringLiteral("model")].toString(), QStringLiteral("claude-sonnet-5"));
    const QJsonArray content =
        body[QStringLiteral("messages")][0][QStringLiteral("content")].toArray();
    ASSERT_EQ(content.size(), 2);
    EXPECT_EQ(content[1][QStringLiteral("text")].toString(), QString::fromUtf8(kDescribe));

    const ProcessResult asked = quillmark(
        {QStringLiteral("ask"), image, QStringLiteral("What"), QStringLiteral("colour is it?")});
    EXPECT_EQ(asked.exitCode, 0) << asked.err.toStdString();
    ASSERT_EQ(api.requests.size(), 2);
    EXPECT_EQ(api.requests[1]
                  .json()[QStringLiteral("messages")][0][QStringLiteral("content")][1]
                         [QStringLiteral("text")]
                  .toString(),
              QStringLiteral("What colour is it?"));
}

TEST_F(AskE2ETest, FailuresSayWhyOnStderr) {
    const QStringList describe = {QStringLiteral("--action"), QStringLiteral("describe")};
    // A stream cut off half-way: what arrived is printed, and the reason follows.
    api.respond = [](QTcpSocket* s) {
        s->write(FakeMessagesApi::openStream() + FakeMessagesApi::textStart(0) +
                 FakeMessagesApi::textDelta(0, QStringLiteral("The window sh")));
        s->disconnectFromHost();
    };
    const ProcessResult cut = quillmark(QStringList{QStringLiteral("ask"), image} + describe);
    EXPECT_EQ(cut.exitCode, 1);
    EXPECT_EQ(cut.out, "The window sh\n");
    EXPECT_TRUE(cut.err.contains("cut off")) << cut.err.toStdString();

    const QString missing = dir.filePath(QStringLiteral("gone.png"));
    const ProcessResult gone = quillmark(QStringList{QStringLiteral("ask"), missing} + describe);
    EXPECT_EQ(gone.exitCode, 1);
    EXPECT_TRUE(gone.err.contains("does not exist")) << gone.err.toStdString();
    const QString notImage = dir.filePath(QStringLiteral("notes.png"));
    QFile notes(notImage);
    ASSERT_TRUE(notes.open(QIODevice::WriteOnly));
    notes.write("just text");
    notes.close();
    const ProcessResult unreadable =
        quillmark(QStringList{QStringLiteral("ask"), notImage} + describe);
    EXPECT_EQ(unreadable.exitCode, 1);
    EXPECT_TRUE(unreadable.err.contains("could not be read as an image"))
        << unreadable.err.toStdString();

    // No key in the keyring: nothing is sent.
    ASSERT_EQ(run(QStringLiteral("secret-tool"),
                  {QStringLiteral("clear"), QStringLiteral("service"),
                   QStringLiteral("com.quillworks.quillmark"), QStringLiteral("account"),
                   QStringLiteral("anthropic-api-key")})
                  .exitCode,
              0);
    const int before = api.connections;
    const ProcessResult noKey = quillmark(QStringList{QStringLiteral("ask"), image} + describe);
    EXPECT_EQ(noKey.exitCode, 1);
    EXPECT_EQ(QString::fromUtf8(noKey.err),
              QStringLiteral("No API key set — add one in Settings → AI.\n"));
    EXPECT_EQ(api.connections, before);

    // A mistake in the command is a usage error.
    EXPECT_EQ(quillmark({QStringLiteral("ask"), image}).exitCode, 2);
}

TEST_F(AskE2ETest, WithoutAKeyringOnTheBusItSaysSo) {
    // A session bus of its own with nothing on it that could keep secrets.
    QFile config(dir.filePath(QStringLiteral("bus.conf")));
    ASSERT_TRUE(config.open(QIODevice::WriteOnly));
    config.write(QStringLiteral(
                     "<busconfig><type>session</type><listen>unix:dir=%1</listen>"
                     "<auth>EXTERNAL</auth><policy context=\"default\">"
                     "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
                     "<allow own=\"*\"/></policy></busconfig>")
                     .arg(dir.path())
                     .toUtf8());
    config.close();
    QProcess bus;
    bus.start(QStringLiteral("dbus-daemon"),
              {QStringLiteral("--config-file=") + config.fileName(), QStringLiteral("--nofork"),
               QStringLiteral("--print-address=1")});
    ASSERT_TRUE(waitUntil([&] { return bus.canReadLine(); }));
    const QByteArray address = bus.readLine().trimmed();
    QProcess ask;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QString::fromUtf8(address));
    ask.setProcessEnvironment(environment);
    ask.start(
        QStringLiteral(QUILLMARK_BINARY),
        {QStringLiteral("ask"), image, QStringLiteral("--action"), QStringLiteral("extract")});
    ASSERT_TRUE(
        waitUntil([&] { return ask.state() == QProcess::NotRunning; }, std::chrono::seconds(30)));
    bus.terminate();
    bus.waitForFinished();
    EXPECT_EQ(ask.exitCode(), 1);
    EXPECT_EQ(ask.readAllStandardError(),
              "No keyring answers on the session bus; install GNOME Keyring or KeePassXC to keep "
              "the API key.\n");
    EXPECT_EQ(api.connections, 0);
}

} // namespace
