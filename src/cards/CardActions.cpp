#include "cards/CardActions.h"

#include "base/BackgroundExport.h"
#include "base/ImageExport.h"
#include "base/Log.h"
#include "base/Preferences.h"
#include "base/SafeWrite.h"
#include "cards/FloatingShotView.h"
#include "platform/desktop/Reveal.h"
#include "ui/SaveAsDialog.h"
#include "ui/ToastCenter.h"

#include <QClipboard>
#include <QFile>
#include <QFileInfo>
#include <QFutureWatcher>
#include <QGuiApplication>
#include <QImageReader>
#include <QPointer>
#include <QtConcurrent/QtConcurrentRun>
#include <utility>

namespace qm {

namespace {
const QString kCopyIcon = QStringLiteral("edit-copy");
const QString kFailedIcon = QStringLiteral("dialog-warning");

// An edit encoded and written as a new file beside the capture.
struct Written {
    QByteArray png;
    Result<QString> path;
};
} // namespace

CardActions::CardActions(Preferences& preferences, ToastCenter& toasts, Hooks hooks,
                         QObject* parent)
    : QObject(parent)
    , m_preferences(preferences)
    , m_toasts(toasts)
    , m_hooks(std::move(hooks)) {}

QImage CardActions::fullResolution(const FloatingShotItem& item) {
    if (!item.fullImage.isNull())
        return item.fullImage;
    if (item.savedURL) {
        QImageReader reader(*item.savedURL);
        if (QImage image = reader.read(); !image.isNull())
            return image;
    }
    return item.displayImage;
}

bool CardActions::hasFile(const FloatingShotItem& item) {
    return item.savedURL && QFileInfo(*item.savedURL).isFile();
}

std::optional<CardActions::FileProblem> CardActions::fileProblem(const FloatingShotItem& item) {
    if (item.saving || item.trashed)
        return std::nullopt;
    if (item.saveError)
        return FileProblem{QStringLiteral("Not saved"),
                           QStringLiteral("Not saved: ") + *item.saveError};
    if (item.fileMissing)
        return FileProblem{QStringLiteral("File missing"),
                           QStringLiteral("The file is no longer on disk: ") + *item.savedURL};
    return std::nullopt;
}

void CardActions::checkFile(const Item& item) {
    const bool missing = item->savedURL && !item->saving && !hasFile(*item);
    if (missing == item->fileMissing)
        return;
    item->fileMissing = missing;
    m_hooks.fileChanged(item);
}

void CardActions::toastFailure(const QString& reason, const Item& item) {
    std::function<void()> saveElsewhere;
    if (item) {
        const std::weak_ptr<FloatingShotItem> weak = item;
        saveElsewhere = [this, weak] {
            if (const Item alive = weak.lock(); alive && !alive->trashed)
                saveAs(alive);
        };
    }
    m_toasts.presentNotSaved(reason, std::move(saveElsewhere));
}

void CardActions::saveAs(const Item& item) {
    const QString path = askWhereToSaveCapture();
    if (path.isEmpty() || item->saving)
        return;
    item->saving = true;
    const int revision = item->imageRevision;
    BackgroundExport::overwrite(fullResolution(*item), path, this,
                                [this, item, revision, path](const Result<QByteArray>& written) {
                                    item->saving = false;
                                    if (!written) {
                                        toastFailure(written.error().reason, item);
                                        return release(item, std::nullopt);
                                    }
                                    // The card's file is now the one the user chose.
                                    item->saveError.reset();
                                    item->fileMissing = false;
                                    item->savedURL = path;
                                    item->savedRevision = revision;
                                    m_hooks.fileChanged(item);
                                    m_hooks.saved(path);
                                    m_toasts.presentSaved(path);
                                    release(item, path);
                                });
}

void CardActions::saveFirst(const Item& item, std::function<void(const QByteArray&)> onEncoded) {
    writeNew(item, std::move(onEncoded));
}

void CardActions::writeNew(const Item& item, std::function<void(const QByteArray&)> onEncoded) {
    item->saving = true;
    const int revision = item->imageRevision;
    // The write holds its card, closed or not: a card trashed meanwhile still needs its file
    // moved to the Trash when the write ends.
    auto finished = [this, item, revision](const Result<QString>& path) {
        finishNew(item, revision, path);
    };
    const QString folder = m_preferences.outputDirectory();
    if (!item->png.isEmpty()) {
        BackgroundExport::save(item->png, folder, this, std::move(finished));
        return;
    }
    BackgroundExport::encodeAndSave(
        fullResolution(*item), folder, this,
        {[item, revision, onEncoded = std::move(onEncoded)](const QByteArray& png) {
             if (item->imageRevision == revision)
                 item->png = png;
             if (onEncoded)
                 onEncoded(png);
         },
         std::move(finished)});
}

void CardActions::finishNew(const Item& item, int revision, const Result<QString>& path) {
    item->saving = false;
    if (auto told = std::exchange(item->onFirstWrite, {}))
        told(path);
    if (!path) {
        // Logged by the writer; actions that need the file try again.
        item->saveError = path.error().reason;
        if (!item->trashed)
            toastFailure(path.error().reason, item);
        m_hooks.fileChanged(item);
        return release(item, std::nullopt);
    }
    if (item->trashed) {
        moveToTrash(*path);
        return release(item, std::nullopt);
    }
    item->saveError.reset();
    item->fileMissing = false;
    item->annotated = false;
    item->savedURL = *path;
    item->savedRevision = revision;
    m_hooks.fileChanged(item);
    m_hooks.saved(*path);
    m_toasts.presentSaved(*path);
    writeNewerImage(item);
}

void CardActions::writeEdit(const Item& item) {
    if (item->annotated)
        writeOver(item);
    else
        writeAnnotated(item);
}

void CardActions::writeAnnotated(const Item& item) {
    item->saving = true;
    const int revision = item->imageRevision;
    const QFileInfo capture(*item->savedURL);
    auto* watcher = new QFutureWatcher<Written>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher, item, revision] {
        watcher->deleteLater();
        const Written written = watcher->result();
        finishAnnotated(item, revision, written.png, written.path);
    });
    watcher->setFuture(QtConcurrent::run(
        [image = fullResolution(*item), folder = capture.absolutePath(),
         stem = capture.completeBaseName() + QStringLiteral(" annotated")]() -> Written {
            const auto png = ImageExport::pngData(image);
            if (!png)
                return {{}, failure(QStringLiteral("the image could not be encoded as PNG"))};
            return {*png, SafeWrite::writeNewFile(folder, stem, QStringLiteral(".png"), *png)};
        }));
}

void CardActions::finishAnnotated(const Item& item, int revision, const QByteArray& png,
                                  const Result<QString>& path) {
    item->saving = false;
    if (path && item->trashed) {
        moveToTrash(*path);
        return release(item, std::nullopt);
    }
    if (!path) {
        qCWarning(lcSave).noquote()
            << QStringLiteral("Quillmark save error: ") + path.error().reason;
        item->saveError = path.error().reason;
        if (!item->trashed)
            toastFailure(path.error().reason, item);
    } else {
        item->saveError.reset();
        item->fileMissing = false;
        item->annotated = true;
        item->savedURL = *path;
        item->savedRevision = revision;
        if (item->imageRevision == revision)
            item->png = png;
        m_hooks.saved(*path);
        m_hooks.libraryChanged();
        m_toasts.presentSaved(*path);
    }
    m_hooks.fileChanged(item);
    writeNewerImage(item);
}

void CardActions::writeOver(const Item& item) {
    item->saving = true;
    const int revision = item->imageRevision;
    BackgroundExport::overwrite(
        fullResolution(*item), *item->savedURL, this,
        [this, item, revision](const Result<QByteArray>& png) { finishOver(item, revision, png); });
}

void CardActions::finishOver(const Item& item, int revision, const Result<QByteArray>& png) {
    item->saving = false;
    if (item->trashed) {
        if (moveToTrash(*item->savedURL))
            m_hooks.libraryChanged();
        return release(item, std::nullopt);
    }
    if (!png) {
        item->saveError = png.error().reason;
        toastFailure(png.error().reason, item);
    } else {
        item->saveError.reset();
        item->savedRevision = revision;
        if (item->imageRevision == revision)
            item->png = *png;
        m_hooks.libraryChanged();
        m_toasts.presentSaved(*item->savedURL);
    }
    m_hooks.fileChanged(item);
    writeNewerImage(item);
}

// After a write: the image may have changed meanwhile, else whoever waited gets the file.
void CardActions::writeNewerImage(const Item& item) {
    if (item->savedURL && item->savedRevision != item->imageRevision && !item->trashed &&
        !item->saveError)
        return writeEdit(item);
    release(item, item->savedURL);
}

void CardActions::release(const Item& item, std::optional<QString> path) {
    auto waiting = std::exchange(item->waitingForFile, {});
    for (auto& callback : waiting)
        callback(path);
}

void CardActions::whenSaved(const Item& item, FileCallback callback) {
    if (item->trashed)
        return callback(std::nullopt);
    if (item->saving) {
        item->waitingForFile.push_back(std::move(callback));
        return;
    }
    if (hasFile(*item) && !item->saveError)
        return callback(item->savedURL);
    // The first save failed, or the file went away since: save the capture anew.
    item->savedURL.reset();
    item->annotated = false;
    item->waitingForFile.push_back(std::move(callback));
    writeNew(item, {});
}

void CardActions::copy(const Item& item) {
    if (!item->png.isEmpty()) {
        ImageExport::copyToPasteboard(fullResolution(*item), item->png);
        m_toasts.present(QStringLiteral("Copied"), kCopyIcon);
        return;
    }
    const std::weak_ptr<FloatingShotItem> weak = item;
    const int revision = item->imageRevision;
    const QImage image = fullResolution(*item);
    BackgroundExport::encode(
        image, this, [this, weak, revision, image](const Result<QByteArray>& png) {
            if (const Item alive = weak.lock(); alive && png && alive->imageRevision == revision)
                alive->png = *png;
            ImageExport::copyToPasteboard(image, png.valueOr({}));
            m_toasts.present(QStringLiteral("Copied"), kCopyIcon);
        });
}

void CardActions::copyText(const Item& item) {
    if (!m_hooks.recognizeText)
        return;
    const std::weak_ptr<FloatingShotItem> weak = item;
    QPointer<CardActions> self(this);
    m_hooks.recognizeText(fullResolution(*item), [self, weak](std::optional<QString> text) {
        if (!self)
            return;
        const bool found = text && !text->trimmed().isEmpty();
        if (found) {
            QGuiApplication::clipboard()->setText(*text, QClipboard::Clipboard);
            self->m_toasts.present(QStringLiteral("Copied"), kCopyIcon);
        }
        if (const Item alive = weak.lock(); alive && alive->panel)
            alive->panel->setOcrResult(found);
    });
}

void CardActions::reveal(const Item& item) {
    whenSaved(item, [](std::optional<QString> path) {
        if (path)
            revealInFolder(*path);
    });
}

bool CardActions::moveToTrash(const QString& path) {
    QFile file(path);
    if (file.moveToTrash())
        return true;
    qCWarning(lcSave).noquote() << QStringLiteral("Quillmark trash error: ") + path +
                                       QStringLiteral(": ") + file.errorString();
    return false;
}

void CardActions::trash(const Item& item) {
    if (item->saving) {
        // The file is still being written; it goes to the Trash once it exists.
        item->trashed = true;
    } else if (item->savedURL && QFileInfo(*item->savedURL).isFile()) {
        if (!moveToTrash(*item->savedURL)) {
            m_toasts.present(QStringLiteral("Could not move to Trash"), kFailedIcon,
                             ToastCenter::Style::Error);
            return;
        }
        item->trashed = true;
        m_hooks.libraryChanged();
    } else {
        // Nothing on disk to move: the card just goes.
        item->trashed = true;
        return m_hooks.dismiss(item);
    }
    m_hooks.dismiss(item);
    m_toasts.present(QStringLiteral("Moved to Trash"), QStringLiteral("user-trash"));
}

void CardActions::annotate(const Item& item) {
    if (!m_hooks.annotate)
        return;
    const std::weak_ptr<FloatingShotItem> weak = item;
    QPointer<CardActions> self(this);
    m_hooks.annotate(fullResolution(*item), [self, weak](const QImage& edited) {
        if (const Item alive = weak.lock(); self && alive)
            self->update(alive, edited);
    });
}

void CardActions::askAI(const Item& item) {
    if (m_hooks.askAI)
        m_hooks.askAI(fullResolution(*item));
}

void CardActions::update(const Item& item, const QImage& image) {
    if (image.isNull() || item->trashed)
        return;
    item->fullImage = image;
    item->displayImage = cardThumbnail(image);
    item->png.clear();
    ++item->imageRevision;
    // A write still running is followed by this image; "Saved" is shown once it is written.
    // A card with a file writes the edit beside it; one without stays "Not saved" until an
    // action saves it.
    if (item->savedURL)
        item->saveError.reset();
    if (item->savedURL && !item->saving)
        writeEdit(item);
    if (m_hooks.isShown(item))
        m_hooks.imageChanged(item);
}

} // namespace qm
