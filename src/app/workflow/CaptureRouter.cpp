#include "app/workflow/CaptureRouter.h"

#include "app/workflow/EditorWindows.h"
#include "base/BackgroundExport.h"
#include "base/ImageExport.h"
#include "base/Preferences.h"
#include "cards/FloatingShotManager.h"
#include "ocr/TextRecognizer.h"
#include "platform/sound/api/SoundPlayer.h"
#include "ui/SaveAsDialog.h"
#include "ui/ToastCenter.h"

#include <QFileInfo>
#include <QFutureWatcher>
#include <QImageReader>

namespace qm {

CaptureRouter::CaptureRouter(Preferences& preferences, SoundPlayer& sounds, ToastCenter& toasts,
                             FloatingShotManager& cards, EditorWindows& editors, Report report,
                             QObject* parent)
    : QObject(parent)
    , m_preferences(preferences)
    , m_sounds(sounds)
    , m_toasts(toasts)
    , m_cards(cards)
    , m_editors(editors)
    , m_report(std::move(report)) {}

void CaptureRouter::connectCards() {
    m_cards.onSaved = [this](const QString& path) {
        m_report.saved(path);
        m_report.status(QStringLiteral("Saved → ") + QFileInfo(path).fileName());
    };
    m_cards.onLibraryChanged = [this] { m_report.libraryChanged(); };
    m_cards.onAnnotate = [this](const QImage& image, std::function<void(const QImage&)> done) {
        m_editors.open(image, [done = std::move(done)](std::optional<QImage> edited) {
            if (edited && done)
                done(*edited);
        });
    };
    m_cards.onRecognizeText = [this](const QImage& image,
                                     std::function<void(std::optional<QString>)> done) {
        auto* watcher = new QFutureWatcher<Result<QString>>(this);
        connect(watcher, &QFutureWatcherBase::finished, this, [watcher, done = std::move(done)] {
            const Result<QString> text = watcher->result();
            done(text.ok() && !text->isEmpty() ? std::optional<QString>(*text) : std::nullopt);
            watcher->deleteLater();
        });
        watcher->setFuture(TextRecognizer::textAsync(image));
    };
}

namespace {
// The outcome of a first write, for whoever asked for the capture.
CaptureOutcome written(const Result<QString>& path) {
    if (path)
        return outcome::Saved{*path};
    return outcome::NotSaved{path.error().reason};
}
} // namespace

void CaptureRouter::finish(const QImage& image, const QString& label, OutcomeCallback ended) {
    if (m_preferences.playCaptureSound())
        m_sounds.play(SystemSound::Capture);

    if (m_preferences.openEditorAfterCapture()) {
        if (m_preferences.copyToClipboardAfterCapture())
            copyWhenEncoded(image);
        m_editors.open(image, [this, label](std::optional<QImage> edited) {
            if (edited)
                finishEdited(*edited, label);
        });
        m_report.status(label + QStringLiteral(" captured — editing"));
        if (ended)
            ended(outcome::Editing{});
        return;
    }
    if (m_preferences.showQuickAccessOverlay()) {
        // The card saves the file itself and reports it through onSaved.
        present(image, std::move(ended));
        m_report.status(label + QStringLiteral(" captured — pinned to screen"));
        return;
    }
    saveNow(image, label, std::move(ended));
}

void CaptureRouter::finishEdited(const QImage& image, const QString& label) {
    if (m_preferences.showQuickAccessOverlay())
        return present(image, {});
    saveNow(image, label, {});
}

void CaptureRouter::copyWhenEncoded(const QImage& image) {
    BackgroundExport::encode(image, this, [image](const Result<QByteArray>& png) {
        ImageExport::copyToPasteboard(image, png.valueOr({}));
    });
}

void CaptureRouter::present(const QImage& image, OutcomeCallback ended) {
    std::function<void(const QByteArray&)> onEncoded;
    if (m_preferences.copyToClipboardAfterCapture())
        onEncoded = [image](const QByteArray& png) { ImageExport::copyToPasteboard(image, png); };
    std::function<void(const Result<QString>&)> onFirstWrite;
    if (ended)
        onFirstWrite = [ended = std::move(ended)](const Result<QString>& path) {
            ended(written(path));
        };
    m_cards.present(image, std::move(onEncoded), std::move(onFirstWrite));
}

void CaptureRouter::saveNow(const QImage& image, const QString& label, OutcomeCallback ended) {
    const bool copy = m_preferences.copyToClipboardAfterCapture();
    BackgroundExport::encodeAndSave(
        image, m_preferences.outputDirectory(), this,
        {[image, copy](const QByteArray& png) {
             if (copy)
                 ImageExport::copyToPasteboard(image, png);
         },
         [this, image, label, copy, ended = std::move(ended)](const Result<QString>& saved) {
             if (ended)
                 ended(written(saved));
             if (!saved) {
                 m_report.status(label + (copy ? QStringLiteral(" not saved (copied to clipboard)")
                                               : QStringLiteral(" not saved")));
                 m_toasts.presentNotSaved(saved.error().reason, [this, image] { saveAs(image); });
                 return;
             }
             m_report.saved(*saved);
             m_report.status(label + QStringLiteral(" saved → ") + QFileInfo(*saved).fileName());
             m_toasts.presentSaved(*saved);
         }});
}

void CaptureRouter::saveAs(const QImage& image) {
    const QString path = askWhereToSaveCapture();
    if (path.isEmpty())
        return;
    BackgroundExport::overwrite(
        image, path, this, [this, image, path](const Result<QByteArray>& r) {
            if (!r)
                return m_toasts.presentNotSaved(r.error().reason, [this, image] { saveAs(image); });
            m_report.saved(path);
            m_toasts.presentSaved(path);
        });
}

void CaptureRouter::editFile(const QString& path) {
    QImageReader reader(path);
    reader.setAutoTransform(true);
    const QImage image = reader.read();
    if (image.isNull()) {
        m_report.status(QStringLiteral("Cannot open ") + QFileInfo(path).fileName());
        return;
    }
    // The edited picture goes into a new file beside the original, which stays as it was; the
    // editor writes it (and says so) on Save and Done, so its report needs no handling here.
    const QFileInfo original(path);
    EditorWindows::FileSaving saving{
        {original.absolutePath(), original.completeBaseName() + QStringLiteral(" annotated")},
        [this](const QString& written) {
            m_sounds.play(SystemSound::Capture);
            m_report.status(QStringLiteral("Saved → ") + QFileInfo(written).fileName());
            m_report.libraryChanged();
        }};
    m_editors.open(image, {}, std::move(saving));
}

} // namespace qm
