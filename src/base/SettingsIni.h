#pragma once

#include "base/Result.h"

#include <QByteArray>
#include <QString>
#include <QVariantMap>

// The settings file's text: the INI format of QSettings, so files written by either read the
// same. Read and written here rather than through QSettings, whose process-wide cache may answer
// from a file that changed on disk and which writes without saying why it failed; the bytes go
// to disk through SafeWrite.
namespace qm::SettingsIni {

// Every value in the file by key ("group/key" for keys outside [General]): strings, string
// lists and byte arrays, as QSettings reads them. A missing file is empty. Fails when the file
// cannot be read or is not a settings file (binary, a broken [section], a line without "=").
Result<QVariantMap> readFile(const QString& path);

// The text QSettings reads back as the same values. Booleans, numbers, strings, string lists
// (of two or more) and byte arrays keep their type; anything else is stored as its text.
QByteArray text(const QVariantMap& values);

} // namespace qm::SettingsIni
