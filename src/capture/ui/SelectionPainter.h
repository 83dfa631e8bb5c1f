#pragma once

#include <QImage>
#include <QRectF>
#include <QRegion>
#include <QString>

class QPainter;

namespace qm {

class SelectionModel;
struct CapturedWindow;

// Draws one screen's part of the picker: its dimmed picture, the window under the pointer lit
// up with its label, or the dragged area (with handles while it is adjusted), and on the
// pointer's screen the loupe with its readout pills and the key hint.
class SelectionPainter {
public:
    // display: the index of the screen in the selection's frozen desktop.
    SelectionPainter(const SelectionModel& selection, int display);

    // The parts of the view the overlays (highlight, area, loupe, pills, hint) cover now, in
    // view coordinates.
    QRegion overlayRegion() const;
    void paint(QPainter& painter) const;

    // Where the hint pill sits on the pointer's screen, global points; empty without a hint.
    QRectF hintRect() const;
    // Where the hovered window's label sits, global points; empty without one.
    QRectF windowLabelRect() const;

private:
    QRectF screenRect() const;
    bool hasPointer() const;
    const QImage& dimmedBackdrop() const;
    void drawUndimmed(QPainter& painter, const QRectF& rect) const;
    void drawArea(QPainter& painter) const;
    void drawWindowHighlight(QPainter& painter, const CapturedWindow& window) const;
    void drawLoupe(QPainter& painter) const;
    void drawReadouts(QPainter& painter, const QRectF& loupe) const;

    const SelectionModel& selection_;
    int display_;
    mutable QImage dimmedBackdrop_; // made on first paint, then reused
};

} // namespace qm
