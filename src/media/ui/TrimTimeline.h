#pragma once

// The filmstrip under the picture: the movie's frames side by side, the kept range between
// two handles with the rest dimmed, and the playhead. Dragging a handle moves that end of the
// range; dragging anywhere else scrubs.

#include "media/player/TimelineDrag.h"

#include <QWidget>
#include <optional>

namespace qm::media::player {
class TrimSession;
}

namespace qm::media::ui {

class TrimTimeline : public QWidget {
    Q_OBJECT
public:
    static constexpr int kStripHeight = 120;

    explicit TrimTimeline(player::TrimSession& session, QWidget* parent = nullptr);

    // The strip's frames fill this rectangle; handles and playhead are placed on it.
    QRect stripRect() const;
    int xAt(double seconds) const;

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    double timeAt(double x) const;
    void apply(player::DragTarget target, double x);

    player::TrimSession& m_session;
    bool m_pressed = false;
    double m_pressX = 0;
    std::optional<player::DragTarget> m_target; // decided at the drag's first movement
};

} // namespace qm::media::ui
