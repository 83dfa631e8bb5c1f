#include "app/workflow/AppModel.h"

#include "base/ImageExport.h"
#include "base/Log.h"
#include "base/Preferences.h"
#include "capture/core/ScreenCaptureManager.h"
#include "capture/core/ShareableContentCache.h"
#include "capture/ui/CaptureFlash.h"
#include "capture/ui/CountdownController.h"
#include "capture/ui/SelectionOverlayController.h"
#include "cards/FloatingShotManager.h"
#include "editor/ui/AnnotationEditorController.h"
#include "ocr/TextRecognizer.h"
#include "platform/sound/api/SoundPlayer.h"
#include "shortcuts/HotkeyManager.h"
#include "ui/ToastCenter.h"

#include <QFileInfo>
#include <QFutureWatcher>
#include <QImageReader>
#include <QTimer>

namespace qm {

namespace {
constexpr std::chrono::duration<double> kContentMaxAge{5.0};

QString describe(const CaptureFailure& failure) {
    if (!failure.reason.isEmpty())
        return failure.reason;
    switch (failure.error) {
    case CaptureError::NoDisplay:
        return QStringLiteral("No display was found.");
    case CaptureError::NoWindow:
        return QStringLiteral("No window was found.");
    case CaptureError::CaptureFailed:
        return QStringLiteral("The screen could not be captured.");
    }
    return {};
}
} // namespace

AppModel::AppModel(Services services, QObject* parent)
    : QObject(parent)
    , m_services(services)
    , m_overlay(std::make_unique<SelectionOverlayController>())
    , m_countdown(std::make_unique<CountdownController>(services.sounds)) {}

AppModel::~AppModel() = default;

QString AppModel::label(CaptureKind kind) {
    switch (kind) {
    case CaptureKind::Region:
        return QStringLiteral("Region");
    case CaptureKind::Window:
        return QStringLiteral("Window");
    case CaptureKind::Fullscreen:
        return QStringLiteral("Full screen");
    }
    return {};
}

void AppModel::configure() {
    if (m_configured)
        return;
    m_configured = true;
    // The display server answers without asking the user, so the window list can be warmed
    // at once: the first selection then opens without waiting for it.
    m_services.contentCache.prewarm();

    FloatingShotManager& cards = m_services.cards;
    cards.onSaved = [this](const QString& path) {
        m_lastSavedURL = path;
        Q_EMIT lastSavedURLChanged();
        Q_EMIT libraryRevisionChanged(++m_libraryRevision);
        setStatus(QStringLiteral("Saved → ") + QFileInfo(path).fileName());
    };
    cards.onLibraryChanged = [this] { Q_EMIT libraryRevisionChanged(++m_libraryRevision); };
    cards.onAnnotate = [this](const QImage& image, std::function<void(const QImage&)> done) {
        openEditor(image, [done = std::move(done)](std::optional<QImage> edited) {
            if (edited && done)
                done(*edited);
        });
    };
    cards.onRecognizeText = [this](const QImage& image,
                                   std::function<void(std::optional<QString>)> done) {
        auto* watcher = new QFutureWatcher<Result<QString>>(this);
        connect(watcher, &QFutureWatcherBase::finished, this, [watcher, done = std::move(done)] {
            const Result<QString> text = watcher->result();
            done(text.ok() && !text->isEmpty() ? std::optional<QString>(*text) : std::nullopt);
            watcher->deleteLater();
        });
        watcher->setFuture(TextRecognizer::textAsync(image));
    };
    connect(&m_services.preferences, &Preferences::quillmarkHotkeysChanged, this,
            &AppModel::registerHotkeys);
}

void AppModel::registerHotkeys() {
    HotkeyManager& hotkeys = m_services.hotkeys;
    hotkeys.unregisterAll();
    for (HotkeyAction action : allHotkeyActions) {
        // The record shortcut is only taken once recording exists; until then the key stays
        // free for other programs.
        if (action == HotkeyAction::Record)
            continue;
        const HotkeyCombo combo = m_services.preferences.hotkey(action);
        const bool ok = hotkeys.registerHotkey(combo.keyCode, combo.carbonModifiers,
                                               [this, action] { runHotkey(action); });
        if (action == HotkeyAction::Region)
            m_areaShortcutTaken = !ok && hotkeys.backend().unavailableReason().isEmpty();
    }
}

void AppModel::runHotkey(HotkeyAction action) {
    switch (action) {
    case HotkeyAction::Region:
        perform(CaptureKind::Region);
        break;
    case HotkeyAction::Window:
        perform(CaptureKind::Window);
        break;
    case HotkeyAction::Fullscreen:
        perform(CaptureKind::Fullscreen);
        break;
    case HotkeyAction::Record:
        break; // not registered until recording exists
    }
}

void AppModel::run(const Command& command) {
    if (const auto* capture = std::get_if<command::Capture>(&command)) {
        if (capture->delaySeconds > 0)
            performDelayed(capture->kind, capture->delaySeconds);
        else
            perform(capture->kind);
    }
}

void AppModel::setStatus(const QString& status) {
    m_lastStatus = status;
    Q_EMIT lastStatusChanged(status);
}

void AppModel::setCapturing(bool capturing) {
    if (m_isCapturing == capturing)
        return;
    m_isCapturing = capturing;
    Q_EMIT isCapturingChanged(capturing);
}

void AppModel::perform(CaptureKind kind) {
    // One capture at a time: a second press while the first is selecting is ignored.
    if (m_isCapturing)
        return;
    setCapturing(true);
    switch (kind) {
    case CaptureKind::Region:
        captureRegion();
        break;
    case CaptureKind::Window:
        captureFrontWindow();
        break;
    case CaptureKind::Fullscreen:
        captureFullScreen();
        break;
    }
}

void AppModel::captureRegion() {
    m_services.capture.captureActiveDisplay(this, [this](CaptureResult<DisplayCapture> result) {
        if (!result.ok())
            return fail(result.error());
        const DisplayCapture frozen = std::move(result).value();
        m_overlay->begin(frozen, QStringLiteral("Capture"),
                         [this, frozen](std::optional<SelectionResult> selection) {
                             if (!selection) {
                                 setCapturing(false);
                                 return setStatus(QStringLiteral("Cancelled"));
                             }
                             if (const auto* window = std::get_if<CapturedWindow>(&*selection))
                                 return captureChosenWindow(frozen, *window);
                             setCapturing(false);
                             const QRectF area = std::get<QRectF>(*selection);
                             const auto image = ScreenCaptureManager::crop(frozen, area);
                             if (!image)
                                 return setStatus(QStringLiteral("Region crop failed"));
                             CaptureFlash::flash(area, frozen.screen);
                             finish(*image, label(CaptureKind::Region));
                         });
    });
}

void AppModel::captureChosenWindow(const DisplayCapture& frozen, const CapturedWindow& window) {
    m_services.capture.captureWindow(
        window, this, [this, frozen, window](CaptureResult<QImage> result) {
            setCapturing(false);
            std::optional<QImage> image;
            if (result.ok()) {
                image = std::move(result).value();
            } else {
                qCWarning(lcCapture).noquote()
                    << QStringLiteral("Quillmark window capture failed, cropping: ") +
                           describe(result.error());
                image = ScreenCaptureManager::crop(frozen, window.frame);
            }
            if (!image)
                return setStatus(QStringLiteral("Window capture failed"));
            CaptureFlash::flash(window.frame, frozen.screen);
            finish(*image, label(CaptureKind::Window));
        });
}

void AppModel::captureFrontWindow() {
    m_services.capture.captureFrontWindow(this, finishWholeScreenCapture(CaptureKind::Window));
}

void AppModel::captureFullScreen() {
    m_services.capture.captureFullScreen(this, finishWholeScreenCapture(CaptureKind::Fullscreen));
}

std::function<void(CaptureResult<QImage>)> AppModel::finishWholeScreenCapture(CaptureKind kind) {
    // Nothing was selected on screen, so the flash marks the whole screen under the pointer.
    return [this, kind](CaptureResult<QImage> result) {
        if (!result.ok())
            return fail(result.error());
        setCapturing(false);
        CaptureFlash::flashScreenUnderMouse();
        finish(result.value(), label(kind));
    };
}

void AppModel::performDelayed(CaptureKind kind, int seconds) {
    if (m_isCapturing || m_countdown->isRunning())
        return;
    if (kind != CaptureKind::Region) {
        // Only areas are chosen before the countdown; everything else waits, then takes the
        // whole screen as it is when the countdown ends.
        setStatus(QStringLiteral("Capturing in %1s…").arg(seconds));
        m_countdown->begin(
            seconds,
            [this] {
                if (m_isCapturing)
                    return;
                setCapturing(true);
                captureFullScreen();
            },
            [this] { setStatus(QStringLiteral("Cancelled")); });
        return;
    }
    setCapturing(true);
    m_services.capture.captureActiveDisplay(
        this, [this, seconds](CaptureResult<DisplayCapture> result) {
            if (!result.ok())
                return fail(result.error());
            const DisplayCapture frozen = std::move(result).value();
            m_overlay->begin(frozen, QStringLiteral("Capture"),
                             [this, frozen, seconds](std::optional<SelectionResult> selection) {
                                 setCapturing(false);
                                 if (!selection)
                                     return setStatus(QStringLiteral("Cancelled"));
                                 delayedLiveCapture(frozen, *selection, seconds);
                             });
        });
}

void AppModel::delayedLiveCapture(const DisplayCapture& frozen, const SelectionResult& selection,
                                  int seconds) {
    setStatus(QStringLiteral("Capturing in %1s…").arg(seconds));
    // What changes on screen during the countdown is what gets captured.
    auto fire = [this, frozen, selection] {
        if (m_isCapturing)
            return;
        setCapturing(true);
        if (const auto* window = std::get_if<CapturedWindow>(&selection)) {
            const CapturedWindow chosen = *window;
            m_services.capture.captureWindow(chosen, this,
                                             [this, chosen, frozen](CaptureResult<QImage> result) {
                                                 if (!result.ok())
                                                     return fail(result.error());
                                                 setCapturing(false);
                                                 CaptureFlash::flash(chosen.frame, frozen.screen);
                                                 finish(result.value(), label(CaptureKind::Window));
                                             });
            return;
        }
        const QRectF area = std::get<QRectF>(selection);
        m_services.capture.capture(frozen.screen, this,
                                   [this, area](CaptureResult<DisplayCapture> result) {
                                       if (!result.ok())
                                           return fail(result.error());
                                       setCapturing(false);
                                       const DisplayCapture live = std::move(result).value();
                                       const auto image = ScreenCaptureManager::crop(live, area);
                                       if (!image)
                                           return setStatus(QStringLiteral("Region crop failed"));
                                       CaptureFlash::flash(area, live.screen);
                                       finish(*image, label(CaptureKind::Region));
                                   });
    };
    m_countdown->begin(seconds, fire, [this] { setStatus(QStringLiteral("Cancelled")); });
}

void AppModel::finish(const QImage& image, const QString& label) {
    Preferences& prefs = m_services.preferences;
    if (prefs.copyToClipboardAfterCapture())
        ImageExport::copyToPasteboard(image);
    if (prefs.playCaptureSound())
        m_services.sounds.play(SystemSound::Capture);

    if (prefs.openEditorAfterCapture()) {
        openEditor(image, [this, label](std::optional<QImage> edited) {
            if (edited)
                finishEdited(*edited, label);
        });
        setStatus(label + QStringLiteral(" captured — editing"));
        return;
    }
    if (prefs.showQuickAccessOverlay()) {
        // The card saves the file itself and reports it through onSaved.
        m_services.cards.present(image);
        setStatus(label + QStringLiteral(" captured — pinned to screen"));
        return;
    }
    saveNow(image, label);
}

void AppModel::finishEdited(const QImage& image, const QString& label) {
    if (m_services.preferences.copyToClipboardAfterCapture())
        ImageExport::copyToPasteboard(image);
    if (m_services.preferences.showQuickAccessOverlay()) {
        m_services.cards.present(image);
        return;
    }
    saveNow(image, label);
}

void AppModel::saveNow(const QImage& image, const QString& label) {
    Preferences& prefs = m_services.preferences;
    const auto saved =
        ImageExport::savePNG(image, ImageExport::screenshotPrefix, prefs.outputDirectory());
    if (!saved) {
        // The image may still be on the clipboard; the wording stays the same either way.
        setStatus(label + QStringLiteral(" captured (copied to clipboard)"));
        m_services.toasts.present(QStringLiteral("Copied"), QStringLiteral("doc.on.doc"));
        return;
    }
    m_lastSavedURL = *saved;
    Q_EMIT lastSavedURLChanged();
    Q_EMIT libraryRevisionChanged(++m_libraryRevision);
    setStatus(label + QStringLiteral(" saved → ") + QFileInfo(*saved).fileName());
    m_services.toasts.present(QStringLiteral("Saved to ") +
                                  QFileInfo(prefs.outputDirectory()).fileName(),
                              QStringLiteral("square.and.arrow.down"));
}

void AppModel::openEditor(const QImage& image,
                          std::function<void(std::optional<QImage>)> onComplete) {
    // The report names its controller, which only exists once constructed.
    auto self = std::make_shared<AnnotationEditorController*>(nullptr);
    auto controller = std::make_unique<AnnotationEditorController>(
        image, m_services.preferences.store(),
        [this, self, onComplete = std::move(onComplete)](const std::optional<QImage>& result) {
            if (onComplete)
                onComplete(result);
            // Let go of the controller once its report has been delivered.
            QTimer::singleShot(0, this, [this, done = *self] {
                std::erase_if(m_editorControllers,
                              [done](const auto& c) { return c.get() == done; });
            });
        },
        [this](const QString& text, const QString& symbol) {
            m_services.toasts.present(text, symbol);
        });
    *self = controller.get();
    AnnotationEditorController* raw = controller.get();
    m_editorControllers.push_back(std::move(controller));
    raw->show();
}

void AppModel::openEditor(const QString& path) {
    QImageReader reader(path);
    reader.setAutoTransform(true);
    const QImage image = reader.read();
    if (image.isNull()) {
        setStatus(QStringLiteral("Cannot open ") + QFileInfo(path).fileName());
        return;
    }
    openEditor(image, [this, path](std::optional<QImage> edited) {
        if (!edited)
            return;
        if (!ImageExport::overwritePNG(*edited, path))
            return setStatus(QStringLiteral("Could not save ") + QFileInfo(path).fileName());
        m_services.sounds.play(SystemSound::Capture);
        m_services.toasts.present(QStringLiteral("Saved"), QStringLiteral("square.and.arrow.down"));
        Q_EMIT libraryRevisionChanged(++m_libraryRevision);
    });
}

void AppModel::fail(const CaptureFailure& failure) {
    setCapturing(false);
    const QString description = describe(failure);
    setStatus(QStringLiteral("Capture failed: ") + description);
    qCWarning(lcCapture).noquote() << QStringLiteral("Quillmark capture error: ") + description;
}

} // namespace qm
