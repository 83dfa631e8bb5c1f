#include "base/SafeWrite.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace qm::SafeWrite {

namespace {

// Closes the descriptor and removes the temporary file unless it was handed on.
class TemporaryFile {
public:
    explicit TemporaryFile(const QString& folder) {
        // open(O_EXCL) with the ordinary mode lets the umask decide the permissions, as for any
        // file the user creates; a few random names are enough to miss a leftover.
        for (int attempt = 0; attempt < 16; ++attempt) {
            m_path = QDir(folder).filePath(
                QStringLiteral(".Quillmark-%1.part")
                    .arg(QRandomGenerator::global()->generate64(), 16, 16, QLatin1Char('0')));
            m_fd = ::open(QFile::encodeName(m_path).constData(),
                          O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
            if (m_fd >= 0 || errno != EEXIST)
                break;
        }
        m_error = m_fd < 0 ? errno : 0;
    }
    ~TemporaryFile() {
        if (m_fd >= 0)
            ::close(m_fd);
        if (!m_released)
            ::unlink(QFile::encodeName(m_path).constData());
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    int openError() const { return m_error; }
    int fd() const { return m_fd; }
    QByteArray nativePath() const { return QFile::encodeName(m_path); }
    void release() { m_released = true; }

    // Copies another file's bytes in and flushes them to the disk; 0 or the errno.
    int copyFrom(int source) {
        struct stat from {};
        if (::fstat(source, &from) != 0)
            return errno;
        off_t offset = 0;
        while (offset < from.st_size) {
            const ssize_t copied =
                ::copy_file_range(source, &offset, m_fd, nullptr, size_t(from.st_size - offset), 0);
            if (copied < 0) {
                if (errno == EINTR)
                    continue;
                if (errno != EXDEV && errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP)
                    return errno;
                // Kernels that cannot copy between these file systems: plain reads and writes.
                std::vector<char> block(1 << 20);
                for (;;) {
                    const ssize_t got = ::pread(source, block.data(), block.size(), offset);
                    if (got < 0 && errno == EINTR)
                        continue;
                    if (got < 0)
                        return errno;
                    if (got == 0)
                        break;
                    for (ssize_t done = 0; done < got;) {
                        const ssize_t put = ::write(m_fd, block.data() + done, size_t(got - done));
                        if (put < 0 && errno == EINTR)
                            continue;
                        if (put < 0)
                            return errno;
                        done += put;
                    }
                    offset += got;
                }
                break;
            }
            if (copied == 0)
                return EIO; // the source shrank under us
        }
        return finish(from.st_size);
    }

    // Writes everything and flushes it to the disk; 0 or the errno. Some file systems only
    // report a full disk when the data is flushed or the file closed, so both are checked.
    int writeAll(const QByteArray& bytes) {
        const char* data = bytes.constData();
        qsizetype left = bytes.size();
        while (left > 0) {
            const ssize_t written = ::write(m_fd, data, size_t(left));
            if (written < 0) {
                if (errno == EINTR)
                    continue;
                return errno;
            }
            data += written;
            left -= written;
        }
        return finish(bytes.size());
    }

private:
    int finish(off_t expectedSize) {
        // What the disk holds must be what was meant, before the name is claimed.
        struct stat written {};
        if (::fstat(m_fd, &written) != 0)
            return errno;
        if (written.st_size != expectedSize)
            return EIO;
        if (::fdatasync(m_fd) != 0 && errno != EINVAL)
            return errno;
        const int fd = m_fd;
        m_fd = -1;
        if (::close(fd) != 0 && errno != EINTR)
            return errno;
        return 0;
    }

    QString m_path;
    int m_fd = -1;
    int m_error = 0;
    bool m_released = false;
};

// Gives the temporary file the name unless something already has it: EEXIST then.
int claimName(const QByteArray& from, const QByteArray& to) {
    if (::renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS)
        return errno;
    // File systems without an exclusive rename still refuse to link over an existing name.
    if (::link(from.constData(), to.constData()) != 0)
        return errno;
    ::unlink(from.constData());
    return 0;
}

} // namespace

// A folder as the user knows it: from the home folder when it is inside ("Pictures/Quillmark"),
// else the whole path.
QString displayName(const QString& folder) {
    const QString path = QDir::cleanPath(QDir(folder).absolutePath());
    const QString home = QDir::cleanPath(QDir::homePath());
    if (path == home)
        return QStringLiteral("the home folder");
    if (path.startsWith(home + QLatin1Char('/')))
        return path.mid(home.size() + 1);
    return path;
}

QString describeErrno(int error, const QString& folder) {
    const QString where = folder.isEmpty() ? QStringLiteral("the folder") : displayName(folder);
    switch (error) {
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
        return QStringLiteral("the disk is full");
    case EROFS:
    case EACCES:
    case EPERM:
        return where + QStringLiteral(" is read-only");
    case ENOTDIR:
        return where + QStringLiteral(" is a file");
    case ENOENT:
        return where + QStringLiteral(" does not exist");
    case ENAMETOOLONG:
        return QStringLiteral("the file name is too long");
    case EIO:
        return QStringLiteral("the disk reported a read or write error");
    default:
        return QString::fromLocal8Bit(std::strerror(error)).toLower();
    }
}

Status ensureFolder(const QString& folder) {
    if (QFileInfo(folder).isDir())
        return {};
    // Walk up to the first part that exists: a file there is in the way.
    QString existing = QDir::cleanPath(QDir(folder).absolutePath());
    while (!QFileInfo::exists(existing) && existing != QLatin1String("/"))
        existing = QFileInfo(existing).absolutePath();
    if (!QFileInfo(existing).isDir())
        return failure(displayName(existing) + QStringLiteral(" is a file"));
    errno = 0;
    if (QDir().mkpath(folder))
        return {};
    const int error = errno;
    return failure(describeErrno(error ? error : EACCES, existing));
}

Result<QString> writeNewFile(const QString& folder, const QString& stem, const QString& extension,
                             const QByteArray& bytes) {
    if (Status made = ensureFolder(folder); !made)
        return made.error();
    TemporaryFile temporary(folder);
    if (temporary.openError())
        return failure(describeErrno(temporary.openError(), folder));
    if (const int error = temporary.writeAll(bytes))
        return failure(describeErrno(error, folder));
    const QDir dir(folder);
    for (int number = 1; number < 10000; ++number) {
        const QString name = number == 1
                                 ? stem + extension
                                 : stem + QLatin1Char(' ') + QString::number(number) + extension;
        const QString path = dir.filePath(name);
        const int error = claimName(temporary.nativePath(), QFile::encodeName(path));
        if (error == 0) {
            temporary.release();
            return path;
        }
        if (error != EEXIST)
            return failure(describeErrno(error, folder));
    }
    return failure(QStringLiteral("every name for the capture is taken"));
}

Result<QString> moveNewFile(const QString& source, const QString& folder, const QString& stem,
                            const QString& extension) {
    if (Status made = ensureFolder(folder); !made)
        return made.error();
    const QByteArray from = QFile::encodeName(source);
    const QDir dir(folder);
    const auto candidate = [&](int number) {
        return QFile::encodeName(dir.filePath(
            number == 1 ? stem + extension
                        : stem + QLatin1Char(' ') + QString::number(number) + extension));
    };
    for (int number = 1; number < 10000; ++number) {
        const QByteArray to = candidate(number);
        if (::renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE) ==
            0)
            return QFile::decodeName(to);
        if (errno == EEXIST)
            continue;
        if (errno != EXDEV && errno != EINVAL && errno != ENOSYS)
            return failure(describeErrno(errno, folder));
        // Another file system: copy, flush, claim the name, then let go of the original.
        const int in = ::open(from.constData(), O_RDONLY | O_CLOEXEC);
        if (in < 0)
            return failure(describeErrno(errno));
        TemporaryFile temporary(folder);
        if (temporary.openError()) {
            ::close(in);
            return failure(describeErrno(temporary.openError(), folder));
        }
        const int copyError = temporary.copyFrom(in);
        ::close(in);
        if (copyError)
            return failure(describeErrno(copyError, folder));
        for (; number < 10000; ++number) {
            const QByteArray name = candidate(number);
            const int error = claimName(temporary.nativePath(), name);
            if (error == 0) {
                temporary.release();
                ::unlink(from.constData());
                return QFile::decodeName(name);
            }
            if (error != EEXIST)
                return failure(describeErrno(error, folder));
        }
        break;
    }
    return failure(QStringLiteral("every name for the file is taken"));
}

Status replaceFile(const QString& path, const QByteArray& bytes) {
    const QString folder = QFileInfo(path).absolutePath();
    TemporaryFile temporary(folder);
    if (temporary.openError())
        return failure(describeErrno(temporary.openError(), folder));
    struct stat existing {};
    if (::stat(QFile::encodeName(path).constData(), &existing) == 0)
        ::fchmod(temporary.fd(), existing.st_mode & 07777);
    if (const int error = temporary.writeAll(bytes))
        return failure(describeErrno(error, folder));
    if (::rename(temporary.nativePath().constData(), QFile::encodeName(path).constData()) != 0)
        return failure(describeErrno(errno, folder));
    temporary.release();
    return {};
}

} // namespace qm::SafeWrite
