#pragma once

#include <QString>
#include <chrono>
#include <optional>

namespace qm::bench {

// Whether the file is a whole PNG as far as its end shows: the last 12 bytes are the empty
// IEND chunk with its fixed CRC. Cheap enough to ask on every change in a folder.
bool endsWithIend(const QString& path);

// Watches one folder with inotify, so waiting for a file costs no CPU that the programs being
// timed could use. Files written in place and files renamed into place both count.
class FolderWatch {
public:
    explicit FolderWatch(const QString& folder);
    ~FolderWatch();
    FolderWatch(const FolderWatch&) = delete;
    FolderWatch& operator=(const FolderWatch&) = delete;

    bool ok() const { return m_fd >= 0 && m_watch >= 0; }

    // The first *.png in the folder that ends in IEND, once there is one; nothing at the
    // deadline.
    std::optional<QString> waitForCompletePng(std::chrono::steady_clock::time_point deadline) const;

private:
    std::optional<QString> completePng() const;

    QString m_folder;
    int m_fd = -1;
    int m_watch = -1;
};

} // namespace qm::bench
