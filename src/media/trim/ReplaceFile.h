#pragma once

#include "base/Result.h"

#include <QString>

namespace qm::media::trim {

// A new hidden name in the folder of `target` (".Clip.mov.1a2b3c4d.trimming"), for the file
// that is to replace it: beside it, so the rename stays on one disk and cannot be half done.
QString hiddenSiblingPath(const QString& target);

// Puts the finished file `replacement` in the place of `target`: gives it the target's
// permissions (and owner, where allowed), stores it on the disk, renames it over the target
// and stores the folder's new entry. On failure the target is untouched and the replacement
// is still there, for the caller to remove.
Status replaceFile(const QString& replacement, const QString& target);

} // namespace qm::media::trim
