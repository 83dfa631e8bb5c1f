#pragma once

#include "base/Result.h"

#include <QDateTime>
#include <QString>
#include <QStringList>

namespace qm::recorder {

// Where a recording lives while it is made: $XDG_STATE_HOME/Quillmark/recordings, on disk
// (never a RAM-backed temporary folder), so a crash or a power loss leaves it behind.
QString recordingsFolder();

// The file a recording started at `when` is written to while it runs.
QString inProgressPath(const QString& folder, const QDateTime& when);

// Marks a recording as being written, for as long as the object lives, so that another
// Quillmark (another session of the same user) never takes it for a leftover.
class RecordingLock {
public:
    explicit RecordingLock(const QString& path);
    ~RecordingLock();
    RecordingLock(const RecordingLock&) = delete;
    RecordingLock& operator=(const RecordingLock&) = delete;
    bool held() const { return m_fd >= 0; }

private:
    int m_fd = -1;
};

// Recordings a crash left behind in the folder, oldest first; those still being written by
// a running recorder are not among them.
QStringList leftoverRecordings(const QString& folder);

// Where a finished recording ended up.
struct DeliveredRecording {
    QString path;
    // Set when the movie could not go to the save folder and stayed in the recordings folder:
    // why, and where it is ("Pictures/Quillmark is a file. The movie is in …").
    QString problem;
};

// Turns a recording (finished, or cut off by a crash) into a normal movie with its index at
// the front and moves it to the save folder under the recording's name; never replaces a
// file there. Blocks: run it off the GUI thread. Fails only when the recording holds no
// picture at all (the empty leftover is then removed).
Result<DeliveredRecording> deliverRecording(const QString& inProgress, const QString& saveFolder);

} // namespace qm::recorder
