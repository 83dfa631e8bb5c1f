#include "IndexTestFiles.h"

#include "TestSupport.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>

namespace qm::test {

bool writeTextImage(const QString& path, const QStringList& lines, int pixelSize) {
    QStringList args{QStringLiteral("-size"),
                     QStringLiteral("900x%1").arg(60 + lines.size() * pixelSize * 2),
                     QStringLiteral("xc:#fafafc"),
                     QStringLiteral("-fill"),
                     QStringLiteral("#1e1e23"),
                     QStringLiteral("-font"),
                     QStringLiteral("DejaVu-Sans"),
                     QStringLiteral("-pointsize"),
                     QString::number(pixelSize * 72 / 72)};
    int y = 30 + pixelSize;
    for (const QString& line : lines) {
        args << QStringLiteral("-annotate") << QStringLiteral("+30+%1").arg(y) << line;
        y += pixelSize * 2;
    }
    args << QStringLiteral("PNG24:") + path;
    return run(QStringLiteral("convert"), args).exitCode == 0 && QFileInfo::exists(path);
}

bool shiftModified(const QString& path, double seconds) {
    QFile file(path);
    const QDateTime was = QFileInfo(path).lastModified();
    return file.open(QIODevice::ReadWrite) && file.setFileTime(was.addMSecs(qint64(seconds * 1000)),
                                                               QFileDevice::FileModificationTime);
}

bool writeBytes(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
           file.write(bytes) == bytes.size();
}

} // namespace qm::test
