#pragma once

#include <QPointF>
#include <QPointer>
#include <QScrollArea>
#include <optional>

class QLabel;
class QToolButton;

namespace qm {

class AnnotationCanvas;
class EditorModel;

// Pans the view while Space is held: an open hand, a closed hand while dragging. Laid over
// the viewport; it takes focus while shown and gives it back afterwards (for example to the
// text being typed).
class HandToolOverlay : public QWidget {
    Q_OBJECT

public:
    HandToolOverlay(QScrollArea& scrollArea, EditorModel& model);
    void setActive(bool active);
    bool isPanning() const { return m_lastPoint.has_value(); }

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;

private:
    QScrollArea& m_scrollArea;
    EditorModel& m_model;
    std::optional<QPointF> m_lastPoint;
    QPointer<QWidget> m_focusBeforeActivation;
};

// The zoom controls in a strip below the canvas, so they never cover the image: zoom out, the
// current percentage, zoom in, "100%" (Ctrl+1) and "Fit" (Ctrl+0).
class ZoomBar : public QWidget {
    Q_OBJECT

public:
    ZoomBar(EditorModel& model, QWidget* parent);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void refresh();
    EditorModel& m_model;
    QLabel* m_percent = nullptr;
    QToolButton* m_actual = nullptr;
    QToolButton* m_fit = nullptr;
};

// A short message in a dark pill floating at the top of the canvas.
class CapsuleLabel : public QWidget {
    Q_OBJECT

public:
    explicit CapsuleLabel(QWidget* parent);
    void setText(const QString& text);
    QString text() const { return m_text; }
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QString m_text;
};

// The scrolling viewport around the canvas: zooms about the pointer with Ctrl+wheel, keeps an
// image smaller than the viewport centred, reports the fit zoom to the model, and pans with the
// hand tool. The zoom bar sits in a strip of its own below the viewport.
class CanvasScrollView : public QScrollArea {
    Q_OBJECT

public:
    // Empty room around the image (points).
    static constexpr double fixedMargin = 28;

    explicit CanvasScrollView(EditorModel& model, QWidget* parent = nullptr);

    AnnotationCanvas* canvas() const { return m_canvas; }
    ZoomBar* zoomBar() const { return m_zoomBar; }
    // Height of the strip below the viewport that holds the zoom bar.
    int stripHeight() const { return viewportMargins().bottom(); }
    HandToolOverlay* handOverlay() const { return m_hand; }

    // The exponent of one wheel event's zoom factor: line deltas (a wheel notch is 1 line)
    // count 0.06 a line, pixel deltas from touchpads 0.005 a pixel, at most ±0.5 per event.
    static double wheelZoomExponent(QPoint angleDelta, QPoint pixelDelta);
    // Zooms by `factor` keeping the document point under `viewportPoint` where it is.
    void zoomBy(double factor, QPointF viewportPoint);
    // The zoom (percent) at which the whole image fits the viewport: 100 for images that fit,
    // else a crisp fraction (ZoomState::crispFitPercent).
    double computeFitPercent() const;

protected:
    void wheelEvent(QWheelEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    struct ZoomAnchor {
        QPointF documentPoint;  // in canvas coordinates
        QPointF viewportOffset; // from the visible area's origin
        double scale;
    };
    ZoomAnchor anchorAt(QPointF viewportPoint) const;
    void applyScale();
    bool applyPendingZoomAnchor(double newScale);
    void layoutOverlays();

    EditorModel& m_model;
    AnnotationCanvas* m_canvas = nullptr;
    HandToolOverlay* m_hand = nullptr;
    ZoomBar* m_zoomBar = nullptr;
    CapsuleLabel* m_capsule = nullptr;
    std::optional<ZoomAnchor> m_pendingAnchor;
};

} // namespace qm
