#pragma once

#include "base/Result.h"

#include <QByteArray>
#include <QString>

// Writing files so that a capture is never lost or overwritten: new files claim a free name
// atomically, existing files are replaced in one step, and every failure says why in words.
namespace qm::SafeWrite {

// One sentence for an errno value ("the disk is full", "Pictures/Quillmark is read-only"),
// naming the folder (from the home folder when inside it) where that helps.
QString describeErrno(int error, const QString& folder = {});

// A folder as the user knows it: from the home folder when inside it ("Pictures/Quillmark"),
// else the whole path.
QString displayName(const QString& folder);

// Creates the folder and its parents. Fails with the reason when a file stands where a folder
// should be, or the disk refuses.
Status ensureFolder(const QString& folder);

// Writes the bytes as a new file "<stem><extension>" in the folder, or "<stem> 2<extension>",
// "<stem> 3<extension>", … when that name is taken: the bytes go to a hidden temporary file in
// the folder first, are flushed to disk, and only then claim the name, exclusively, so two
// writers (threads or processes) never get the same name and a crash never leaves a partial
// file under it. Returns the path written.
Result<QString> writeNewFile(const QString& folder, const QString& stem, const QString& extension,
                             const QByteArray& bytes);

// Moves a finished file into the folder as "<stem><extension>" (or " 2", " 3", … when taken),
// never replacing anything there. Across file systems the bytes are copied and flushed first
// and the original removed only after the copy holds its name. Returns the new path; on
// failure the original stays where it was.
Result<QString> moveNewFile(const QString& source, const QString& folder, const QString& stem,
                            const QString& extension);

// Replaces the file's contents in one step (a temporary file renamed over it), keeping its
// permissions. Readers see the old or the new contents, never a mix.
Status replaceFile(const QString& path, const QByteArray& bytes);

} // namespace qm::SafeWrite
