#pragma once

#include <QString>
#include <QStringList>

namespace qm::test {

// A screenshot-like PNG of the lines in a common font (ImageMagick renders it, so no display is
// needed); false when it could not be made.
bool writeTextImage(const QString& path, const QStringList& lines, int pixelSize = 16);

// Moves the file's modification time by `seconds` (content untouched).
bool shiftModified(const QString& path, double seconds);

bool writeBytes(const QString& path, const QByteArray& bytes);

} // namespace qm::test
