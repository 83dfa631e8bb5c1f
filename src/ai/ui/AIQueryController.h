#pragma once

#include <QImage>
#include <QObject>
#include <functional>
#include <memory>

class QWidget;

namespace qm {
class Preferences;
class ToastCenter;
namespace platform {
class SecretStore;
}
} // namespace qm

namespace qm::ai {

class ClaudeClient;
class AIQueryView;

// The "Ask Claude" window for one capture: the four actions, a question field, and the reply
// as it streams, rendered as Markdown with "Copy Reply". Closing it cancels its request.
class AIQueryController : public QObject {
    Q_OBJECT
public:
    struct Services {
        Preferences& preferences;
        ClaudeClient& client;
        platform::SecretStore& keys;
        ToastCenter& toasts;
    };
    AIQueryController(Services services, QImage image, QObject* parent = nullptr);
    ~AIQueryController() override;

    // Makes the window on first call; every call raises it.
    void show();
    void close();
    QWidget* window() const;
    // The window's content while it exists (for tests).
    AIQueryView* view() const;

    // After the window closed; may delete the controller.
    std::function<void()> onClosed;
    // "Open Settings" in the no-key notice.
    std::function<void()> onOpenSettings;

private:
    // Looks for the key off the GUI thread and tells the view.
    void checkKey();

    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace qm::ai
