#pragma once

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
// path. The bytes go to a temporary file that is renamed over the final name, so a crash
// never leaves half a capture, while a second capture in the same second replaces the first.
std::optional<QString> savePNG(const QImage& image, const QString& named, const QString& folder);

// Writes the image over an existing file (an edited capture going back to its file), with
// the same all-or-nothing replacement. False, and a log line, when it cannot be written.
bool overwritePNG(const QImage& image, const QString& path);

// The same into the temporary folder, for handing a capture to other programs.
std::optional<QString> writeTempPNG(const QImage& image, const QString& named);

// Puts the exact PNG bytes on the clipboard as image/png (other image types are derived
// from the same pixels on request). The data stays available while the program runs.
void copyToPasteboard(const QImage& image);

// Moves a finished recording from the temporary folder into the output folder, replacing a
// file of the same name. Returns where the recording now is: the temporary file when the
// move failed.
QString moveFinishedRecording(const QString& temporaryFile, const QString& outputFolder);

} // namespace qm::ImageExport
