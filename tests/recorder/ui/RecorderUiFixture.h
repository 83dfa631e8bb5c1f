#pragma once

#include "TestSupport.h"
#include "X11TestDesktop.h"
#include "platform/surface/x11/X11SurfaceBackend.h"
#include "ui/FloatingWindow.h"

#include <QGuiApplication>
#include <QMouseEvent>
#include <QScreen>
#include <QWidget>
#include <chrono>
#include <gtest/gtest.h>
#include <memory>

namespace qm::test {

// A clock the test moves by hand.
struct ManualClock {
    std::chrono::steady_clock::time_point now{};
    std::function<std::chrono::steady_clock::time_point()> function() {
        return [this] { return now; };
    }
    void advance(std::chrono::duration<double> by) {
        now += std::chrono::duration_cast<std::chrono::steady_clock::duration>(by);
    }
};

// A plain window of the test under our surfaces: white, counting the left presses it gets.
class TargetWindow final : public ColourWindow {
public:
    explicit TargetWindow(const QRect& geometry)
        : ColourWindow(Qt::white) {
        setGeometry(geometry);
        show();
    }
    int presses = 0;

protected:
    void mousePressEvent(QMouseEvent* event) override {
        if (event->button() == Qt::LeftButton)
            ++presses;
    }
};

inline bool xdotool(const QString& args) {
    return run(QStringLiteral("xdotool"), args.split(QLatin1Char(' '))).exitCode == 0;
}

inline bool clickAt(QPoint global) {
    return xdotool(QStringLiteral("mousemove %1 %2 click 1").arg(global.x()).arg(global.y()));
}

// The screen as the display server shows it (and a recording would see it).
inline QImage screenPixels() {
    return QGuiApplication::primaryScreen()->grabWindow(0).toImage().convertToFormat(
        QImage::Format_RGB32);
}

inline QColor accent() {
    return QGuiApplication::palette().color(QPalette::Highlight);
}

inline bool near(QColor a, QColor b, int tolerance = 8) {
    return std::abs(a.red() - b.red()) <= tolerance &&
           std::abs(a.green() - b.green()) <= tolerance &&
           std::abs(a.blue() - b.blue()) <= tolerance;
}

// Our surfaces ask the real X11 surface backend whether they can be see-through.
class RecorderUi : public ::testing::Test {
protected:
    void SetUp() override {
        m_surfaces = platform::X11SurfaceBackend::create();
        ASSERT_TRUE(m_surfaces);
        installSurfaceBackend(m_surfaces.get());
    }
    void TearDown() override { installSurfaceBackend(nullptr); }

    // Waits until the window is on screen and drawn.
    static bool shown(QWidget* window) {
        return waitUntil([&] {
            return window && window->windowHandle() && window->windowHandle()->isExposed();
        });
    }

private:
    std::unique_ptr<platform::X11SurfaceBackend> m_surfaces;
};

} // namespace qm::test
