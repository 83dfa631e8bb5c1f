#include "library/catalog/Retention.h"

#include "base/Log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace qm::library {

namespace {

bool isCaptureExtension(const QString& suffix) {
    static const QStringList extensions = {u"png"_s, u"jpg"_s,  u"jpeg"_s, u"tiff"_s, u"heic"_s,
                                           u"gif"_s, u"webp"_s, u"mov"_s,  u"mp4"_s,  u"m4v"_s};
    return extensions.contains(suffix.toLower());
}

} // namespace

QStringList expiredCaptures(const QString& folder, int days, const QDateTime& now) {
    QStringList expired;
    if (days < 1 || folder.isEmpty() || !now.isValid())
        return expired;
    // Whole days of exactly 86,400 s: a daylight-saving change neither spares nor dooms a file.
    const QDateTime cutoff = now.addSecs(-qint64(days) * 86400);
    const QDir dir(folder);
    const QFileInfoList items = dir.entryInfoList(QDir::Files | QDir::NoDotAndDotDot, QDir::Name);
    for (const QFileInfo& info : items) {
        if (!info.fileName().startsWith(u"Quillmark"_s, Qt::CaseSensitive))
            continue;
        if (!isCaptureExtension(info.suffix()))
            continue;
        const QDateTime modified = info.fileTime(QFileDevice::FileModificationTime);
        if (modified.isValid() && modified < cutoff)
            expired.append(info.absoluteFilePath());
    }
    return expired;
}

Status moveToTrash(const QString& path) {
    const QFileInfo info(path);
    if (!info.exists())
        return failure(u"the file is no longer there"_s);
    QFile file(path);
    if (file.moveToTrash())
        return {};
    if (!QFileInfo(info.absolutePath()).isWritable())
        return failure(u"its folder can't be changed"_s);
    return failure(file.errorString().isEmpty() ? u"the Trash could not take it"_s
                                                : file.errorString());
}

int sweep(const QString& folder, int days, const QDateTime& now, const TrashFile& trash) {
    const QStringList expired = expiredCaptures(folder, days, now);
    int moved = 0;
    for (const QString& path : expired) {
        const Status status = trash(path);
        if (status.ok())
            ++moved;
        else
            qCWarning(lcLibrary).noquote() << u"Quillmark retention: couldn't trash %1: %2"_s.arg(
                QFileInfo(path).fileName(), status.error().reason);
    }
    return moved;
}

} // namespace qm::library
