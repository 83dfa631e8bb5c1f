#include "ai/ui/AIQueryView.h"

#include "ui/Icons.h"

#include <QClipboard>
#include <QGridLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTextBrowser>
#include <QTimer>
#include <QVBoxLayout>

namespace qm::ai {

namespace {

constexpr int copiedMs = 1500;

QLabel* iconLabel(const QString& name, int size, QWidget* parent) {
    auto* label = new QLabel(parent);
    label->setPixmap(themedIcon(name).pixmap(size, size));
    label->setFixedSize(size, size);
    return label;
}

} // namespace

AIQueryView::AIQueryView(Setup setup, QWidget* parent)
    : QWidget(parent)
    , m_setup(std::move(setup)) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(18, 16, 18, 16);
    layout->setSpacing(12);

    auto* title = new QLabel(tr("Ask Claude about this capture"), this);
    QFont titleFont = title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.25);
    titleFont.setBold(true);
    title->setFont(titleFont);
    auto* subtitle = new QLabel(QStringLiteral("%1 × %2 — sent to the Anthropic API")
                                    .arg(m_setup.captureSize.width())
                                    .arg(m_setup.captureSize.height()),
                                this);
    subtitle->setObjectName(QStringLiteral("captureSize"));
    subtitle->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(title);
    layout->addWidget(subtitle);

    // No key: the notice and its button only.
    m_notice = new QWidget(this);
    auto* notice = new QHBoxLayout(m_notice);
    notice->setContentsMargins(0, 8, 0, 0);
    m_noticeIcon = iconLabel(QStringLiteral("dialog-password"), 22, m_notice);
    m_noticeText = new QLabel(m_notice);
    m_noticeText->setWordWrap(true);
    m_openSettings = new QPushButton(tr("Open Settings"), m_notice);
    connect(m_openSettings, &QPushButton::clicked, this, [this] {
        if (onOpenSettings)
            onOpenSettings();
    });
    notice->addWidget(m_noticeIcon, 0, Qt::AlignTop);
    notice->addWidget(m_noticeText, 1);
    notice->addWidget(m_openSettings, 0, Qt::AlignTop);
    layout->addWidget(m_notice);

    // The query area: actions, question, answer.
    m_query = new QWidget(this);
    auto* query = new QVBoxLayout(m_query);
    query->setContentsMargins(0, 0, 0, 0);
    query->setSpacing(10);
    auto* actions = new QGridLayout;
    actions->setSpacing(8);
    for (qsizetype i = 0; i < m_setup.actions.size(); ++i) {
        const AIAction action = m_setup.actions[i];
        auto* button = new QPushButton(themedIcon(action.icon), action.title, m_query);
        button->setCheckable(true);
        button->setAutoDefault(false);
        // Checked only when run, never by a click alone.
        connect(button, &QPushButton::clicked, this, [this, action] {
            refresh();
            run(action.prompt, action.id);
        });
        m_actionButtons.append({action.id, button});
        actions->addWidget(button, int(i / 2), int(i % 2));
    }
    query->addLayout(actions);
    m_question = new QLineEdit(m_query);
    m_question->setPlaceholderText(tr("Or ask anything about this capture…"));
    m_question->setClearButtonEnabled(true);
    connect(m_question, &QLineEdit::returnPressed, this, &AIQueryView::runCustom);
    query->addWidget(m_question);

    auto* statusRow = new QHBoxLayout;
    m_statusIcon = iconLabel(QStringLiteral("dialog-warning"), 18, m_query);
    m_status = new QLabel(m_query);
    m_status->setWordWrap(true);
    m_status->setTextInteractionFlags(Qt::TextSelectableByMouse);
    statusRow->addWidget(m_statusIcon, 0, Qt::AlignTop);
    statusRow->addWidget(m_status, 1);
    query->addLayout(statusRow);
    m_reply = new QTextBrowser(m_query);
    m_reply->setOpenExternalLinks(true);
    m_reply->setTextInteractionFlags(Qt::TextBrowserInteraction | Qt::TextSelectableByKeyboard);
    query->addWidget(m_reply, 1);
    auto* copyRow = new QHBoxLayout;
    m_copy = new QPushButton(m_query);
    m_copy->setAutoDefault(false);
    connect(m_copy, &QPushButton::clicked, this, &AIQueryView::copyReply);
    copyRow->addStretch(1);
    copyRow->addWidget(m_copy);
    query->addLayout(copyRow);
    query->addStretch(0);
    layout->addWidget(m_query, 1);
    layout->addStretch(0);

    m_copiedTimer = new QTimer(this);
    m_copiedTimer->setSingleShot(true);
    m_copiedTimer->setInterval(copiedMs);
    connect(m_copiedTimer, &QTimer::timeout, this, [this] {
        m_copied = false;
        refresh();
    });
    refresh();
}

AIQueryView::~AIQueryView() {
    cancel();
}

void AIQueryView::setKeyState(KeyState state, const QString& reason) {
    m_keyState = state;
    if (state == KeyState::Unreachable)
        m_noticeText->setText(reason);
    else
        m_noticeText->setText(tr("Add your Anthropic API key in Settings → AI to use this."));
    refresh();
}

QPushButton* AIQueryView::actionButton(const QString& id) const {
    for (const auto& [actionId, button] : m_actionButtons)
        if (actionId == id)
            return button;
    return nullptr;
}

void AIQueryView::run(const QString& prompt, const QString& id) {
    if (isLoading() || !m_setup.ask)
        return;
    m_ranAction = id;
    m_errorText.reset();
    m_result.clear();
    m_copied = false;
    // Marks the request as on its way before it can report anything.
    m_cancel = [] {};
    auto alive = std::make_shared<bool>(true);
    std::function<void()> cancel =
        m_setup.ask(prompt, AskCallbacks{[this, alive](const QString& text) {
                                             if (!*alive)
                                                 return;
                                             m_result = text;
                                             refresh();
                                         },
                                         [this, alive](const qm::Result<QString>& reply) {
                                             if (!*alive)
                                                 return;
                                             *alive = false;
                                             finish(reply);
                                         }});
    if (*alive)
        m_cancel = [alive, cancel = std::move(cancel)] {
            *alive = false;
            if (cancel)
                cancel();
        };
    refresh();
}

void AIQueryView::runCustom() {
    const QString question = m_question->text().trimmed();
    if (question.isEmpty())
        return;
    run(question, QStringLiteral("custom"));
}

void AIQueryView::cancel() {
    if (!m_cancel)
        return;
    const std::function<void()> cancel = std::exchange(m_cancel, {});
    cancel();
}

void AIQueryView::finish(const qm::Result<QString>& reply) {
    m_cancel = {};
    if (reply.ok()) {
        m_result = *reply;
    } else {
        m_result.clear();
        m_errorText = reply.error().reason;
    }
    refresh();
}

void AIQueryView::copyReply() {
    if (m_result.isEmpty())
        return;
    QGuiApplication::clipboard()->setText(m_result);
    m_copied = true;
    m_copiedTimer->start();
    refresh();
    if (onCopied)
        onCopied();
}

void AIQueryView::refresh() {
    const bool hasKey = m_keyState == KeyState::Present;
    m_notice->setVisible(m_keyState == KeyState::Missing || m_keyState == KeyState::Unreachable);
    m_query->setVisible(hasKey);
    m_noticeIcon->setPixmap(themedIcon(m_keyState == KeyState::Unreachable
                                           ? QStringLiteral("dialog-warning")
                                           : QStringLiteral("dialog-password"))
                                .pixmap(22, 22));
    m_openSettings->setVisible(m_keyState == KeyState::Missing);

    for (const auto& [id, button] : m_actionButtons)
        button->setChecked(m_ranAction == id);

    const bool loading = isLoading();
    const bool failed = !loading && m_errorText.has_value();
    const bool answered = !loading && !failed && !m_result.isEmpty();
    if (loading) {
        const QString model = m_setup.modelName ? m_setup.modelName() : QString();
        m_status->setText(tr("Asking %1…").arg(model));
    } else if (failed) {
        m_status->setText(*m_errorText);
    } else if (!answered) {
        m_status->setText(tr("Pick an action or ask a question."));
    }
    m_status->setVisible(!answered);
    m_statusIcon->setVisible(failed);

    // The reply shows as it streams; the document is rebuilt only when the text changed.
    const bool showReply = !failed && !m_result.isEmpty();
    if (m_shownMarkdown != m_result || m_result.isEmpty()) {
        m_shownMarkdown = m_result;
        m_reply->setMarkdown(m_result);
    }
    m_reply->setVisible(showReply);
    m_copy->setVisible(answered);
    m_copy->setText(m_copied ? tr("Copied") : tr("Copy Reply"));
    m_copy->setIcon(
        themedIcon(m_copied ? QStringLiteral("object-select") : QStringLiteral("edit-copy")));
}

} // namespace qm::ai
