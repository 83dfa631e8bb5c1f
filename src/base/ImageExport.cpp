#include "base/ImageExport.h"

#include "base/Log.h"
#include "base/Preferences.h"
#include "base/png/PngEncoder.h"

#include <QClipboard>
#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QMimeData>
#include <QSaveFile>

namespace qm::ImageExport {

QString timestamp(const QDateTime& when) {
    return when.toLocalTime().toString(QStringLiteral("yyyy-MM-dd 'at' HH.mm.ss"));
}

QString fileName(const QString& prefix, const QString& extension, const QDateTime& when) {
    return prefix + QLatin1Char(' ') + timestamp(when) + extension;
}

std::optional<QByteArray> pngData(const QImage& image) {
    return png::encode(image);
}

namespace {
// Returns the error text, or nothing on success.
std::optional<QString> writeAtomically(const QString& path, const QByteArray& bytes) {
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return file.errorString();
    if (file.write(bytes) != bytes.size()) {
        const QString error = file.errorString();
        file.cancelWriting();
        return error;
    }
    if (!file.commit())
        return file.errorString();
    return std::nullopt;
}

std::optional<QString> writePNG(const QImage& image, const QString& named, const QString& folder,
                                const QString& logPrefix) {
    const auto bytes = pngData(image);
    if (!bytes)
        return std::nullopt;
    const QString path = QDir(folder).filePath(fileName(named, QStringLiteral(".png")));
    if (const auto error = writeAtomically(path, *bytes)) {
        qCWarning(lcSave).noquote() << logPrefix + *error;
        return std::nullopt;
    }
    return path;
}
} // namespace

std::optional<QString> savePNG(const QImage& image, const QString& named, const QString& folder) {
    if (image.isNull())
        return std::nullopt;
    Preferences::ensureExists(folder);
    return writePNG(image, named, folder, QStringLiteral("Quillmark save error: "));
}

bool overwritePNG(const QImage& image, const QString& path) {
    const auto bytes = pngData(image);
    if (!bytes)
        return false;
    if (const auto error = writeAtomically(path, *bytes)) {
        qCWarning(lcSave).noquote() << QStringLiteral("Quillmark save error: ") + *error;
        return false;
    }
    return true;
}

std::optional<QString> writeTempPNG(const QImage& image, const QString& named) {
    return writePNG(image, named, QDir::tempPath(), QStringLiteral("Quillmark temp write error: "));
}

void copyToPasteboard(const QImage& image) {
    auto* clipboard = QGuiApplication::clipboard();
    if (!clipboard)
        return;
    auto mime = std::make_unique<QMimeData>();
    if (const auto bytes = pngData(image))
        mime->setData(QStringLiteral("image/png"), *bytes);
    // Programs that ask for another image type get it converted from the same pixels.
    mime->setImageData(image);
    clipboard->setMimeData(mime.release(), QClipboard::Clipboard);
}

QString moveFinishedRecording(const QString& temporaryFile, const QString& outputFolder) {
    Preferences::ensureExists(outputFolder);
    const QString destination = QDir(outputFolder).filePath(QFileInfo(temporaryFile).fileName());
    QFile::remove(destination);
    QFile source(temporaryFile);
    if (!source.rename(destination)) {
        qCWarning(lcRecording).noquote()
            << QStringLiteral("Quillmark recording move failed, keeping temp: ") +
                   source.errorString();
        return temporaryFile;
    }
    return destination;
}

} // namespace qm::ImageExport
