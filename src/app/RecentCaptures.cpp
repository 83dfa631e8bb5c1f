#include "app/RecentCaptures.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <algorithm>

namespace qm {

QStringList imageExtensions() {
    return {QStringLiteral("png"),  QStringLiteral("jpg"),  QStringLiteral("jpeg"),
            QStringLiteral("tiff"), QStringLiteral("heic"), QStringLiteral("gif"),
            QStringLiteral("webp")};
}

QStringList recentCaptures(const QString& folder, int limit) {
    const QStringList extensions = imageExtensions();
    QFileInfoList files;
    for (const QFileInfo& info : QDir(folder).entryInfoList(QDir::Files, QDir::Name))
        if (extensions.contains(info.suffix().toLower()))
            files << info;
    std::stable_sort(files.begin(), files.end(), [](const QFileInfo& a, const QFileInfo& b) {
        return a.lastModified() > b.lastModified();
    });
    QStringList paths;
    for (const QFileInfo& info : files) {
        if (paths.size() == limit)
            break;
        paths << info.absoluteFilePath();
    }
    return paths;
}

} // namespace qm
