#pragma once

#include "editor/model/Annotation.h"
#include "editor/ui/CanvasGeometry.h"

#include <QPointF>
#include <QRectF>
#include <QUuid>
#include <variant>

// What a pointer drag on the canvas is doing, from press to release. Exactly one gesture runs
// at a time; each carries only what it needs, in image pixels.
namespace qm::canvas {

// No button held (or the drag was cancelled, e.g. by a tool switch).
struct Idle {};

// A new mark drawn with a drawing tool; it joins the document on release unless it is a click.
struct DrawShape {
    QPointF start;
    Annotation draft;
};

// The selection dragged as a whole. The undo snapshot is taken at the first real move, so a
// click takes none and a whole move is one step.
struct MoveSelection {
    QPointF last;
    bool snapshotTaken = false;
};

// One of the eight handles of the single selected rect-like mark.
struct ResizeMark {
    QUuid target;
    ResizeHandle handle;
    QRectF startRect;
    QPointF start;
    bool snapshotTaken = false;
};

// One end of the single selected arrow, line or straight stroke.
struct DragEnd {
    QUuid target;
    EndpointHandle handle;
    QPointF previous; // where the end was last put, so it keeps its side of the fixed one
    QPointF start;
    bool snapshotTaken = false;
};

// A rubber band on empty canvas with the select tool; it selects what it touches.
struct Marquee {
    QPointF start;
    QRectF rect;
};

// The crop frame being resized by a handle, moved, or drawn anew outside it.
struct CropResize {
    ResizeHandle handle;
};
struct CropMove {};
struct CropDraw {};
struct EditCrop {
    QPointF start;
    QRectF startFrame;
    std::variant<CropResize, CropMove, CropDraw> kind;
};

// A region dragged to copy the text in it.
struct SelectTextRegion {
    QPointF start;
    QRectF rect;
};

// A press with the text or step tool, which acts on release.
struct PlaceMark {
    QPointF start;
};

using Gesture = std::variant<Idle, DrawShape, MoveSelection, ResizeMark, DragEnd, Marquee, EditCrop,
                             SelectTextRegion, PlaceMark>;

} // namespace qm::canvas
