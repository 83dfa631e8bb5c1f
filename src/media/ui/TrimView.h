#pragma once

// The trim view: the picture, the filmstrip with its handles, the times, play/pause, and the
// Trim and Export GIF buttons. A widget of its own, so the trim window and the library can
// both show it. The exports themselves belong to whoever sets the callbacks.

#include <QWidget>
#include <functional>

class QLabel;
class QPushButton;

namespace qm::media::player {
class TrimSession;
class PlaybackEngine;
} // namespace qm::media::player

namespace qm::media::ui {

class TrimTimeline;
class VideoSurface;

// "1:05.25": minutes, seconds and hundredths.
QString formatMovieTime(double seconds);

class TrimView : public QWidget {
    Q_OBJECT
public:
    // `engine` (may be null) supplies the picture; the session drives it.
    TrimView(player::TrimSession& session, player::PlaybackEngine* engine, bool showsDone,
             QWidget* parent = nullptr);

    // The kept range, in seconds, when the user asks for it to be cut or made a GIF.
    std::function<void(double start, double end)> onTrim;
    std::function<void(double start, double end)> onExportGif;
    std::function<void()> onDone;

    TrimTimeline* timeline() const { return m_timeline; }
    VideoSurface* surface() const { return m_surface; }

protected:
    void keyPressEvent(QKeyEvent* event) override;

private:
    void refresh();

    player::TrimSession& m_session;
    VideoSurface* m_surface = nullptr;
    TrimTimeline* m_timeline = nullptr;
    QPushButton* m_play = nullptr;
    QPushButton* m_trim = nullptr;
    QPushButton* m_gif = nullptr;
    QLabel* m_time = nullptr;
    QLabel* m_range = nullptr;
    QLabel* m_status = nullptr;
};

} // namespace qm::media::ui
