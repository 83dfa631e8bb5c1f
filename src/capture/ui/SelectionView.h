#pragma once

#include "capture/core/CaptureTypes.h"

#include <QImage>
#include <QPointF>
#include <QRectF>
#include <QRegion>
#include <QString>
#include <QTimer>
#include <QWidget>
#include <functional>
#include <optional>

namespace qm {

// The full-screen picker over one frozen screen: the dimmed picture, the window under the
// pointer lit up, a dragged region, and a loupe with pixel readouts. It is its own top-level
// window; view coordinates are points from the screen's top-left corner.
class SelectionView final : public QWidget {
    Q_OBJECT
public:
    using FinishCallback = std::function<void(std::optional<SelectionResult>)>;

    static constexpr double dragThreshold = 5.0;   // a press moving further starts a region
    static constexpr double minimumSide = 4.0;     // smaller regions count as clicks
    static constexpr double loupeDiameter = 132.0; // points
    static constexpr double magnification = 8.0;
    static constexpr double loupeEdgeMargin = 110.0; // the loupe's centre keeps this far in

    // verb: "Capture" or "Record", shown in the window label.
    SelectionView(DisplayCapture background, QString verb, FinishCallback onFinish);
    ~SelectionView() override;

    const DisplayCapture& background() const { return background_; }
    QPointF screenOrigin() const { return background_.geometry.topLeft(); }
    QPointF mousePoint() const { return mousePoint_; }
    bool isDragging() const { return isDragging_; }
    QRectF currentRect() const { return currentRect_; }
    // Whether the keyboard and pointer are grabbed, so input reaches the overlay whatever
    // window had focus.
    bool hasInputGrab() const { return grabbed_; }

    // The front-most listed window under the pointer.
    std::optional<CapturedWindow> hoveredWindow() const;
    // "Capture Firefox Window", or "Capture Window" when the application is unknown.
    QString windowLabel(const CapturedWindow& window) const;
    // The loupe's square in view coordinates; empty without a background picture.
    QRectF loupeRect() const;
    // The pixel under the pointer, clamped into the picture.
    QPoint pixelUnderPointer() const;
    // "#1E90FF · 812, 344": the colour and position of the pixel under the pointer.
    QString colorReadout() const;
    // "640 × 480": the dragged region in pixels, while a region is being dragged.
    std::optional<QString> sizeReadout() const;

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
    void pointerMoved(QPointF point);
    // Repaints only what the overlays covered before and cover now.
    void changeState(const std::function<void()>& change);
    QRegion overlayRegion() const;
    const QImage& dimmedBackdrop() const;
    void drawUndimmed(QPainter& painter, const QRectF& rect) const;
    void drawWindowHighlight(QPainter& painter, const CapturedWindow& window) const;
    void drawLoupe(QPainter& painter) const;
    void drawReadouts(QPainter& painter, const QRectF& loupeRect) const;
    QRectF windowHighlightRect(const CapturedWindow& window) const;
    QRectF pillRect(const QString& text, QPointF center, bool emphasized) const;
    void drawPill(QPainter& painter, const QString& text, QPointF center, bool emphasized) const;

    DisplayCapture background_;
    std::vector<CapturedWindow> windows_; // front-most first
    QString verb_;
    FinishCallback onFinish_;

    std::optional<QPointF> mouseDownPoint_;
    std::optional<CapturedWindow> clickedWindow_;
    QRectF currentRect_;
    QPointF mousePoint_;
    bool isDragging_ = false;

    mutable QImage dimmedBackdrop_; // made on first paint, then reused
    QTimer grabTimer_;
    int grabAttempts_ = 0;
    bool grabbed_ = false;
    bool finished_ = false;
};

} // namespace qm
