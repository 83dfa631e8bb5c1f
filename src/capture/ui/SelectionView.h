#pragma once

#include "capture/core/CaptureTypes.h"
#include "capture/core/SelectionModel.h"
#include "capture/ui/SelectionPainter.h"

#include <QPoint>
#include <QPointF>
#include <QSet>
#include <QTimer>
#include <QWidget>
#include <functional>
#include <memory>
#include <optional>

namespace qm {

namespace platform {
class SurfaceBackend;
}

// One screen's part of the picker: a full-screen top-level window over that monitor. The
// view on the pointer's screen takes the keyboard and pointer for all of them and feeds what
// they do to the shared SelectionModel; every view paints its part of it.
class SelectionView final : public QWidget {
    Q_OBJECT
public:
    struct Hooks {
        // Runs a change of the selection and repaints what it touched on every screen.
        std::function<void(const std::function<void()>&)> change;
        // Ends the selection (once) with an answer or nothing.
        std::function<void(std::optional<SelectionResult>)> finish;
    };

    // display: the screen this view covers, an index into the selection's desktop. Only the
    // view that takesInput grabs the keyboard and pointer. The surface backend supplies the
    // pointer's exact pixel on scaled screens.
    SelectionView(std::shared_ptr<SelectionModel> selection, int display, bool takesInput,
                  platform::SurfaceBackend& surface, Hooks hooks);
    ~SelectionView() override;

    const SelectionModel& selection() const { return *selection_; }
    int display() const { return display_; }
    const SelectionPainter& painter() const { return painter_; }
    // Whether the keyboard and pointer are grabbed, so input reaches the overlay whatever
    // window had focus.
    bool hasInputGrab() const { return grabbed_; }

    // Ends the selection with nothing, as Escape does.
    void cancel();

protected:
    void paintEvent(QPaintEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void finish(std::optional<SelectionResult> result);
    void tryGrabInput();
    void releaseInput();
    QPointF globalPoint(const QMouseEvent* event) const;
    void nudge(QPoint pixels);
    void keyHeld(int key, bool held);

    std::shared_ptr<SelectionModel> selection_;
    int display_;
    bool takesInput_;
    SelectionPainter painter_;
    platform::SurfaceBackend& surface_;
    Hooks hooks_;

    QTimer grabTimer_;
    int grabAttempts_ = 0;
    bool grabbed_ = false;
    bool finished_ = false;
    QSet<int> heldKeys_;             // hint keys down now
    std::optional<QPoint> nudgedCursor_; // where the last nudge put the cursor, while it is there
};

} // namespace qm
