#pragma once

#include <QObject>
#include <QPointer>
#include <QRect>
#include <QScreen>
#include <QString>
#include <functional>
#include <memory>

namespace qm {

class ClickHighlightController;
class RecordingControlsController;
class RecordingDimOverlay;
class RecordingState;
class WebcamBubbleController;
namespace platform {
class CameraBackend;
class ClickSourceBackend;
} // namespace platform

// The windows around a recording: the webcam bubble and click ripples (meant to be in the
// movie), and the control bar and dimming (kept out of it by where they are placed).
class RecordingWindows final : public QObject {
    Q_OBJECT
public:
    RecordingWindows(platform::CameraBackend& camera, platform::ClickSourceBackend& clicks,
                     QObject* parent = nullptr);
    ~RecordingWindows() override;

    std::function<void()> onStop;
    std::function<void(bool paused)> onPauseToggle;

    // Before the countdown, so the first frame already has them. `area` is in global points.
    void showDecorations(QScreen* screen, const QRect& area, bool webcam, bool clicks);
    // Once the recorder runs: the bar beside the area (or nowhere, for a whole single
    // screen) and the dimming around a part of a screen.
    void showControls(QScreen* screen, const QRect& area);
    void setPaused(bool paused);
    void closeAll();

    bool controlBarShown() const { return m_barShown; }
    RecordingState* state() const;

Q_SIGNALS:
    // "MM:SS", as the bar shows it, for the tray when there is no bar.
    void elapsedChanged(const QString& display);

private:
    platform::CameraBackend& m_camera;
    platform::ClickSourceBackend& m_clickSource;
    std::unique_ptr<RecordingControlsController> m_controls;
    std::unique_ptr<RecordingDimOverlay> m_dim;
    std::unique_ptr<ClickHighlightController> m_clicks;
    std::unique_ptr<WebcamBubbleController> m_bubble;
    bool m_barShown = false;
};

} // namespace qm
