#pragma once

#include <QImage>
#include <QRectF>
#include <QRegion>
#include <QString>

class QPainter;

namespace qm {

class SelectionModel;
struct CapturedWindow;

// Draws the picker for a selection: the dimmed picture, the window under the pointer lit up or
// the dragged region, and the loupe with its readout pills.
class SelectionPainter {
public:
    explicit SelectionPainter(const SelectionModel& selection);

    // The parts of the view the overlays (highlight, region, loupe, pills) cover now.
    QRegion overlayRegion() const;
    void paint(QPainter& painter) const;

private:
    QRectF viewRect() const;
    const QImage& dimmedBackdrop() const;
    void drawUndimmed(QPainter& painter, const QRectF& rect) const;
    void drawWindowHighlight(QPainter& painter, const CapturedWindow& window) const;
    void drawLoupe(QPainter& painter) const;
    void drawReadouts(QPainter& painter, const QRectF& loupe) const;
    QRectF windowHighlightRect(const CapturedWindow& window) const;

    const SelectionModel& selection_;
    mutable QImage dimmedBackdrop_; // made on first paint, then reused
};

} // namespace qm
