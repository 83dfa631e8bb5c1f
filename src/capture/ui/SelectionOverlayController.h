#pragma once

#include "capture/core/CaptureTypes.h"

#include <QObject>
#include <QString>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace qm {

class SelectionModel;
class SelectionView;
namespace platform {
class SurfaceBackend;
}

// Shows the selection overlay over every frozen screen and answers once with an area, a
// window or nothing (cancelled).
class SelectionOverlayController final : public QObject {
    Q_OBJECT
public:
    using Completion = std::function<void(std::optional<SelectionResult>)>;
    // A user's first selections show the key hint throughout; later ones only while a key it
    // explains is held.
    static constexpr int pinnedHintSelections = 3;

    explicit SelectionOverlayController(platform::SurfaceBackend& surface,
                                        QObject* parent = nullptr);
    ~SelectionOverlayController() override;

    // Shows the overlay, one view per frozen screen; onComplete is called exactly once, after
    // the overlay is gone. A begin while an overlay shows replaces it, and the earlier
    // completion is dropped without a call.
    void begin(const FrozenDesktop& desktop, const QString& verb, Completion onComplete);
    // The same over one frozen screen.
    void begin(const DisplayCapture& background, const QString& verb, Completion onComplete);
    // Ends a showing selection with nothing.
    void cancel();

    // "Adjust area before capturing": a dragged area waits, with handles, for Enter or a
    // double click. Applies from the next begin.
    void setAdjustBeforeCapturing(bool on) { adjustBeforeCapturing_ = on; }
    bool adjustBeforeCapturing() const { return adjustBeforeCapturing_; }
    // How many selections have been shown, which decides whether the hint stays up.
    void setSelectionsShown(int count) { selectionsShown_ = count; }

    bool isActive() const { return !views_.empty(); }
    // The view that holds the keyboard and pointer (on the pointer's screen), or null when idle.
    SelectionView* view() const { return inputView_; }
    // Every screen's view, in the order of the frozen desktop's screens.
    std::vector<SelectionView*> views() const;

private:
    struct DeleteLater {
        void operator()(SelectionView* view) const;
    };
    void finish(std::optional<SelectionResult> result);
    void change(const std::function<void()>& change);
    void closeView();

    platform::SurfaceBackend& surface_;
    std::shared_ptr<SelectionModel> selection_;
    std::vector<std::unique_ptr<SelectionView, DeleteLater>> views_;
    SelectionView* inputView_ = nullptr;
    Completion onComplete_;
    bool adjustBeforeCapturing_ = false;
    int selectionsShown_ = 0;
};

} // namespace qm
