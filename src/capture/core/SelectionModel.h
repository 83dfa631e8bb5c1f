#pragma once

#include "capture/core/CaptureTypes.h"

#include <QPoint>
#include <QPointF>
#include <QRectF>
#include <QSizeF>
#include <QString>
#include <optional>
#include <vector>

namespace qm {

// What the picker over the frozen desktop knows, apart from any window: where the pointer is,
// the window under it, the area being dragged or adjusted, and what the loupe, its readouts
// and the key hint show. Positions are global points; each screen's view shows its part.
class SelectionModel {
public:
    static constexpr double dragThreshold = 5.0;   // a press moving further starts a region
    static constexpr double minimumSide = 4.0;     // smaller regions count as clicks
    static constexpr double loupeDiameter = 132.0; // points
    static constexpr double magnification = 8.0;
    static constexpr double loupeEdgeMargin = 110.0; // the loupe's centre keeps this far in
    static constexpr double handleSize = 8.0;        // the drawn square of a handle, points
    static constexpr double handleReach = 6.0;       // a press this close to one takes it

    // The parts of an adjusted area a press can take.
    enum class Handle {
        None,
        TopLeft,
        Top,
        TopRight,
        Right,
        BottomRight,
        Bottom,
        BottomLeft,
        Left,
        Inside
    };

    // verb: "Capture" or "Record", shown in the window label. With adjustBeforeCapturing a
    // dragged area stays on screen, with handles, until it is confirmed.
    SelectionModel(FrozenDesktop desktop, QString verb, bool adjustBeforeCapturing = false);
    // One frozen screen on its own.
    SelectionModel(DisplayCapture background, QString verb, bool adjustBeforeCapturing = false);

    const FrozenDesktop& desktop() const { return desktop_; }
    // The screen under the pointer (an index into desktop().displays), -1 without screens.
    int pointerDisplay() const { return pointerDisplay_; }

    QPointF mousePoint() const { return mousePoint_; }
    bool isPressed() const { return mouseDownPoint_.has_value(); }
    bool isDragging() const { return isDragging_; }
    // A dragged area kept on screen for adjusting, waiting for Enter or a double click.
    bool isAdjusting() const { return isAdjusting_; }
    QRectF currentRect() const { return currentRect_; }

    // The pointer moved (with or without the button held).
    void move(QPointF point);
    void press(QPointF point);
    // The button went up at `point`. Ends the selection with a region when one was dragged big
    // enough, else with the window clicked on, else with nothing (a click on the bare
    // desktop). While adjusting it only ends a move or a resize: nothing is answered and
    // isAdjusting() stays true.
    std::optional<SelectionResult> release(QPointF point);
    // The adjusted area as the answer (Enter, a double click); nothing unless adjusting.
    std::optional<SelectionResult> confirm() const;

    // Space held: the pointer moves the whole area instead of resizing it.
    void setMoving(bool moving) { isMoving_ = moving; }
    bool isMoving() const { return isMoving_; }
    // Shift held: the dragged area is a square.
    void setSquare(bool square);
    // Arrow keys, in pixels of the screen under the pointer: move the pointer (and so the
    // drag), or the adjusted area when no button is held. Answers where the pointer is now.
    QPointF nudge(QPoint pixels);

    // The part of the adjusted area at a point.
    Handle handleAt(QPointF point) const;
    // The eight handles' squares while adjusting, clockwise from the top-left corner (the
    // order of Handle); empty otherwise.
    std::vector<QRectF> handleRects() const;

    // The front-most listed window under the pointer; none while an area is dragged or kept.
    std::optional<CapturedWindow> hoveredWindow() const;
    // "Capture “Inbox — Mail”" from the title, "Capture Firefox Window" from the application,
    // or "Capture Window".
    QString windowLabel(const CapturedWindow& window) const;
    // Where a label of `size` goes for a window: on it, but never under the loupe or its
    // readouts.
    QRectF windowLabelRect(const CapturedWindow& window, QSizeF size) const;
    // The loupe's square, kept inside the pointer's screen; empty without a picture.
    QRectF loupeRect() const;
    // The loupe with its readout pills above and below.
    QRectF loupeZone() const;
    // The pixel under the pointer in its screen's picture, clamped into the picture.
    QPoint pixelUnderPointer() const;
    // "#1E90FF · 812, 344": the colour and position of the pixel under the pointer.
    QString colorReadout() const;
    // "640 × 480": the pixels a capture of the area holds, while one is dragged or adjusted.
    std::optional<QString> sizeReadout() const;

    // The key hint is shown throughout (a user's first selections) or only while one of the
    // keys it explains is held.
    void setHintPinned(bool pinned) { hintPinned_ = pinned; }
    void setHintKeyHeld(bool held) { hintKeyHeld_ = held; }
    // The hint's text when it shows, else nothing.
    std::optional<QString> hint() const;

private:
    QRectF spanned(QPointF from, QPointF to) const;
    QRectF resized(Handle handle, QPointF delta) const;
    double pixelStep() const;
    void updateRect();

    FrozenDesktop desktop_;
    QString verb_;
    bool adjustBeforeCapturing_ = false;

    std::optional<QPointF> mouseDownPoint_;
    std::optional<CapturedWindow> clickedWindow_;
    QRectF currentRect_;
    QPointF mousePoint_;
    int pointerDisplay_ = -1;
    bool isDragging_ = false;
    bool isMoving_ = false;
    bool isSquare_ = false;

    bool isAdjusting_ = false;
    Handle grabbed_ = Handle::None; // what the press took while adjusting
    QRectF rectAtPress_;            // the adjusted area when the button went down

    bool hintPinned_ = false;
    bool hintKeyHeld_ = false;
};

} // namespace qm
