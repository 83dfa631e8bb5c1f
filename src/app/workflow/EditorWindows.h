#pragma once

#include "editor/ui/AnnotationEditorController.h"

#include <QImage>
#include <QObject>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace qm {

class SettingsStore;
class ToastCenter;

// The open annotation editors, kept alive here until each reports.
class EditorWindows final : public QObject {
    Q_OBJECT
public:
    EditorWindows(SettingsStore& store, ToastCenter& toasts, QObject* parent = nullptr);
    ~EditorWindows() override;

    // For an image read from a file: Save writes a new file beside it, and `onSaved` hears
    // of every file the editor writes.
    struct FileSaving {
        SaveBeside beside;
        std::function<void(const QString& path)> onSaved;
    };

    // Opens an editor on the image; onComplete gets the finished image, or nothing when the
    // window was closed.
    void open(const QImage& image, std::function<void(std::optional<QImage>)> onComplete,
              std::optional<FileSaving> saving = std::nullopt);
    // Given to every editor opened from now on: its "Ask Claude about this image".
    AnnotationEditorController::AskAICallback onAskAI;

    const std::vector<std::unique_ptr<AnnotationEditorController>>& controllers() const {
        return m_controllers;
    }

private:
    SettingsStore& m_store;
    ToastCenter& m_toasts;
    std::vector<std::unique_ptr<AnnotationEditorController>> m_controllers;
};

} // namespace qm
