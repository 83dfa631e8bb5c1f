#include "media/gif/GifOutputFile.h"

#include "media/Av.h"
#include "media/gif/GIFExporter.h"

#include <QDir>
#include <cerrno>
#include <fcntl.h>

namespace qm::media {

namespace {

int createExclusive(const QString& path) {
    return ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC,
                  0644);
}

Error cannotCreate(int error) {
    return failure(GIFExporter::cannotCreateMessage() + QStringLiteral(": ") +
                   av::describeErrno(error));
}

} // namespace

Result<GifOutputFile> createGifInFolder(const QString& folder, const QString& base) {
    QDir dir(folder);
    if (!dir.exists() && !QDir().mkpath(folder))
        return cannotCreate(errno ? errno : EACCES);
    // Far more than a folder ever holds; a bound keeps a broken file system from looping.
    for (int counter = 1; counter < 100000; ++counter) {
        const QString name = counter == 1 ? base + QStringLiteral(".gif")
                                          : QStringLiteral("%1 %2.gif").arg(base).arg(counter);
        const QString path = dir.filePath(name);
        const int fd = createExclusive(path);
        if (fd >= 0)
            return GifOutputFile{path, fd};
        if (errno != EEXIST)
            return cannotCreate(errno);
    }
    return cannotCreate(EEXIST);
}

Result<GifOutputFile> createGifAt(const QString& path) {
    const int fd = createExclusive(path);
    if (fd < 0)
        return cannotCreate(errno);
    return GifOutputFile{path, fd};
}

} // namespace qm::media
