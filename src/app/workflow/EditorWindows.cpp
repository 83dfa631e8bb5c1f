#include "app/workflow/EditorWindows.h"

#include "editor/ui/AnnotationEditorController.h"
#include "ui/ToastCenter.h"

#include <QTimer>

namespace qm {

EditorWindows::EditorWindows(SettingsStore& store, ToastCenter& toasts, QObject* parent)
    : QObject(parent)
    , m_store(store)
    , m_toasts(toasts) {}

EditorWindows::~EditorWindows() = default;

void EditorWindows::open(const QImage& image, std::function<void(std::optional<QImage>)> onComplete,
                         std::optional<FileSaving> saving) {
    // The report names its controller, which only exists once constructed.
    auto self = std::make_shared<AnnotationEditorController*>(nullptr);
    auto controller = std::make_unique<AnnotationEditorController>(
        image, m_store,
        [this, self, onComplete = std::move(onComplete)](const std::optional<QImage>& result) {
            if (onComplete)
                onComplete(result);
            // Let go of the controller once its report has been delivered.
            QTimer::singleShot(0, this, [this, done = *self] {
                std::erase_if(m_controllers, [done](const auto& c) { return c.get() == done; });
            });
        },
        [this](const QString& text, const QString& iconName, ToastCenter::Style style) {
            m_toasts.present(text, iconName, style);
        });
    *self = controller.get();
    if (saving) {
        controller->saveBeside = saving->beside;
        controller->onSaved = std::move(saving->onSaved);
    }
    controller->onAskAI = onAskAI;
    AnnotationEditorController* raw = controller.get();
    m_controllers.push_back(std::move(controller));
    raw->show();
}

} // namespace qm
