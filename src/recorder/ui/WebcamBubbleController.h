#pragma once

#include "platform/camera/api/CameraSource.h"

#include <QImage>
#include <QObject>
#include <QPointer>
#include <QRect>
#include <QWidget>
#include <memory>
#include <optional>

class QScreen;

namespace qm {

// The webcam's round picture: the newest frame, mirrored like a looking glass and filling
// the circle, inside a light border.
class BubbleView final : public QWidget {
    Q_OBJECT
public:
    static constexpr int diameter = 160;
    static constexpr double borderWidth = 3.0;

    BubbleView();
    void setFrame(const QImage& frame);
    QImage frame() const { return m_frame; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    QImage m_frame;
};

// The webcam bubble of a recording: the camera in a circle at the bottom-right corner of the
// recorded area, on screen and therefore in the movie. Opening and stopping the camera take
// time and run off the GUI thread; without a camera nothing is shown, and the log says so
// once per controller, so make one per recording.
class WebcamBubbleController final : public QObject {
    Q_OBJECT
public:
    static constexpr int margin = 16;

    // `cameras` must outlive this controller and the camera it is still opening.
    explicit WebcamBubbleController(platform::CameraBackend& cameras, QObject* parent = nullptr);
    ~WebcamBubbleController() override;

    // Opens the camera and, once it runs, shows the bubble in the corner of `area` (global
    // logical coordinates), or of the screen's visible frame when the whole screen is
    // recorded.
    void show(QScreen* screen, std::optional<QRect> area = std::nullopt);
    // Takes the bubble away and stops the camera in the background.
    void close();

    // The bubble, once the camera runs.
    BubbleView* window() const { return m_view; }

    // The bubble's geometry for an area on a screen: its corner, `margin` in from the area's
    // right and bottom edges, moved onto the screen where the area runs off it.
    static QRect placement(const QRect& area, const QRect& screen);

Q_SIGNALS:
    // The camera runs and the bubble is on screen.
    void shown();
    // No bubble for this recording, and why.
    void unavailable(const QString& reason);

private:
    struct Session;
    void opened(const std::shared_ptr<Session>& session, QRect geometry, QScreen* screen);

    platform::CameraBackend& m_cameras;
    std::shared_ptr<Session> m_session;
    QPointer<BubbleView> m_view;
    bool m_reportedMissing = false;
};

} // namespace qm
