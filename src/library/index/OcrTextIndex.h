#pragma once

#include "base/Result.h"
#include "library/catalog/TextMatch.h"

#include <QHash>
#include <QImage>
#include <QObject>
#include <QString>
#include <QStringList>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace qm::library {

// The text recognised in one image, as of the file's modification time then.
struct OcrRecord {
    double modified = 0; // seconds since 1970-01-01 UTC
    QString text;        // lines joined by line feeds; empty when none was found
    bool operator==(const OcrRecord&) const = default;
};

// How an OcrTextIndex is set up (OcrTextIndex::Options). Declared outside the class so that it
// can be the constructor's default argument.
struct OcrTextIndexOptions {
    // Reads the text in a decoded image (TextRecognizer::text unless a test supplies one).
    using Recognize = std::function<Result<QString>(const QImage& image)>;
    QString file;        // empty: defaultIndexFile()
    int workers = 0;     // 0: defaultWorkerCount()
    Recognize recognize; // empty: TextRecognizer::text
    std::chrono::milliseconds saveDelay{2000};
};

// The text read from every image capture, so the library can find images by what they show.
// Kept in one JSON file (path → {"modified", "text"}), written atomically a short while after
// the last change; a file that can't be read is set aside as "<file>.bad" and the index starts
// empty. New and changed images (by path, size and modification time) are recognised on worker
// threads below the interface's priority, each with its own engine; everything else here lives
// on the thread that made the index.
class OcrTextIndex : public QObject {
    Q_OBJECT
public:
    using Recognize = OcrTextIndexOptions::Recognize;
    using Options = OcrTextIndexOptions;

    explicit OcrTextIndex(Options options = {}, QObject* parent = nullptr);
    // Drops what is waiting, lets the images being read finish, and writes a pending save.
    ~OcrTextIndex() override;

    // $XDG_DATA_HOME/Quillmark/ocr-index.json.
    static QString defaultIndexFile();
    // Workers for this machine: enough to use it, always leaving a core to the interface.
    static int defaultWorkerCount();

    // Forgets records whose file is gone, and queues the images among `paths` that are new or
    // changed since they were read (a path already queued is not queued twice).
    void index(const QStringList& paths);

    std::optional<OcrRecord> record(const QString& path) const;
    // Whether the text recognised in `path` contains the search; false without a record.
    bool textContains(const QString& path, const SearchNeedle& needle) const;

    // Goes up by one for every record added; searches run again when it changes.
    int revision() const { return m_revision; }
    // Images are being read ("Reading text in images…").
    bool isIndexing() const { return m_indexing; }
    // Images queued or being read.
    int remaining() const;
    // Why text search does not work here (the English language data is missing), or empty.
    QString unavailableReason() const { return m_unavailable; }

    // Writes the file now when a save is due; blocks until written.
    void flush();

Q_SIGNALS:
    void revisionChanged(int revision);
    void isIndexingChanged(bool indexing);
    void unavailableReasonChanged(const QString& reason);
    // After each write of the index file.
    void saved();

private:
    struct Private;
    std::unique_ptr<Private> d;
    int m_revision = 0;
    bool m_indexing = false;
    QString m_unavailable;
};

} // namespace qm::library
