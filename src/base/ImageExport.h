#pragma once

#include "base/Result.h"

#include <QByteArray>
#include <QDateTime>
#include <QImage>
#include <QString>
#include <optional>

// Turns captured and edited images into files and clipboard contents, and fixes how every
// capture file is named, so the library finds them all in one folder.
namespace qm::ImageExport {

inline const QString screenshotPrefix = QStringLiteral("Quillmark");
inline const QString recordingPrefix = QStringLiteral("Quillmark Recording");

// "2026-11-15 at 20.31.05": local time, 24-hour clock.
QString timestamp(const QDateTime& when = QDateTime::currentDateTime());
// prefix + " " + timestamp + extension (".png", ".mov").
QString fileName(const QString& prefix, const QString& extension,
                 const QDateTime& when = QDateTime::currentDateTime());

// The lossless PNG of the image at its full pixel size.
std::optional<QByteArray> pngData(const QImage& image);

// Writes "<named> <timestamp>.png" into the folder (created when missing) and returns its
// path. A capture never replaces another: a taken name gets " 2", " 3", … before ".png", and
// the name is claimed only once the file is complete. On failure the reason is a sentence
// ("the disk is full") and "Quillmark save error: <reason>" is logged.
Result<QString> savePNG(const QImage& image, const QString& named, const QString& folder);
// The same with the PNG already encoded.
Result<QString> savePNGData(const QByteArray& png, const QString& named, const QString& folder);

// Writes the image over an existing file (an edited capture going back to its file), all at
// once: readers see the old or the new picture, never half of one.
Status overwritePNG(const QImage& image, const QString& path);
Status overwritePNGData(const QByteArray& png, const QString& path);

// The same as savePNG into the temporary folder, for handing a capture to other programs.
Result<QString> writeTempPNG(const QImage& image, const QString& named);

// Puts the PNG on the clipboard as image/png, exactly these bytes (other image types are
// derived from the same pixels on request). The data stays available while the program runs.
void copyToPasteboard(const QImage& image, const QByteArray& png);
// Encodes first; on the GUI thread only for small images (the editor's copy button).
void copyToPasteboard(const QImage& image);

} // namespace qm::ImageExport
