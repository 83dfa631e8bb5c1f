#pragma once

#include "base/Result.h"
#include "library/index/OcrTextIndex.h"

#include <QByteArray>
#include <QHash>
#include <QString>

namespace qm::library {

// One record as kept on disk: the text and when it was read, and the file's size then (-1 when
// an older file did not say), so a changed file of the same age is read again.
struct StoredRecord {
    OcrRecord record;
    qint64 size = -1;
};
using StoredRecords = QHash<QString, StoredRecord>;

// The records in the index file; none when it is missing. A file that can't be read or parsed
// is renamed to "<file>.bad" (logged) so the next save starts afresh without losing it.
StoredRecords loadIndexFile(const QString& file);

// The records as one compact JSON object: path → {"modified", "text", "size"}.
QByteArray encodeIndex(const StoredRecords& records);

// Writes the bytes over the file in one step, making its folder when missing.
Status writeIndexFile(const QString& file, const QByteArray& json);

} // namespace qm::library
