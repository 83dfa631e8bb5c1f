#pragma once

#include <QObject>
#include <QString>
#include <QThreadPool>
#include <atomic>
#include <functional>
#include <memory>
#include <vector>

namespace qm {

class Preferences;
class SoundPlayer;
class ToastCenter;
namespace media::player {
class TrimSession;
}

// Cuts a movie in place or exports a range of it as a GIF, in the background, with the
// progress in the session's status line; the trim window and the library's movie pane both
// hand their sessions here. A job whose session goes away (its window closed, the library
// showed another capture) is cancelled, and a partial GIF is removed.
class TrimJobs final : public QObject {
    Q_OBJECT
public:
    struct Report {
        // A new file (the GIF) or a rewritten one (the trimmed movie).
        std::function<void(const QString& path)> saved;
    };
    TrimJobs(Preferences& preferences, SoundPlayer& sounds, ToastCenter& toasts, Report report,
             QObject* parent = nullptr);
    // Cancels what runs and waits for it.
    ~TrimJobs() override;

    // `trimmed` runs after a successful cut, if the session is still there.
    void trim(media::player::TrimSession& session, double start, double end,
              std::function<void()> trimmed = {});
    void exportGif(media::player::TrimSession& session, double start, double end);

private:
    // A flag set when the session is destroyed, kept so the destructor can cancel too.
    std::shared_ptr<std::atomic_bool> cancelWith(media::player::TrimSession& session);

    Preferences& m_preferences;
    SoundPlayer& m_sounds;
    ToastCenter& m_toasts;
    Report m_report;
    std::vector<std::weak_ptr<std::atomic_bool>> m_cancels;
    QThreadPool m_pool; // last: its destructor waits for the jobs
};

} // namespace qm
