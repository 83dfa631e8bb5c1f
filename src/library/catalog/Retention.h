#pragma once

#include "base/Result.h"

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <functional>

namespace qm::library {

// Old captures leave the save folder for the Trash, never deleted outright, and only files
// Quillmark itself named: a name starting with "Quillmark" and a capture's extension (the
// image and movie kinds, compared lower-cased). Anything else the user keeps there is safe.

// The captures directly in `folder` whose content last changed more than `days` × 86,400 s
// before `now` (strictly), in listing order. Nothing when `days` < 1, the folder can't be
// listed, or a file has no modification time.
QStringList expiredCaptures(const QString& folder, int days, const QDateTime& now);

// Moves one file to the freedesktop Trash (with its original path and deletion date), or
// says why it could not.
using TrashFile = std::function<Status(const QString& path)>;
Status moveToTrash(const QString& path);

// Moves the expired captures to the Trash and returns how many went. A file that can't be
// moved is logged ("Quillmark retention: couldn't trash NAME: REASON") and the rest still go.
int sweep(const QString& folder, int days, const QDateTime& now,
          const TrashFile& trash = moveToTrash);

} // namespace qm::library
