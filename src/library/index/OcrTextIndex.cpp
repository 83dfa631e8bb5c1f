#include "library/index/OcrTextIndex.h"

#include "base/Log.h"
#include "library/index/IndexFile.h"
#include "library/index/ScaledImage.h"
#include "ocr/TextRecognizer.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QFileInfo>
#include <QSet>
#include <QStandardPaths>
#include <QThread>
#include <QThreadPool>
#include <QTimer>
#include <QtConcurrent/QtConcurrentRun>
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <deque>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace qm::library {

namespace {

// Large captures are scaled down to this before reading; screen text stays legible at it and
// recognition time grows with the pixels.
constexpr int kMaxRecognizedSide = 2600;
// File systems that keep coarse times report a rewritten file up to a second off.
constexpr double kUnchangedSlack = 1.0;
// What a file whose time can't be read counts as: the first day of year 1.
constexpr double kDistantPast = -62135596800.0;

double modifiedSeconds(const QFileInfo& info) {
    const QDateTime modified = info.lastModified();
    return modified.isValid() ? double(modified.toMSecsSinceEpoch()) / 1000.0 : kDistantPast;
}

// Reading a library's text may take minutes; it waits for the interface and the recorder.
void lowerThisThreadsPriority() {
    thread_local bool lowered = false;
    if (lowered)
        return;
    lowered = true;
    const pid_t thread = pid_t(::syscall(SYS_gettid));
    errno = 0;
    const int nice = ::getpriority(PRIO_PROCESS, id_t(thread));
    if (errno == 0)
        ::setpriority(PRIO_PROCESS, id_t(thread), std::min(nice + 10, 19));
}

// Transparent parts read as white paper rather than black ink.
QImage onWhite(const QImage& image) {
    if (!image.hasAlphaChannel())
        return image;
    QImage flat = image.convertToFormat(QImage::Format_ARGB32);
    for (int y = 0; y < flat.height(); ++y) {
        auto* px = reinterpret_cast<QRgb*>(flat.scanLine(y));
        for (int x = 0; x < flat.width(); ++x) {
            const int a = qAlpha(px[x]);
            const auto blend = [a](int c) { return (c * a + 255 * (255 - a) + 127) / 255; };
            px[x] = qRgb(blend(qRed(px[x])), blend(qGreen(px[x])), blend(qBlue(px[x])));
        }
    }
    return flat.convertToFormat(QImage::Format_RGB32);
}

// What a worker found for one path.
struct Outcome {
    enum class Kind { Record, Gone, Unavailable };
    QString path;
    Kind kind = Kind::Record;
    StoredRecord stored;
    QString reason; // Unavailable: why the engine could not start
};

Outcome readOne(const QString& path, const OcrTextIndex::Recognize& recognize) {
    lowerThisThreadsPriority();
    Outcome outcome{path};
    const QFileInfo info(path);
    if (!info.isFile()) {
        outcome.kind = Outcome::Kind::Gone;
        return outcome;
    }
    // Taken before reading, so a file changed meanwhile is seen as changed next time.
    outcome.stored.record.modified = modifiedSeconds(info);
    outcome.stored.size = info.size();
    if (!recognize) {
        // A record made without the engine would never be read again.
        const Status engine = TextRecognizer::startEngine();
        if (!engine.ok()) {
            outcome.kind = Outcome::Kind::Unavailable;
            outcome.reason = engine.error().reason;
            return outcome;
        }
    }
    const Result<QImage> image = readScaledImage(path, kMaxRecognizedSide);
    if (!image.ok()) {
        if (!QFileInfo::exists(path)) {
            outcome.kind = Outcome::Kind::Gone;
            return outcome;
        }
        // Kept as an empty record: not read again until the file changes.
        qCWarning(lcOcr).noquote()
            << QStringLiteral("Quillmark OCR failed: ") + image.error().reason;
        return outcome;
    }
    const QImage flat = onWhite(*image);
    // A failed recognition has been logged; it leaves an empty record, like an image of no text.
    const Result<QString> text = recognize ? recognize(flat) : TextRecognizer::text(flat);
    if (text.ok())
        outcome.stored.record.text = *text;
    if (!QFileInfo::exists(path))
        outcome.kind = Outcome::Kind::Gone; // renamed or deleted while being read
    return outcome;
}

} // namespace

struct OcrTextIndex::Private {
    OcrTextIndex* q = nullptr;
    Options options;
    StoredRecords records;
    QHash<QString, QString> folded; // path → foldForSearch(text)
    QSet<QString> queued;
    std::deque<QString> pending;
    int running = 0;
    QThreadPool readers;
    QThreadPool writer; // one write at a time, in order
    QTimer saveTimer;
    bool saveDue = false;

    void pump();
    void finished(Outcome outcome);
    void scheduleSave();
    void startWrite();
    void setIndexing(bool on);
    void setUnavailable(const QString& reason);
    void dropPending();
};

OcrTextIndex::OcrTextIndex(Options options, QObject* parent)
    : QObject(parent)
    , d(std::make_unique<Private>()) {
    d->q = this;
    if (options.file.isEmpty())
        options.file = defaultIndexFile();
    if (options.workers <= 0)
        options.workers = defaultWorkerCount();
    d->options = std::move(options);
    d->readers.setMaxThreadCount(d->options.workers);
    d->writer.setMaxThreadCount(1);
    d->saveTimer.setSingleShot(true);
    d->saveTimer.setInterval(d->options.saveDelay);
    connect(&d->saveTimer, &QTimer::timeout, this, [this] { d->startWrite(); });

    d->records = loadIndexFile(d->options.file);
    for (auto it = d->records.cbegin(); it != d->records.cend(); ++it)
        d->folded.insert(it.key(), foldForSearch(it->record.text));
}

OcrTextIndex::~OcrTextIndex() {
    d->dropPending();
    d->readers.waitForDone();
    // The images that were being read still count: their results are waiting as posted calls.
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
    flush();
}

QString OcrTextIndex::defaultIndexFile() {
    QString data = qEnvironmentVariable("XDG_DATA_HOME");
    if (data.isEmpty() || !QFileInfo(data).isAbsolute())
        data = QStandardPaths::writableLocation(QStandardPaths::HomeLocation) +
               QStringLiteral("/.local/share");
    return data + QStringLiteral("/Quillmark/ocr-index.json");
}

int OcrTextIndex::defaultWorkerCount() {
    // Each worker holds an engine of its own (tens of megabytes), so a big machine stops at
    // four.
    return std::clamp(QThread::idealThreadCount() - 1, 1, 4);
}

void OcrTextIndex::index(const QStringList& paths) {
    bool dropped = false;
    for (auto it = d->records.begin(); it != d->records.end();) {
        if (QFileInfo::exists(it.key())) {
            ++it;
            continue;
        }
        d->folded.remove(it.key());
        it = d->records.erase(it);
        dropped = true;
    }
    if (dropped)
        d->scheduleSave();

    for (const QString& path : paths) {
        if (d->queued.contains(path))
            continue;
        const QFileInfo info(path);
        if (!info.isFile())
            continue;
        const auto known = d->records.constFind(path);
        if (known != d->records.cend() &&
            std::abs(known->record.modified - modifiedSeconds(info)) <= kUnchangedSlack &&
            (known->size < 0 || known->size == info.size()))
            continue;
        d->queued.insert(path);
        d->pending.push_back(path);
    }
    d->pump();
}

std::optional<OcrRecord> OcrTextIndex::record(const QString& path) const {
    const auto it = d->records.constFind(path);
    if (it == d->records.cend())
        return std::nullopt;
    return it->record;
}

bool OcrTextIndex::textContains(const QString& path, const SearchNeedle& needle) const {
    const auto it = d->folded.constFind(path);
    return it != d->folded.cend() && needle.foundIn(*it);
}

int OcrTextIndex::remaining() const {
    return int(d->pending.size()) + d->running;
}

void OcrTextIndex::flush() {
    d->saveTimer.stop();
    d->writer.waitForDone();
    if (!d->saveDue)
        return;
    d->saveDue = false;
    const Status written = writeIndexFile(d->options.file, encodeIndex(d->records));
    if (!written.ok())
        qCWarning(lcOcr).noquote()
            << QStringLiteral("Quillmark OCR index could not be saved: ") + written.error().reason;
    Q_EMIT saved();
}

void OcrTextIndex::Private::pump() {
    while (running < options.workers && !pending.empty()) {
        const QString path = pending.front();
        pending.pop_front();
        ++running;
        readers.start([this, path, recognize = options.recognize, q = q] {
            Outcome outcome = readOne(path, recognize);
            QMetaObject::invokeMethod(
                q, [this, outcome = std::move(outcome)]() mutable { finished(std::move(outcome)); },
                Qt::QueuedConnection);
        });
    }
    setIndexing(running > 0);
}

void OcrTextIndex::Private::finished(Outcome outcome) {
    --running;
    queued.remove(outcome.path);
    switch (outcome.kind) {
    case Outcome::Kind::Gone:
        break;
    case Outcome::Kind::Unavailable:
        // Every other image would fail the same way; the next index() tries again.
        dropPending();
        setUnavailable(QStringLiteral("Text search is unavailable: %1.").arg(outcome.reason));
        break;
    case Outcome::Kind::Record:
        if (!options.recognize)
            setUnavailable({});
        folded.insert(outcome.path, foldForSearch(outcome.stored.record.text));
        records.insert(outcome.path, std::move(outcome.stored));
        ++q->m_revision;
        Q_EMIT q->revisionChanged(q->m_revision);
        scheduleSave();
        break;
    }
    pump();
}

void OcrTextIndex::Private::scheduleSave() {
    saveDue = true;
    saveTimer.start(); // restarts: one write per burst of changes
}

void OcrTextIndex::Private::startWrite() {
    if (!saveDue)
        return;
    saveDue = false;
    QtConcurrent::run(&writer, [file = options.file, snapshot = records] {
        return writeIndexFile(file, encodeIndex(snapshot));
    }).then(q, [q = q](const Status& written) {
        if (!written.ok())
            qCWarning(lcOcr).noquote()
                << QStringLiteral("Quillmark OCR index could not be saved: ") +
                       written.error().reason;
        Q_EMIT q->saved();
    });
}

void OcrTextIndex::Private::setIndexing(bool on) {
    if (q->m_indexing == on)
        return;
    q->m_indexing = on;
    Q_EMIT q->isIndexingChanged(on);
}

void OcrTextIndex::Private::setUnavailable(const QString& reason) {
    if (q->m_unavailable == reason)
        return;
    q->m_unavailable = reason;
    if (!reason.isEmpty())
        qCWarning(lcOcr).noquote() << reason;
    Q_EMIT q->unavailableReasonChanged(reason);
}

void OcrTextIndex::Private::dropPending() {
    for (const QString& path : pending)
        queued.remove(path);
    pending.clear();
}

} // namespace qm::library
