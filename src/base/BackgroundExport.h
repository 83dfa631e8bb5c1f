#pragma once

#include "base/Result.h"

#include <QByteArray>
#include <QImage>
#include <QObject>
#include <QString>
#include <functional>

// The encoding and writing of captures, run on the thread pool so the GUI never waits for
// them. Every report arrives on the context object's thread, and not at all once the context
// is gone.
namespace qm::BackgroundExport {

struct SaveReport {
    // The PNG, as soon as it is encoded: the same bytes go to the clipboard and the file.
    std::function<void(const QByteArray& png)> onEncoded;
    // Where the new capture file is, or why it could not be written.
    std::function<void(const Result<QString>& path)> onSaved;
};

// Encodes once, reports the bytes, then writes them as a new capture file in the folder
// (ImageExport::savePNGData: never over another capture).
void encodeAndSave(QImage image, QString folder, QObject* context, SaveReport report);
// Writes bytes encoded earlier as a new capture file.
void save(QByteArray png, QString folder, QObject* context,
          std::function<void(const Result<QString>&)> onSaved);
void encode(QImage image, QObject* context, std::function<void(const Result<QByteArray>&)> done);
// Encodes and writes over an existing file in one step; reports the bytes written.
void overwrite(QImage image, QString path, QObject* context,
               std::function<void(const Result<QByteArray>&)> done);

} // namespace qm::BackgroundExport
