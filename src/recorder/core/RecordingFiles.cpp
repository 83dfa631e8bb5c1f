#include "recorder/core/RecordingFiles.h"

#include "base/ImageExport.h"
#include "base/Log.h"
#include "base/SafeWrite.h"
#include "media/MovieWriter.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace qm::recorder {

namespace {
const QString kInProgressSuffix = QStringLiteral(".partial.mov");

} // namespace

QString recordingsFolder() {
    QString state = qEnvironmentVariable("XDG_STATE_HOME");
    if (state.isEmpty() || !QDir::isAbsolutePath(state))
        state = QDir::homePath() + QStringLiteral("/.local/state");
    return state + QStringLiteral("/Quillmark/recordings");
}

QString inProgressPath(const QString& folder, const QDateTime& when) {
    return QDir(folder).filePath(ImageExport::recordingPrefix + QLatin1Char(' ') +
                                 ImageExport::timestamp(when) + kInProgressSuffix);
}

RecordingLock::RecordingLock(const QString& path) {
    m_fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (m_fd >= 0 && ::flock(m_fd, LOCK_EX | LOCK_NB) != 0) {
        ::close(m_fd);
        m_fd = -1;
    }
}

RecordingLock::~RecordingLock() {
    if (m_fd >= 0)
        ::close(m_fd);
}

QStringList leftoverRecordings(const QString& folder) {
    QStringList found;
    const QFileInfoList entries = QDir(folder).entryInfoList(
        {QLatin1Char('*') + kInProgressSuffix}, QDir::Files, QDir::Time | QDir::Reversed);
    for (const QFileInfo& entry : entries) {
        // A lock that cannot be had means a live recorder holds it.
        if (RecordingLock(entry.absoluteFilePath()).held())
            found << entry.absoluteFilePath();
    }
    return found;
}

Result<DeliveredRecording> deliverRecording(const QString& inProgress, const QString& saveFolder) {
    const QFileInfo info(inProgress);
    QString stem = info.fileName();
    if (stem.endsWith(kInProgressSuffix))
        stem.chop(kInProgressSuffix.size());
    const QString finished = info.dir().filePath(stem + QStringLiteral(".mov"));
    // A crash while finishing leaves a half-written movie of ours under this name; the
    // recording it came from is still here, so it is made again.
    QFile::remove(finished);

    QString movie = finished;
    const Result<media::MovieSummary> made = media::finalizeMovie(inProgress, finished);
    if (made) {
        QFile::remove(inProgress);
    } else if (made.error().reason == media::noCompleteFrameReason()) {
        QFile::remove(inProgress); // holds no picture, so nothing of the user's is lost
        return made.error();
    } else {
        // Most players still read the recording as it was written; keep it rather than
        // nothing (a full disk leaves no room for the rewritten copy).
        qCWarning(lcRecording).noquote()
            << QStringLiteral("Could not finish the movie, keeping it as recorded: ") +
                   made.error().reason;
        movie = inProgress;
    }

    Result<QString> moved = SafeWrite::moveNewFile(movie, saveFolder, stem, QStringLiteral(".mov"));
    if (moved)
        return DeliveredRecording{*moved, {}};
    qCWarning(lcRecording).noquote()
        << QStringLiteral("Quillmark recording move failed, keeping temp: ") + moved.error().reason;
    return DeliveredRecording{
        movie,
        QStringLiteral("%1. The movie is in %2.")
            .arg(moved.error().reason, SafeWrite::displayName(QFileInfo(movie).absolutePath()))};
}

} // namespace qm::recorder
