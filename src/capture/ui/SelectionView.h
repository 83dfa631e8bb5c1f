#pragma once

#include "capture/core/CaptureTypes.h"
#include "capture/core/SelectionModel.h"
#include "capture/ui/SelectionPainter.h"

#include <QPointF>
#include <QString>
#include <QTimer>
#include <QWidget>
#include <functional>
#include <optional>

namespace qm {

namespace platform {
class SurfaceBackend;
}

// The full-screen picker over one frozen screen: its own top-level window that takes the
// keyboard and pointer, feeds what they do to its SelectionModel and paints it.
class SelectionView final : public QWidget {
    Q_OBJECT
public:
    using FinishCallback = std::function<void(std::optional<SelectionResult>)>;

    // verb: "Capture" or "Record", shown in the window label. The surface backend supplies
    // the pointer's exact pixel on scaled screens.
    SelectionView(DisplayCapture background, QString verb, platform::SurfaceBackend& surface,
                  FinishCallback onFinish);
    ~SelectionView() override;

    const SelectionModel& selection() const { return selection_; }
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
    void keyPressEvent(QKeyEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void finish(std::optional<SelectionResult> result);
    void tryGrabInput();
    void releaseInput();
    QPointF viewPoint(const QMouseEvent* event) const;
    // Repaints only what the overlays covered before and cover now.
    void changeState(const std::function<void()>& change);

    SelectionModel selection_;
    SelectionPainter painter_{selection_};
    platform::SurfaceBackend& surface_;
    FinishCallback onFinish_;

    QTimer grabTimer_;
    int grabAttempts_ = 0;
    bool grabbed_ = false;
    bool finished_ = false;
};

} // namespace qm
