#include "ui/SaveAsDialog.h"

#include "base/ImageExport.h"

#include <QDir>
#include <QFileDialog>
#include <QStandardPaths>

namespace qm {

QString askWhereToSaveCapture() {
    const QString suggested =
        QDir(QStandardPaths::writableLocation(QStandardPaths::PicturesLocation))
            .filePath(ImageExport::fileName(ImageExport::screenshotPrefix, QStringLiteral(".png")));
    QString path = QFileDialog::getSaveFileName(nullptr, QStringLiteral("Save Capture As"),
                                                suggested, QStringLiteral("PNG image (*.png)"));
    if (!path.isEmpty() && !path.endsWith(QLatin1String(".png"), Qt::CaseInsensitive))
        path += QLatin1String(".png");
    return path;
}

} // namespace qm
