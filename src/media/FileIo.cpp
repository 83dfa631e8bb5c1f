#include "media/FileIo.h"

#include "media/Av.h"

#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

extern "C" {
#include <libavformat/avio.h>
#include <libavutil/mem.h>
}

namespace qm::media {

namespace {

constexpr int kBufferSize = 64 * 1024;

void freeIo(AVIOContext*& io) {
    if (!io)
        return;
    av_freep(&io->buffer);
    avio_context_free(&io);
}

} // namespace

Result<std::unique_ptr<FileSink>> FileSink::createExclusive(const QString& path) {
    const QByteArray name = QFile::encodeName(path);
    const int fd = ::open(name.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0)
        return failure(av::describeErrno(errno));
    // The new name itself must survive a power loss, not only what is written under it.
    const QByteArray folder = QFile::encodeName(QFileInfo(path).absolutePath());
    if (const int dir = ::open(folder.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
    std::unique_ptr<FileSink> sink(new FileSink(fd));
    auto* buffer = static_cast<unsigned char*>(av_malloc(kBufferSize));
    if (buffer)
        sink->m_io = avio_alloc_context(buffer, kBufferSize, 1, sink.get(), nullptr,
                                        &FileSink::write, &FileSink::seek);
    if (!sink->m_io) {
        av_free(buffer);
        ::unlink(name.constData());
        return failure(av::describeErrno(ENOMEM));
    }
    return sink;
}

FileSink::FileSink(int fd)
    : m_fd(fd) {}

FileSink::~FileSink() {
    stopSyncing();
    freeIo(m_io);
    if (m_fd >= 0)
        ::close(m_fd);
}

int FileSink::write(void* opaque, std::uint8_t* data, int size) {
    auto* self = static_cast<FileSink*>(opaque);
    if (self->m_errno)
        return AVERROR(self->m_errno);
    int done = 0;
    while (done < size) {
        const ssize_t n = ::write(self->m_fd, data + done, size_t(size - done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            self->m_errno = n < 0 ? errno : EIO;
            return AVERROR(self->m_errno);
        }
        done += int(n);
    }
    return size;
}

std::int64_t FileSink::seek(void* opaque, std::int64_t offset, int whence) {
    auto* self = static_cast<FileSink*>(opaque);
    whence &= ~AVSEEK_FORCE;
    if (whence == AVSEEK_SIZE) {
        struct stat info {};
        return ::fstat(self->m_fd, &info) == 0 ? std::int64_t(info.st_size) : AVERROR(errno);
    }
    const off_t at = ::lseek(self->m_fd, offset, whence);
    if (at < 0) {
        self->m_errno = errno;
        return AVERROR(errno);
    }
    return at;
}

Status FileSink::status() const {
    if (m_errno)
        return failure(av::describeErrno(m_errno));
    if (const int error = m_syncErrno.load())
        return failure(av::describeErrno(error));
    if (m_io && m_io->error < 0)
        return failure(av::errorText(m_io->error));
    return {};
}

Status FileSink::sync() {
    if (m_io)
        avio_flush(m_io);
    if (auto s = status(); !s.ok())
        return s;
    if (m_fd >= 0 && ::fdatasync(m_fd) != 0 && errno != EINVAL) {
        m_errno = errno;
        return status();
    }
    return {};
}

Status FileSink::syncSoon() {
    if (m_io)
        avio_flush(m_io);
    if (auto s = status(); !s.ok())
        return s;
    {
        std::lock_guard lock(m_syncMutex);
        if (!m_syncer.joinable())
            m_syncer = std::thread([this] { syncLoop(); });
        m_syncWanted = true;
    }
    m_syncWake.notify_one();
    return {};
}

void FileSink::syncLoop() {
    std::unique_lock lock(m_syncMutex);
    for (;;) {
        m_syncWake.wait(lock, [this] { return m_syncWanted || m_syncQuit; });
        if (m_syncQuit)
            return;
        m_syncWanted = false;
        lock.unlock();
        if (::fdatasync(m_fd) != 0 && errno != EINVAL && errno != EINTR)
            m_syncErrno.store(errno);
        lock.lock();
    }
}

void FileSink::stopSyncing() {
    {
        std::lock_guard lock(m_syncMutex);
        m_syncQuit = true;
    }
    m_syncWake.notify_one();
    if (m_syncer.joinable())
        m_syncer.join();
}

Status FileSink::close() {
    stopSyncing();
    Status outcome = sync();
    freeIo(m_io);
    if (m_fd >= 0 && ::close(m_fd) != 0 && outcome.ok() && errno != EINTR)
        outcome = failure(av::describeErrno(errno));
    m_fd = -1;
    return outcome;
}

Result<std::unique_ptr<FileSource>> FileSource::open(const QString& path) {
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return failure(errno == ENOENT ? QStringLiteral("the file does not exist")
                                       : av::describeErrno(errno));
    struct stat info {};
    if (::fstat(fd, &info) != 0) {
        const int error = errno;
        ::close(fd);
        return failure(av::describeErrno(error));
    }
    return std::unique_ptr<FileSource>(new FileSource(fd, info.st_size));
}

FileSource::FileSource(int fd, std::int64_t size)
    : m_fd(fd)
    , m_size(size)
    , m_limit(size) {}

FileSource::~FileSource() {
    freeIo(m_io);
    ::close(m_fd);
}

AVIOContext* FileSource::io(std::int64_t length) {
    m_limit = std::clamp<std::int64_t>(length, 0, m_size);
    m_position = 0;
    freeIo(m_io);
    if (auto* buffer = static_cast<unsigned char*>(av_malloc(kBufferSize))) {
        m_io = avio_alloc_context(buffer, kBufferSize, 0, this, &FileSource::read, nullptr,
                                  &FileSource::seek);
        if (!m_io)
            av_free(buffer);
    }
    return m_io;
}

int FileSource::read(void* opaque, std::uint8_t* data, int size) {
    auto* self = static_cast<FileSource*>(opaque);
    const std::int64_t wanted = std::min<std::int64_t>(size, self->m_limit - self->m_position);
    if (wanted <= 0)
        return AVERROR_EOF;
    ssize_t n;
    do
        n = ::pread(self->m_fd, data, size_t(wanted), self->m_position);
    while (n < 0 && errno == EINTR);
    if (n < 0)
        return AVERROR(errno);
    if (n == 0)
        return AVERROR_EOF;
    self->m_position += n;
    return int(n);
}

std::int64_t FileSource::seek(void* opaque, std::int64_t offset, int whence) {
    auto* self = static_cast<FileSource*>(opaque);
    whence &= ~AVSEEK_FORCE;
    std::int64_t target = 0;
    switch (whence) {
    case AVSEEK_SIZE:
        return self->m_limit;
    case SEEK_SET:
        target = offset;
        break;
    case SEEK_CUR:
        target = self->m_position + offset;
        break;
    case SEEK_END:
        target = self->m_limit + offset;
        break;
    default:
        return AVERROR(EINVAL);
    }
    if (target < 0)
        return AVERROR(EINVAL);
    self->m_position = std::min(target, self->m_limit);
    return self->m_position;
}

} // namespace qm::media
