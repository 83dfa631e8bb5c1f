#pragma once

#include "ai/core/ClaudeClient.h"
#include "base/Result.h"

#include <QList>
#include <QSize>
#include <QString>
#include <QWidget>
#include <functional>
#include <optional>

class QLabel;
class QLineEdit;
class QPushButton;
class QStackedWidget;
class QTextBrowser;
class QTimer;

namespace qm::ai {

// What the panel hears from one request on its way.
struct AskCallbacks {
    // All the text so far, as it streams in.
    std::function<void(const QString& textSoFar)> onText;
    // Exactly once: the whole reply or why it failed.
    std::function<void(const qm::Result<QString>& reply)> onFinished;
};
// Starts a request for the prompt; the function returned cancels it (after which nothing is
// reported).
using AskFunction =
    std::function<std::function<void()>(const QString& prompt, AskCallbacks callbacks)>;

// The content of the Ask Claude window: the header, then either the notice that no key is
// stored or the actions, the question field and the answer. It keeps the panel's state; the
// request itself is made by `ask`.
class AIQueryView : public QWidget {
    Q_OBJECT
public:
    struct Setup {
        QSize captureSize; // in logical pixels
        QList<AIAction> actions;
        std::function<QString()> modelName; // the display name of the chosen model
        AskFunction ask;
    };
    // Whether a key is stored, as far as the panel knows.
    enum class KeyState { Checking, Missing, Present, Unreachable };

    explicit AIQueryView(Setup setup, QWidget* parent = nullptr);
    ~AIQueryView() override;

    // `reason` says why the keyring can't be reached (Unreachable only).
    void setKeyState(KeyState state, const QString& reason = {});
    KeyState keyState() const { return m_keyState; }

    // Starts a request unless one is on its way.
    void run(const QString& prompt, const QString& id);
    // Runs the question field, trimmed; a blank question does nothing.
    void runCustom();
    // Drops the request on its way, if any; nothing it reports afterwards is shown.
    void cancel();
    // Puts the reply's Markdown on the clipboard and confirms on the button for a moment.
    void copyReply();

    bool isLoading() const { return bool(m_cancel); }
    std::optional<QString> ranAction() const { return m_ranAction; }
    QString result() const { return m_result; }
    std::optional<QString> errorText() const { return m_errorText; }
    bool copied() const { return m_copied; }

    // "Open Settings" in the no-key notice.
    std::function<void()> onOpenSettings;
    // After the reply was copied (the owner shows the toast).
    std::function<void()> onCopied;

    // For tests: the controls.
    QPushButton* actionButton(const QString& id) const;
    QLineEdit* questionField() const { return m_question; }
    QLabel* statusLabel() const { return m_status; }
    QTextBrowser* replyView() const { return m_reply; }
    QPushButton* copyButton() const { return m_copy; }
    QWidget* keyNotice() const { return m_notice; }
    QWidget* queryArea() const { return m_query; }
    QPushButton* openSettingsButton() const { return m_openSettings; }

private:
    void finish(const qm::Result<QString>& reply);
    void refresh();

    Setup m_setup;
    KeyState m_keyState = KeyState::Checking;
    std::function<void()> m_cancel; // set while a request is on its way
    std::optional<QString> m_ranAction;
    QString m_result;
    std::optional<QString> m_errorText;
    bool m_copied = false;
    QString m_shownMarkdown; // what the reply view holds

    QWidget* m_notice = nullptr;
    QLabel* m_noticeIcon = nullptr;
    QLabel* m_noticeText = nullptr;
    QPushButton* m_openSettings = nullptr;
    QWidget* m_query = nullptr;
    QList<std::pair<QString, QPushButton*>> m_actionButtons;
    QLineEdit* m_question = nullptr;
    QLabel* m_statusIcon = nullptr;
    QLabel* m_status = nullptr;
    QTextBrowser* m_reply = nullptr;
    QPushButton* m_copy = nullptr;
    QTimer* m_copiedTimer = nullptr;
};

} // namespace qm::ai
