#pragma once

#include <QColor>
#include <QImage>
#include <QPointer>
#include <QRectF>
#include <QScreen>
#include <QString>

#include <cstdint>
#include <optional>
#include <variant>
#include <vector>

namespace qm {

// Geometry is in Qt's global logical coordinates (top-left origin, y down); pixels are
// logical points × the screen's device pixel ratio.

// One visible window offered for picking.
struct CapturedWindow {
    QRectF frame;                          // frame including decorations, global points
    std::optional<QString> appName;        // from WM_CLASS
    std::optional<std::uint32_t> windowId; // the server's window, when it can be captured live
    friend bool operator==(const CapturedWindow&, const CapturedWindow&) = default;
};

// One frozen screen.
struct DisplayCapture {
    QImage image;            // full-resolution pixels, devicePixelRatio = scale
    QPointer<QScreen> screen;
    QRectF geometry;         // the screen's rectangle in global points when it was frozen
    double scale = 1.0;      // pixels per point
    std::vector<CapturedWindow> windows; // front-most first

    // Size in points.
    QSizeF pointSize() const { return geometry.size(); }
    // The colour of one pixel of the frozen image, nothing outside it.
    std::optional<QColor> color(int x, int y) const {
        if (x < 0 || y < 0 || x >= image.width() || y >= image.height())
            return std::nullopt;
        return image.pixelColor(x, y);
    }
};

enum class CaptureError { NoDisplay, NoWindow, CaptureFailed };

// A capture that did not happen: the kind, and for failures of the display server or of a
// backend that cannot capture here, the one-sentence reason the user is shown.
struct CaptureFailure {
    CaptureError error = CaptureError::CaptureFailed;
    QString reason;
    friend bool operator==(const CaptureFailure&, const CaptureFailure&) = default;
};

// The outcome of an asynchronous capture step: the value, or why there is none.
template <class T> using CaptureResult = std::variant<T, CaptureFailure>;

// What the selection overlay answers: an area in global points, or a window. Absent means
// the user cancelled.
using SelectionResult = std::variant<QRectF, CapturedWindow>;

} // namespace qm
