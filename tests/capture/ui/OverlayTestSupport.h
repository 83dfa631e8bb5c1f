#pragma once

#include "capture/core/CaptureTypes.h"

#include <QPoint>
#include <QPointF>
#include <QScreen>
#include <QStringList>

namespace qm::test {

// The screen the overlay tests work on: the last one, so that a two-monitor run exercises
// the screen that is not at the origin.
QScreen* targetScreen();

// A frozen screen with a known picture: every pixel's colour encodes its position, so any
// pixel seen on screen tells where it came from.
DisplayCapture syntheticCapture(QScreen* screen, std::vector<CapturedWindow> windows = {});
QColor syntheticColor(int x, int y);

// X server coordinates (device pixels) of a point in Qt's global logical coordinates.
QPoint toDevice(QScreen* screen, QPointF global);

// Runs xdotool with the arguments; fails the test when it fails.
void xdotool(const QStringList& args);

} // namespace qm::test
