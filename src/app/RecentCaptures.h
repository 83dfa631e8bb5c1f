#pragma once

#include <QString>
#include <QStringList>

namespace qm {

// Extensions of the images the program lists and opens, lower-case.
QStringList imageExtensions();

// The newest image files in the folder (not its sub-folders), newest first by modification
// time; files with equal times keep the folder's order. Recordings are never listed. An
// unreadable folder gives nothing.
QStringList recentCaptures(const QString& folder, int limit = 5);

} // namespace qm
