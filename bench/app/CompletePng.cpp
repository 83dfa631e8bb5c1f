#include "CompletePng.h"

#include <QDir>
#include <QFile>
#include <algorithm>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace qm::bench {

bool endsWithIend(const QString& path) {
    static const QByteArray iend = QByteArray::fromHex("0000000049454e44ae426082");
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() < 8 + iend.size())
        return false;
    return file.seek(file.size() - iend.size()) && file.read(iend.size()) == iend;
}

FolderWatch::FolderWatch(const QString& folder)
    : m_folder(folder)
    , m_fd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    if (m_fd >= 0)
        m_watch = inotify_add_watch(m_fd, QFile::encodeName(folder).constData(),
                                    IN_CLOSE_WRITE | IN_MOVED_TO);
}

FolderWatch::~FolderWatch() {
    if (m_fd >= 0)
        ::close(m_fd);
}

std::optional<QString> FolderWatch::completePng() const {
    const QDir dir(m_folder);
    for (const QString& name : dir.entryList({QStringLiteral("*.png")}, QDir::Files)) {
        const QString path = dir.filePath(name);
        if (endsWithIend(path))
            return path;
    }
    return std::nullopt;
}

std::optional<QString>
FolderWatch::waitForCompletePng(std::chrono::steady_clock::time_point deadline) const {
    using namespace std::chrono;
    while (true) {
        if (auto found = completePng())
            return found;
        const auto left = duration_cast<milliseconds>(deadline - steady_clock::now()).count();
        if (left <= 0)
            return std::nullopt;
        // A writer that never closes its file sends no event; look again now and then anyway.
        pollfd wait{m_fd, POLLIN, 0};
        ::poll(&wait, 1, int(std::min<long long>(left, 50)));
        char events[4096];
        while (::read(m_fd, events, sizeof events) > 0) {
        }
    }
}

} // namespace qm::bench
