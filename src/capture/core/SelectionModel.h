#pragma once

#include "capture/core/CaptureTypes.h"

#include <QPoint>
#include <QPointF>
#include <QRectF>
#include <QString>
#include <optional>
#include <vector>

namespace qm {

// What the picker over one frozen screen knows, apart from any window: where the pointer is,
// the window under it, the region being dragged, and what the loupe and its readouts show.
// Positions are view points, from the frozen screen's top-left corner.
class SelectionModel {
public:
    static constexpr double dragThreshold = 5.0;   // a press moving further starts a region
    static constexpr double minimumSide = 4.0;     // smaller regions count as clicks
    static constexpr double loupeDiameter = 132.0; // points
    static constexpr double magnification = 8.0;
    static constexpr double loupeEdgeMargin = 110.0; // the loupe's centre keeps this far in

    // verb: "Capture" or "Record", shown in the window label.
    SelectionModel(DisplayCapture background, QString verb);

    const DisplayCapture& background() const { return background_; }
    QPointF screenOrigin() const { return background_.geometry.topLeft(); }
    QSizeF viewSize() const { return background_.geometry.size(); }

    QPointF mousePoint() const { return mousePoint_; }
    bool isPressed() const { return mouseDownPoint_.has_value(); }
    bool isDragging() const { return isDragging_; }
    QRectF currentRect() const { return currentRect_; }

    // The pointer moved (with or without the button held).
    void move(QPointF point);
    void press(QPointF point);
    // The button went up at `point`: a region when one was dragged big enough, else the
    // window clicked on, else nothing (a click on the bare desktop).
    std::optional<SelectionResult> release(QPointF point);

    // The front-most listed window under the pointer.
    std::optional<CapturedWindow> hoveredWindow() const;
    // "Capture Firefox Window", or "Capture Window" when the application is unknown.
    QString windowLabel(const CapturedWindow& window) const;
    // The loupe's square, kept inside the view; empty without a background picture.
    QRectF loupeRect() const;
    // The pixel under the pointer, clamped into the picture.
    QPoint pixelUnderPointer() const;
    // "#1E90FF · 812, 344": the colour and position of the pixel under the pointer.
    QString colorReadout() const;
    // "640 × 480": the dragged region in pixels, while a region is being dragged.
    std::optional<QString> sizeReadout() const;

private:
    DisplayCapture background_;
    QString verb_;
    std::optional<QPointF> mouseDownPoint_;
    std::optional<CapturedWindow> clickedWindow_;
    QRectF currentRect_;
    QPointF mousePoint_;
    bool isDragging_ = false;
};

} // namespace qm
