#pragma once

#include <QPointer>
#include <QRectF>
#include <QWidget>
#include <chrono>
#include <optional>

class QScreen;

namespace qm::CaptureFlash {

constexpr std::chrono::milliseconds fadeDuration{320};

// Flashes a white rectangle that fades away, confirming a capture: rect in global points, else
// the whole screen (else the primary screen). Areas not larger than 1 × 1 point show nothing.
// Answers the flash window, shown until the fade ends, for callers that want to follow it.
QPointer<QWidget> flash(std::optional<QRectF> rect, QScreen* screen = nullptr);

// Flashes the whole screen under the pointer.
QPointer<QWidget> flashScreenUnderMouse();

} // namespace qm::CaptureFlash
