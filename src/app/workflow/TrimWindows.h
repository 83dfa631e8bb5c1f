#pragma once

#include <QObject>
#include <QString>
#include <atomic>
#include <functional>
#include <memory>
#include <vector>

namespace qm {

class Preferences;
class SoundPlayer;
class ToastCenter;
namespace media::ui {
class TrimWindowController;
}

// The open trim windows, one per movie: each cuts its movie in place or exports its kept
// range as a GIF, in the background, with the progress in the window's status line. Closing
// a window cancels its export and removes the partial file.
class TrimWindows final : public QObject {
    Q_OBJECT
public:
    struct Report {
        // A new file (the GIF) or a rewritten one (the trimmed movie).
        std::function<void(const QString& path)> saved;
    };
    TrimWindows(Preferences& preferences, SoundPlayer& sounds, ToastCenter& toasts, Report report,
                QObject* parent = nullptr);
    ~TrimWindows() override;

    // Opens the movie in a trim window, or raises the one it is open in.
    void open(const QString& movie);
    int count() const { return int(m_windows.size()); }
    media::ui::TrimWindowController* window(int index) const;

private:
    struct Entry;
    void trim(Entry& entry, double start, double end);
    void exportGif(Entry& entry, double start, double end);
    Entry* find(const media::ui::TrimWindowController* controller) const;

    Preferences& m_preferences;
    SoundPlayer& m_sounds;
    ToastCenter& m_toasts;
    Report m_report;
    std::vector<std::unique_ptr<Entry>> m_windows;
};

} // namespace qm
