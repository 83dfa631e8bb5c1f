#pragma once

#include "base/Result.h"

#include <QString>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

struct AVIOContext;

namespace qm::media {

// A file FFmpeg writes through, created exclusively (an existing file is never replaced). It
// remembers the first disk error, which FFmpeg itself would only report as a failed write.
class FileSink {
public:
    static Result<std::unique_ptr<FileSink>> createExclusive(const QString& path);
    ~FileSink();
    FileSink(const FileSink&) = delete;
    FileSink& operator=(const FileSink&) = delete;

    AVIOContext* io() const { return m_io; }
    // The reason the first write or seek failed; ok while none has.
    Status status() const;
    // Hands everything buffered to the disk and waits until it is stored there.
    Status sync();
    // Hands everything buffered to the disk and has it stored there in the background, so
    // the caller (the recording's writer thread) never waits on the disk; a failure shows in
    // a later status().
    Status syncSoon();
    // Syncs and closes the file; the sink accepts nothing afterwards.
    Status close();

private:
    explicit FileSink(int fd);
    static int write(void* opaque, std::uint8_t* data, int size);
    static std::int64_t seek(void* opaque, std::int64_t offset, int whence);

    void syncLoop();
    void stopSyncing();

    int m_fd = -1;
    int m_errno = 0;
    std::atomic_int m_syncErrno{0}; // from the background sync
    AVIOContext* m_io = nullptr;
    std::mutex m_syncMutex;
    std::condition_variable m_syncWake;
    bool m_syncWanted = false;
    bool m_syncQuit = false;
    std::thread m_syncer;
};

// The first `length` bytes of a file, for FFmpeg to read: what lies beyond is as if cut off.
class FileSource {
public:
    static Result<std::unique_ptr<FileSource>> open(const QString& path);
    ~FileSource();
    FileSource(const FileSource&) = delete;
    FileSource& operator=(const FileSource&) = delete;

    int fd() const { return m_fd; }
    std::int64_t size() const { return m_size; }
    // Makes the reader see only the first `length` bytes; call before reading through io().
    AVIOContext* io(std::int64_t length);

private:
    FileSource(int fd, std::int64_t size);
    static int read(void* opaque, std::uint8_t* data, int size);
    static std::int64_t seek(void* opaque, std::int64_t offset, int whence);

    int m_fd = -1;
    std::int64_t m_size = 0;
    std::int64_t m_limit = 0;
    std::int64_t m_position = 0;
    AVIOContext* m_io = nullptr;
};

} // namespace qm::media
