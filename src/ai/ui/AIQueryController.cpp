#include "ai/ui/AIQueryController.h"

#include "ai/core/ClaudeClient.h"
#include "ai/ui/AIQueryView.h"
#include "base/Preferences.h"
#include "platform/secrets/api/SecretStore.h"
#include "ui/ClosingWindow.h"
#include "ui/ToastCenter.h"

#include <QFuture>
#include <QMetaObject>
#include <QPointer>
#include <QVBoxLayout>
#include <QtConcurrent/QtConcurrentRun>

namespace qm::ai {

namespace {

constexpr int maxTokens = 4096;

class AIQueryWindow final : public ClosingWindow {
public:
    using ClosingWindow::ClosingWindow;
};

QSize logicalSize(const QImage& image) {
    const double ratio = image.devicePixelRatio() > 0 ? image.devicePixelRatio() : 1.0;
    return QSize(int(image.width() / ratio), int(image.height() / ratio));
}

} // namespace

struct AIQueryController::Private {
    Services services;
    QImage image;
    std::unique_ptr<AIQueryWindow> window;
    AIQueryView* view = nullptr;
};

AIQueryController::AIQueryController(Services services, QImage image, QObject* parent)
    : QObject(parent)
    , d(std::make_unique<Private>(Private{services, std::move(image), nullptr, nullptr})) {}

AIQueryController::~AIQueryController() {
    if (d->view)
        d->view->cancel();
    d->window.reset();
}

QWidget* AIQueryController::window() const {
    return d->window.get();
}

AIQueryView* AIQueryController::view() const {
    return d->view;
}

void AIQueryController::show() {
    if (!d->window) {
        d->window = std::make_unique<AIQueryWindow>([this] {
            // Closing drops the request on its way; the owner hears of it once the window has
            // finished closing, so it may delete us.
            if (d->view)
                d->view->cancel();
            QMetaObject::invokeMethod(
                this,
                [this] {
                    if (onClosed)
                        onClosed();
                },
                Qt::QueuedConnection);
        });
        d->window->setWindowTitle(tr("Ask Claude"));
        d->window->resize(560, 640);
        d->window->setMinimumSize(460, 480);
        auto* layout = new QVBoxLayout(d->window.get());
        layout->setContentsMargins(0, 0, 0, 0);
        Preferences& preferences = d->services.preferences;
        ClaudeClient& client = d->services.client;
        const QImage image = d->image;
        // Replies belong to the window, so they end with it at the latest.
        QPointer<QWidget> context = d->window.get();
        AskFunction ask = [&preferences, &client, image,
                           context](const QString& prompt,
                                    AskCallbacks callbacks) -> std::function<void()> {
            AskReply* reply = client.ask(
                AskRequest{prompt, {image}, preferences.aiModel(), maxTokens}, context.data());
            QPointer<AskReply> guard = reply;
            QObject::connect(reply, &AskReply::textChanged, reply,
                             [onText = callbacks.onText](const QString& text) { onText(text); });
            QObject::connect(
                reply, &AskReply::finished, reply,
                [onFinished = callbacks.onFinished, guard](const qm::Result<QString>& answer) {
                    if (guard)
                        guard->deleteLater();
                    onFinished(answer);
                });
            return [guard] {
                if (guard) {
                    guard->cancel();
                    guard->deleteLater();
                }
            };
        };
        d->view = new AIQueryView(
            AIQueryView::Setup{
                .captureSize = logicalSize(image),
                .actions = aiActions(),
                .modelName = [&preferences] { return modelName(preferences.aiModel()); },
                .ask = std::move(ask),
            },
            d->window.get());
        d->view->onOpenSettings = [this] {
            if (onOpenSettings)
                onOpenSettings();
        };
        ToastCenter& toasts = d->services.toasts;
        d->view->onCopied = [&toasts] {
            toasts.present(tr("Reply copied"), QStringLiteral("edit-copy"));
        };
        layout->addWidget(d->view);
    }
    // Checked on every show, so a key added in Settings meanwhile is found.
    if (d->view->keyState() != AIQueryView::KeyState::Present)
        checkKey();
    d->window->show();
    d->window->raise();
    d->window->activateWindow();
}

void AIQueryController::checkKey() {
    platform::SecretStore& keys = d->services.keys;
    // Reading the keyring may wait on an unlock prompt.
    QtConcurrent::run([&keys] { return keys.load(platform::kAnthropicKeyAccount); })
        .then(d->view,
              [view = QPointer<AIQueryView>(d->view)](const Result<std::optional<QString>>& key) {
                  if (!view)
                      return;
                  if (!key.ok())
                      view->setKeyState(AIQueryView::KeyState::Unreachable, key.error().reason);
                  else if (!key->has_value() || (*key)->isEmpty())
                      view->setKeyState(AIQueryView::KeyState::Missing);
                  else
                      view->setKeyState(AIQueryView::KeyState::Present);
              });
}

void AIQueryController::close() {
    if (d->window)
        d->window->close();
}

} // namespace qm::ai
