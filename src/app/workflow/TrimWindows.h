#pragma once

#include <QObject>
#include <QString>
#include <memory>
#include <vector>

namespace qm {

class TrimJobs;
namespace media::ui {
class TrimWindowController;
}

// The open trim windows, one per movie: each cuts its movie in place or exports its kept
// range as a GIF through the jobs runner, with the progress in the window's status line.
// Closing a window cancels its export and removes the partial file.
class TrimWindows final : public QObject {
    Q_OBJECT
public:
    explicit TrimWindows(TrimJobs& jobs, QObject* parent = nullptr);
    ~TrimWindows() override;

    // Opens the movie in a trim window, or raises the one it is open in.
    void open(const QString& movie);
    int count() const { return int(m_windows.size()); }
    media::ui::TrimWindowController* window(int index) const;

private:
    TrimJobs& m_jobs;
    std::vector<std::unique_ptr<media::ui::TrimWindowController>> m_windows;
};

} // namespace qm
