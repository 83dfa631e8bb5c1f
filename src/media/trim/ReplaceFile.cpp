#include "media/trim/ReplaceFile.h"

#include "media/Av.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUuid>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qm::media::trim {

namespace {

class Fd {
public:
    explicit Fd(int fd)
        : m_fd(fd) {}
    ~Fd() {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    int get() const { return m_fd; }

private:
    int m_fd;
};

Error replaceFailure(int error) {
    return failure(QStringLiteral("the trimmed movie could not take the original's place: ") +
                   av::describeErrno(error));
}

} // namespace

QString hiddenSiblingPath(const QString& target) {
    const QFileInfo info(target);
    const QString tag = QUuid::createUuid().toString(QUuid::Id128).left(12);
    return info.absoluteDir().filePath(QLatin1Char('.') + info.fileName() + QLatin1Char('.') + tag +
                                       QStringLiteral(".trimming"));
}

Status replaceFile(const QString& replacement, const QString& target) {
    const QByteArray from = QFile::encodeName(replacement);
    const QByteArray to = QFile::encodeName(target);
    struct stat original {};
    if (::stat(to.constData(), &original) != 0)
        return replaceFailure(errno);

    const Fd file(::open(from.constData(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0)
        return replaceFailure(errno);
    if (::fchmod(file.get(), original.st_mode & 07777) != 0)
        return replaceFailure(errno);
    struct stat made {};
    if (::fstat(file.get(), &made) == 0 &&
        (made.st_uid != original.st_uid || made.st_gid != original.st_gid)) {
        // Only root may give a file away; anyone else keeps the movie as their own.
        if (::fchown(file.get(), original.st_uid, original.st_gid) != 0) {
        }
    }
    // The data and the new permissions reach the disk before the name points at them.
    if (::fsync(file.get()) != 0)
        return replaceFailure(errno);
    if (::rename(from.constData(), to.constData()) != 0)
        return replaceFailure(errno);

    const QByteArray folder = QFile::encodeName(QFileInfo(target).absolutePath());
    const Fd dir(::open(folder.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir.get() >= 0)
        ::fsync(dir.get()); // the rename itself survives a power loss
    return {};
}

} // namespace qm::media::trim
