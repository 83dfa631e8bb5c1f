#include "base/ImageExport.h"

#include "base/Log.h"
#include "base/Preferences.h"
#include "base/SafeWrite.h"
#include "base/png/PngEncoder.h"

#include <QClipboard>
#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QMimeData>

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
const QString kNotEncoded = QStringLiteral("the image could not be encoded as PNG");

template <class T> T logged(T outcome, const QString& logPrefix) {
    if (!outcome.ok())
        qCWarning(lcSave).noquote() << logPrefix + outcome.error().reason;
    return outcome;
}

Result<QString> writeNew(const QByteArray& png, const QString& named, const QString& folder,
                         const QString& logPrefix) {
    const QString stem = fileName(named, QString());
    return logged(SafeWrite::writeNewFile(folder, stem, QStringLiteral(".png"), png), logPrefix);
}

const QString kSaveError = QStringLiteral("Quillmark save error: ");
} // namespace

Result<QString> savePNGData(const QByteArray& png, const QString& named, const QString& folder) {
    return writeNew(png, named, folder, kSaveError);
}

Result<QString> savePNG(const QImage& image, const QString& named, const QString& folder) {
    const auto bytes = pngData(image);
    if (!bytes)
        return failure(kNotEncoded);
    return savePNGData(*bytes, named, folder);
}

Status overwritePNGData(const QByteArray& png, const QString& path) {
    return logged(SafeWrite::replaceFile(path, png), kSaveError);
}

Status overwritePNG(const QImage& image, const QString& path) {
    const auto bytes = pngData(image);
    if (!bytes)
        return failure(kNotEncoded);
    return overwritePNGData(*bytes, path);
}

Result<QString> writeTempPNG(const QImage& image, const QString& named) {
    const auto bytes = pngData(image);
    if (!bytes)
        return failure(kNotEncoded);
    return writeNew(*bytes, named, QDir::tempPath(),
                    QStringLiteral("Quillmark temp write error: "));
}

void copyToPasteboard(const QImage& image, const QByteArray& png) {
    auto* clipboard = QGuiApplication::clipboard();
    if (!clipboard)
        return;
    auto mime = std::make_unique<QMimeData>();
    if (!png.isEmpty())
        mime->setData(QStringLiteral("image/png"), png);
    // Programs that ask for another image type get it converted from the same pixels.
    mime->setImageData(image);
    clipboard->setMimeData(mime.release(), QClipboard::Clipboard);
}

void copyToPasteboard(const QImage& image) {
    copyToPasteboard(image, pngData(image).value_or(QByteArray()));
}

} // namespace qm::ImageExport
