#pragma once

#include "platform/surface/api/SurfaceBackend.h"

class QScreen;
class QWidget;

class QPainter;

namespace qm {

// The one process-wide platform service of the kit: what floating surfaces ask the display
// server. The composition root installs the session's backend at start-up, before any window
// is made, and keeps it alive until the last one is gone; null puts back the default, which
// asks nothing (opaque surfaces with masked corners).
void installSurfaceBackend(platform::SurfaceBackend* backend);
platform::SurfaceBackend& surfaceBackend();

// Whether a floating surface lets the pointer through to the windows below it.
enum class PointerInput { PassThrough, Accept };

// Turns a parentless widget into a floating surface: frameless, above other windows, outside
// the window manager's control, and never taking the keyboard focus. Call before showing.
void makeFloatingWindow(QWidget* window, PointerInput input);

// Whether windows can be see-through (a compositing manager runs); without one, rounded
// surfaces are cut out with a shape mask instead.
bool translucencyAvailable();

// Gives a floating window rounded corners: see-through corners when the desktop composites,
// a shape mask otherwise. Call again after each resize.
void shapeRounded(QWidget* window, double radius);

// Paints the dark rounded face with its faint rim that toasts and the countdown share; the
// painter is left antialiased, source-over, ready for the content.
void paintPanelFace(QPainter& painter, const QWidget* window, double radius);

} // namespace qm
