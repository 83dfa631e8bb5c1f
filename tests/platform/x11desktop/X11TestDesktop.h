#pragma once

#include <QColor>
#include <QPainter>
#include <QProcess>
#include <QRasterWindow>
#include <QRect>
#include <QString>
#include <cstdint>
#include <memory>
#include <optional>

// Helpers for tests that run on a private X server: a desktop background whose every pixel
// names its own position, and foreign client windows of known colour.

namespace qm::test {

// The colour of the desktop pixel at (x, y) while a RootPattern is shown, and back.
QRgb patternColor(int x, int y);
QPoint patternPoint(QRgb color);

// Paints the root window so each pixel encodes its coordinates; the background stays while
// the object lives.
class RootPattern {
public:
    RootPattern();
    ~RootPattern();
    RootPattern(const RootPattern&) = delete;
    RootPattern& operator=(const RootPattern&) = delete;
    bool ok() const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

// An xterm of one background colour at a pixel position; killed when the object goes.
class ForeignWindow {
public:
    // `geometry` is xterm's: "COLSxROWS+X+Y" in characters and pixels.
    ForeignWindow(const QString& className, const QColor& background, const QString& geometry);
    ~ForeignWindow();
    ForeignWindow(const ForeignWindow&) = delete;
    ForeignWindow& operator=(const ForeignWindow&) = delete;

    bool ok() const { return m_window != 0; }
    std::uint32_t window() const { return m_window; } // the client window
    qint64 pid() const { return m_process.processId(); }
    QRect geometry() const; // the client window's area on the desktop, in pixels
    void activate() const;  // raises and focuses it through the window manager

private:
    QProcess m_process;
    std::uint32_t m_window = 0;
};

// Starts a compositing manager (xcompmgr) for the life of the object.
class Compositor {
public:
    Compositor();
    ~Compositor();
    bool ok() const { return m_running; }

private:
    QProcess m_process;
    bool m_running = false;
};

// Whether an EWMH window manager runs; window frames and stacking need one.
bool windowManagerRunning();

// Whether the X selection _NET_WM_CM_S0 has an owner.
bool compositorSelectionOwned();

// A plain window filled with one colour, drawn by Qt.
class ColourWindow : public QRasterWindow {
public:
    explicit ColourWindow(QColor colour)
        : m_colour(colour) {}

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter(this).fillRect(QRect(QPoint(), size()), m_colour);
    }

private:
    QColor m_colour;
};

} // namespace qm::test
