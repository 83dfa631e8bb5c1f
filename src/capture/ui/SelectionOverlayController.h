#pragma once

#include "capture/core/CaptureTypes.h"

#include <QObject>
#include <QString>
#include <functional>
#include <memory>
#include <optional>

namespace qm {

class SelectionView;
namespace platform {
class SurfaceBackend;
}

// Shows the selection overlay over a frozen screen and answers once with an area, a window or
// nothing (cancelled).
class SelectionOverlayController final : public QObject {
    Q_OBJECT
public:
    using Completion = std::function<void(std::optional<SelectionResult>)>;

    explicit SelectionOverlayController(platform::SurfaceBackend& surface,
                                        QObject* parent = nullptr);
    ~SelectionOverlayController() override;

    // Shows the overlay over background's screen; onComplete is called exactly once, after the
    // overlay is gone. A begin while an overlay shows replaces it, and the earlier completion
    // is dropped without a call.
    void begin(const DisplayCapture& background, const QString& verb, Completion onComplete);
    // Ends a showing selection with nothing.
    void cancel();

    bool isActive() const { return view_ != nullptr; }
    // The overlay now on screen, or null when idle.
    SelectionView* view() const { return view_.get(); }

private:
    struct DeleteLater {
        void operator()(SelectionView* view) const;
    };
    void finish(std::optional<SelectionResult> result);
    void closeView();

    platform::SurfaceBackend& surface_;
    std::unique_ptr<SelectionView, DeleteLater> view_;
    Completion onComplete_;
};

} // namespace qm
