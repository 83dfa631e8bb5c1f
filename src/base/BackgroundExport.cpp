#include "base/BackgroundExport.h"

#include "base/ImageExport.h"

#include <QFutureWatcher>
#include <QPromise>
#include <QtConcurrent/QtConcurrentRun>
#include <variant>

namespace qm::BackgroundExport {

namespace {
const QString kNotEncoded = QStringLiteral("the image could not be encoded as PNG");

// Runs the work on the pool; the watcher belongs to the context, so a context that goes away
// takes the report with it.
template <class T, class Work>
void runThen(QObject* context, Work work, std::function<void(const T&)> done) {
    auto* watcher = new QFutureWatcher<T>(context);
    QObject::connect(watcher, &QFutureWatcherBase::finished, watcher,
                     [watcher, done = std::move(done)] {
                         watcher->deleteLater();
                         if (done)
                             done(watcher->result());
                     });
    watcher->setFuture(QtConcurrent::run(std::move(work)));
}

// The two reports of encodeAndSave, in order.
using Step = std::variant<QByteArray, Result<QString>>;
} // namespace

void encodeAndSave(QImage image, QString folder, QObject* context, SaveReport report) {
    auto* watcher = new QFutureWatcher<Step>(context);
    QObject::connect(watcher, &QFutureWatcherBase::resultReadyAt, watcher,
                     [watcher, report](int index) {
                         const Step step = watcher->resultAt(index);
                         if (const auto* png = std::get_if<QByteArray>(&step)) {
                             if (report.onEncoded)
                                 report.onEncoded(*png);
                         } else if (report.onSaved) {
                             report.onSaved(std::get<Result<QString>>(step));
                         }
                     });
    QObject::connect(watcher, &QFutureWatcherBase::finished, watcher, &QObject::deleteLater);
    watcher->setFuture(QtConcurrent::run(
        [](QPromise<Step>& promise, const QImage& picture, const QString& into) {
            const auto png = ImageExport::pngData(picture);
            if (!png) {
                promise.addResult(Step(Result<QString>(failure(kNotEncoded))));
                return;
            }
            // The clipboard and the card get the bytes while the file is still being written.
            promise.addResult(Step(*png));
            promise.addResult(
                Step(ImageExport::savePNGData(*png, ImageExport::screenshotPrefix, into)));
        },
        std::move(image), std::move(folder)));
}

void save(QByteArray png, QString folder, QObject* context,
          std::function<void(const Result<QString>&)> onSaved) {
    runThen<Result<QString>>(
        context,
        [png = std::move(png), folder = std::move(folder)] {
            return ImageExport::savePNGData(png, ImageExport::screenshotPrefix, folder);
        },
        std::move(onSaved));
}

void encode(QImage image, QObject* context, std::function<void(const Result<QByteArray>&)> done) {
    runThen<Result<QByteArray>>(
        context,
        [image = std::move(image)]() -> Result<QByteArray> {
            if (auto png = ImageExport::pngData(image))
                return std::move(*png);
            return failure(kNotEncoded);
        },
        std::move(done));
}

void overwrite(QImage image, QString path, QObject* context,
               std::function<void(const Result<QByteArray>&)> done) {
    runThen<Result<QByteArray>>(
        context,
        [image = std::move(image), path = std::move(path)]() -> Result<QByteArray> {
            auto png = ImageExport::pngData(image);
            if (!png)
                return failure(kNotEncoded);
            if (Status written = ImageExport::overwritePNGData(*png, path); !written)
                return written.error();
            return std::move(*png);
        },
        std::move(done));
}

} // namespace qm::BackgroundExport
