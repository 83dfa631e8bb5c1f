#pragma once

// The stand-alone trim window that opens after a recording: the movie's session, its player
// and the trim view in a window of its own. Closing the window stops playback.

#include <QPointer>
#include <QString>
#include <functional>
#include <memory>

class QWidget;

namespace qm::media::player {
class TrimSession;
class PlaybackEngine;
} // namespace qm::media::player

namespace qm::media::ui {

class TrimView;

class TrimWindowController {
public:
    // `sound` false plays the movie silently (tests, or a session without a sound server).
    explicit TrimWindowController(const QString& moviePath, bool sound = true);
    ~TrimWindowController();
    TrimWindowController(const TrimWindowController&) = delete;
    TrimWindowController& operator=(const TrimWindowController&) = delete;

    // Makes the window on first call (and loads the movie); every call raises it.
    void show();
    void close();

    player::TrimSession& session() { return *m_session; }
    // Null until the first show().
    TrimView* view() const { return m_view; }
    QWidget* window() const;

    // Comes from the event loop just after the window closed, so it may delete the controller.
    std::function<void()> onClosed;

private:
    class Window;
    void windowClosed();

    QString m_path;
    player::PlaybackEngine* m_engine = nullptr; // owned by the session
    std::unique_ptr<player::TrimSession> m_session;
    std::unique_ptr<Window> m_window;
    TrimView* m_view = nullptr;
    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true);
};

} // namespace qm::media::ui
