#include "ai/ui/AIQueryController.h"

#include "FakeMessagesApi.h"
#include "TestSupport.h"
#include "ai/core/ClaudeClient.h"
#include "ai/ui/AIQueryView.h"
#include "base/Preferences.h"
#include "base/SettingsStore.h"
#include "platform/secrets/api/SecretStore.h"
#include "ui/ToastCenter.h"

#include <QLabel>
#include <QNetworkAccessManager>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTextBrowser>
#include <gtest/gtest.h>

namespace qm::ai {
namespace {

// A keyring holding what the test puts in it.
class FakeSecretStore final : public platform::SecretStore {
public:
    std::optional<QString> key;
    Status save(const QString&, const QString& secret) override {
        key = secret;
        return {};
    }
    Result<std::optional<QString>> load(const QString&) override { return key; }
    Status remove(const QString&) override {
        key.reset();
        return {};
    }
    QString unavailableReason() const override { return {}; }
};

class AIQueryControllerTest : public ::testing::Test {
protected:
    void SetUp() override {
        qputenv("QUILLMARK_API_URL", api.base().toUtf8());
        keys.key = QStringLiteral("sk-test");
    }
    void TearDown() override { qunsetenv("QUILLMARK_API_URL"); }

    std::unique_ptr<AIQueryController> open(const QImage& image) {
        auto controller = std::make_unique<AIQueryController>(
            AIQueryController::Services{prefs, client, keys, toasts}, image);
        controller->show();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(controller->window()));
        return controller;
    }

    QTemporaryDir dir;
    IniSettingsStore store{dir.filePath(QStringLiteral("q.conf"))};
    Preferences prefs{store};
    test::FakeMessagesApi api;
    FakeSecretStore keys;
    QNetworkAccessManager network;
    ClaudeClient client{keys, network};
    ToastCenter toasts;
};

TEST_F(AIQueryControllerTest, TheWindowFitsTheCaptureAndTheReplyStreamsFromTheServer) {
    QImage image = test::makeScreenshotLikeImage(1200, 800);
    image.setDevicePixelRatio(2);
    auto controller = open(image);
    QWidget* window = controller->window();
    EXPECT_EQ(window->windowTitle(), QStringLiteral("Ask Claude"));
    EXPECT_EQ(window->size(), QSize(560, 640));
    EXPECT_EQ(window->minimumSize(), QSize(460, 480));
    AIQueryView* view = controller->view();
    EXPECT_EQ(view->findChild<QLabel*>(QStringLiteral("captureSize"))->text(),
              QStringLiteral("600 × 400 — sent to the Anthropic API"));
    ASSERT_TRUE(test::waitUntil([&] { return view->queryArea()->isVisible(); }));

    api.respond = [](QTcpSocket* socket) {
        socket->write(test::FakeMessagesApi::openStream() + test::FakeMessagesApi::messageStart() +
                      test::FakeMessagesApi::textStart(0) +
                      test::FakeMessagesApi::textDelta(0, QStringLiteral("A **terminal**")));
    };
    QTest::mouseClick(view->actionButton(QStringLiteral("describe")), Qt::LeftButton);
    ASSERT_TRUE(test::waitUntil(
        [&] { return view->replyView()->toPlainText() == QStringLiteral("A terminal"); }));
    EXPECT_TRUE(view->isLoading());
    ASSERT_EQ(api.requests.size(), 1);
    EXPECT_EQ(api.requests[0].json().value(QStringLiteral("model")).toString(), prefs.aiModel());

    api.last->write(test::FakeMessagesApi::textDelta(0, QStringLiteral(" window.")) +
                    test::FakeMessagesApi::blockStop(0) + test::FakeMessagesApi::messageStop());
    api.last->disconnectFromHost();
    ASSERT_TRUE(test::waitUntil([&] { return !view->isLoading(); }));
    EXPECT_EQ(view->result(), QStringLiteral("A **terminal** window."));
    EXPECT_TRUE(view->copyButton()->isVisible());
}

TEST_F(AIQueryControllerTest, ClosingMidRequestCancelsItAndTellsTheOwner) {
    auto controller = open(test::makeScreenshotLikeImage(400, 300));
    AIQueryView* view = controller->view();
    ASSERT_TRUE(test::waitUntil([&] { return view->queryArea()->isVisible(); }));
    bool closed = false;
    controller->onClosed = [&] { closed = true; };
    view->run(QStringLiteral("Describe it."), QStringLiteral("describe")); // the server is silent
    ASSERT_TRUE(test::waitUntil([&] { return !api.last.isNull(); }));
    QPointer<QTcpSocket> socket = api.last;
    bool serverSawClose = false;
    QObject::connect(socket, &QTcpSocket::disconnected, [&] { serverSawClose = true; });
    controller->close();
    EXPECT_FALSE(view->isLoading());
    ASSERT_TRUE(test::waitUntil([&] { return closed && serverSawClose; }));
}

TEST_F(AIQueryControllerTest, WithoutAKeyOnlyTheNoticeShowsAndNothingIsSent) {
    keys.key.reset();
    auto controller = open(test::makeScreenshotLikeImage(400, 300));
    AIQueryView* view = controller->view();
    ASSERT_TRUE(test::waitUntil([&] { return view->keyNotice()->isVisible(); }));
    EXPECT_FALSE(view->queryArea()->isVisible());
    bool opened = false;
    controller->onOpenSettings = [&] { opened = true; };
    QTest::mouseClick(view->openSettingsButton(), Qt::LeftButton);
    EXPECT_TRUE(opened);

    // A key added meanwhile is found when the window is shown again.
    keys.key = QStringLiteral("sk-new");
    controller->show();
    ASSERT_TRUE(test::waitUntil([&] { return view->queryArea()->isVisible(); }));
    EXPECT_EQ(api.connections, 0);
}

} // namespace
} // namespace qm::ai
