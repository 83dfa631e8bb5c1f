#include "ai/ui/AIQueryView.h"

#include "TestSupport.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <QTextBrowser>
#include <QTextDocument>
#include <QTextFrame>
#include <QTextTable>
#include <gtest/gtest.h>

namespace qm::ai {
namespace {

// Stands in for the client: keeps each request's callbacks so the test decides what the
// server says and when.
struct FakeAsk {
    struct Request {
        QString prompt;
        AskCallbacks callbacks;
        bool cancelled = false;
    };
    std::vector<std::shared_ptr<Request>> requests;

    AskFunction function() {
        return [this](const QString& prompt, AskCallbacks callbacks) {
            auto request = std::make_shared<Request>(Request{prompt, std::move(callbacks)});
            requests.push_back(request);
            return std::function<void()>([request] { request->cancelled = true; });
        };
    }
    Request& last() { return *requests.back(); }
};

const QList<AIAction> actions{
    {QStringLiteral("describe"), QStringLiteral("Describe"), QStringLiteral("edit-find"),
     QStringLiteral("Describe it.")},
    {QStringLiteral("explain-error"), QStringLiteral("Explain Error"),
     QStringLiteral("dialog-warning"), QStringLiteral("Explain it.")},
    {QStringLiteral("extract"), QStringLiteral("Extract Data"), QStringLiteral("view-grid"),
     QStringLiteral("Extract it.")},
    {QStringLiteral("bug-report"), QStringLiteral("Draft Bug Report"),
     QStringLiteral("document-edit"), QStringLiteral("Report it.")},
};

class AIQueryViewTest : public ::testing::Test {
protected:
    void SetUp() override {
        view = std::make_unique<AIQueryView>(
            AIQueryView::Setup{QSize(800, 600), actions,
                               [] { return QStringLiteral("Claude Sonnet"); }, fake.function()});
        view->resize(560, 640);
        view->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(view.get()));
    }
    void withKey() { view->setKeyState(AIQueryView::KeyState::Present); }

    FakeAsk fake;
    std::unique_ptr<AIQueryView> view;
};

TEST_F(AIQueryViewTest, WithoutAKeyOnlyTheNoticeAndItsButtonShow) {
    view->setKeyState(AIQueryView::KeyState::Missing);
    EXPECT_TRUE(view->keyNotice()->isVisible());
    EXPECT_FALSE(view->queryArea()->isVisible());
    EXPECT_FALSE(view->questionField()->isVisible());
    EXPECT_FALSE(view->actionButton(QStringLiteral("describe"))->isVisible());
    ASSERT_TRUE(view->openSettingsButton()->isVisible());
    bool opened = false;
    view->onOpenSettings = [&] { opened = true; };
    QTest::mouseClick(view->openSettingsButton(), Qt::LeftButton);
    EXPECT_TRUE(opened);
    EXPECT_TRUE(fake.requests.empty());

    // A keyring that can't be reached says why, and Settings can't help with that.
    view->setKeyState(AIQueryView::KeyState::Unreachable, QStringLiteral("The keyring is locked."));
    EXPECT_TRUE(view->keyNotice()->isVisible());
    EXPECT_FALSE(view->queryArea()->isVisible());
    EXPECT_FALSE(view->openSettingsButton()->isVisible());
    EXPECT_TRUE(view->keyNotice()->findChildren<QLabel*>().size() > 0);
    bool said = false;
    for (QLabel* label : view->keyNotice()->findChildren<QLabel*>())
        said |= label->text() == QStringLiteral("The keyring is locked.");
    EXPECT_TRUE(said);

    withKey();
    EXPECT_FALSE(view->keyNotice()->isVisible());
    EXPECT_TRUE(view->questionField()->isVisible());
}

TEST_F(AIQueryViewTest, AQuestionOfSpacesDoesNothingAndAQuestionRunsTrimmed) {
    withKey();
    view->questionField()->setFocus();
    QTest::keyClicks(view->questionField(), QStringLiteral("   "));
    QTest::keyClick(view->questionField(), Qt::Key_Return);
    EXPECT_TRUE(fake.requests.empty());
    EXPECT_FALSE(view->isLoading());
    EXPECT_EQ(view->statusLabel()->text(), QStringLiteral("Pick an action or ask a question."));

    QTest::keyClicks(view->questionField(), QStringLiteral("what app is this?  "));
    QTest::keyClick(view->questionField(), Qt::Key_Return);
    ASSERT_EQ(fake.requests.size(), 1u);
    EXPECT_EQ(fake.last().prompt, QStringLiteral("what app is this?"));
    EXPECT_EQ(view->ranAction(), QStringLiteral("custom"));
}

TEST_F(AIQueryViewTest, OneRequestAtATimeWithTheRunActionMarked) {
    withKey();
    QTest::mouseClick(view->actionButton(QStringLiteral("describe")), Qt::LeftButton);
    ASSERT_EQ(fake.requests.size(), 1u);
    EXPECT_EQ(fake.last().prompt, QStringLiteral("Describe it."));
    EXPECT_EQ(view->statusLabel()->text(), QStringLiteral("Asking Claude Sonnet…"));
    EXPECT_TRUE(view->actionButton(QStringLiteral("describe"))->isChecked());

    // Another action, and the question field, while the first is loading: nothing.
    QTest::mouseClick(view->actionButton(QStringLiteral("extract")), Qt::LeftButton);
    QTest::keyClicks(view->questionField(), QStringLiteral("and this?"));
    QTest::keyClick(view->questionField(), Qt::Key_Return);
    EXPECT_EQ(fake.requests.size(), 1u);
    EXPECT_TRUE(view->actionButton(QStringLiteral("describe"))->isChecked());
    EXPECT_FALSE(view->actionButton(QStringLiteral("extract"))->isChecked());

    fake.last().callbacks.onFinished(QStringLiteral("A terminal."));
    EXPECT_FALSE(view->isLoading());
    QTest::mouseClick(view->actionButton(QStringLiteral("extract")), Qt::LeftButton);
    EXPECT_EQ(fake.requests.size(), 2u);
    EXPECT_FALSE(view->actionButton(QStringLiteral("describe"))->isChecked());
    EXPECT_TRUE(view->actionButton(QStringLiteral("extract"))->isChecked());
}

TEST_F(AIQueryViewTest, TheReplyStreamsInAndAnErrorIsGoneAfterASuccess) {
    withKey();
    view->run(QStringLiteral("Explain it."), QStringLiteral("explain-error"));
    fake.last().callbacks.onFinished(qm::failure(QStringLiteral("HTTP 529")));
    EXPECT_EQ(view->statusLabel()->text(), QStringLiteral("HTTP 529"));
    EXPECT_TRUE(view->statusLabel()->isVisible());
    EXPECT_FALSE(view->replyView()->isVisible());
    EXPECT_FALSE(view->copyButton()->isVisible());

    // Run again: the text shows while it streams, before the request ends.
    view->run(QStringLiteral("Explain it."), QStringLiteral("explain-error"));
    fake.last().callbacks.onText(QStringLiteral("The disk"));
    EXPECT_TRUE(view->isLoading());
    EXPECT_TRUE(view->replyView()->isVisible());
    EXPECT_EQ(view->replyView()->toPlainText(), QStringLiteral("The disk"));
    EXPECT_FALSE(view->copyButton()->isVisible());
    fake.last().callbacks.onText(QStringLiteral("The disk is full."));
    EXPECT_EQ(view->replyView()->toPlainText(), QStringLiteral("The disk is full."));
    fake.last().callbacks.onFinished(QStringLiteral("The disk is full."));

    EXPECT_FALSE(view->errorText().has_value());
    EXPECT_FALSE(view->statusLabel()->isVisible());
    EXPECT_TRUE(view->replyView()->isVisible());
    EXPECT_TRUE(view->copyButton()->isVisible());
    EXPECT_EQ(view->replyView()->toPlainText(), QStringLiteral("The disk is full."));

    // A failure after streamed text shows the reason alone.
    view->run(QStringLiteral("Explain it."), QStringLiteral("explain-error"));
    fake.last().callbacks.onText(QStringLiteral("Half a"));
    fake.last().callbacks.onFinished(qm::failure(QStringLiteral("The network went away.")));
    EXPECT_FALSE(view->replyView()->isVisible());
    EXPECT_FALSE(view->copyButton()->isVisible());
    EXPECT_EQ(view->statusLabel()->text(), QStringLiteral("The network went away."));
}

TEST_F(AIQueryViewTest, MarkdownIsRenderedAndCopyReplyCopiesTheSource) {
    withKey();
    const QString markdown = QStringLiteral("| App | Version |\n|---|---|\n| Quillmark | 1.0 |\n\n"
                                            "```\nmake all\n```\n\n- one\n- two\n");
    view->run(QStringLiteral("Extract it."), QStringLiteral("extract"));
    fake.last().callbacks.onFinished(markdown);

    QTextDocument* document = view->replyView()->document();
    int tables = 0;
    for (QTextFrame* frame : document->rootFrame()->childFrames())
        if (auto* table = qobject_cast<QTextTable*>(frame)) {
            ++tables;
            EXPECT_EQ(table->rows(), 2);
            EXPECT_EQ(table->columns(), 2);
            EXPECT_EQ(table->cellAt(1, 0).firstCursorPosition().block().text(),
                      QStringLiteral("Quillmark"));
        }
    EXPECT_EQ(tables, 1);
    EXPECT_FALSE(document->toPlainText().contains(QStringLiteral("|---|")));
    EXPECT_FALSE(document->toPlainText().contains(QStringLiteral("```")));

    bool toasted = false;
    view->onCopied = [&] { toasted = true; };
    QTest::mouseClick(view->copyButton(), Qt::LeftButton);
    EXPECT_TRUE(toasted);
    EXPECT_TRUE(test::waitUntil([&] { return QGuiApplication::clipboard()->text() == markdown; }));
    EXPECT_EQ(view->copyButton()->text(), QStringLiteral("Copied"));
    // It reads "Copy Reply" again after a moment.
    EXPECT_TRUE(
        test::waitUntil([&] { return view->copyButton()->text() == QStringLiteral("Copy Reply"); },
                        std::chrono::seconds(5)));
}

TEST_F(AIQueryViewTest, CancellingDropsTheRequestAndWhatItSaysLater) {
    withKey();
    view->run(QStringLiteral("Describe it."), QStringLiteral("describe"));
    FakeAsk::Request& request = fake.last();
    view->cancel();
    EXPECT_TRUE(request.cancelled);
    EXPECT_FALSE(view->isLoading());
    request.callbacks.onText(QStringLiteral("late"));
    request.callbacks.onFinished(QStringLiteral("late"));
    EXPECT_TRUE(view->result().isEmpty());
    EXPECT_FALSE(view->replyView()->isVisible());

    // Going away mid-request cancels too.
    view->run(QStringLiteral("Describe it."), QStringLiteral("describe"));
    FakeAsk::Request& second = fake.last();
    view.reset();
    EXPECT_TRUE(second.cancelled);
}

} // namespace
} // namespace qm::ai
