#pragma once

#include <QImage>
#include <QObject>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace qm {

class AnnotationEditorController;
class SettingsStore;
class ToastCenter;

// The open annotation editors, kept alive here until each reports.
class EditorWindows final : public QObject {
    Q_OBJECT
public:
    EditorWindows(SettingsStore& store, ToastCenter& toasts, QObject* parent = nullptr);
    ~EditorWindows() override;

    // Opens an editor on the image; onComplete gets the finished image, or nothing when the
    // window was closed.
    void open(const QImage& image, std::function<void(std::optional<QImage>)> onComplete);
    const std::vector<std::unique_ptr<AnnotationEditorController>>& controllers() const {
        return m_controllers;
    }

private:
    SettingsStore& m_store;
    ToastCenter& m_toasts;
    std::vector<std::unique_ptr<AnnotationEditorController>> m_controllers;
};

} // namespace qm
