#include "app/workflow/AppModel.h"

#include "ai/ui/AIQueryController.h"
#include "app/workflow/CaptureFlows.h"
#include "app/workflow/CaptureRouter.h"
#include "app/workflow/EditorWindows.h"
#include "app/workflow/RecordingFlows.h"
#include "app/workflow/TrimJobs.h"
#include "app/workflow/TrimWindows.h"
#include "base/Preferences.h"
#include "capture/core/ShareableContentCache.h"
#include "cards/FloatingShotManager.h"
#include "editor/ui/AnnotationEditorController.h"
#include "library/catalog/CaptureEntry.h"
#include "library/index/OcrTextIndex.h"
#include "library/model/RetentionScheduler.h"
#include "library/ui/CaptureLibraryController.h"
#include "shortcuts/HotkeyManager.h"

#include <QFileInfo>

namespace qm {

AppModel::AppModel(Services services, QObject* parent)
    : QObject(parent)
    , m_services(services)
    , m_editors(std::make_unique<EditorWindows>(services.preferences.store(), services.toasts))
    , m_router(std::make_unique<CaptureRouter>(
          services.preferences, services.sounds, services.toasts, services.cards, *m_editors,
          CaptureRouter::Report{[this](const QString& status) { setStatus(status); },
                                [this](const QString& path) { addToLibrary(path); },
                                [this] { bumpLibrary(); }}))
    , m_flows(std::make_unique<CaptureFlows>(
          services.capture, services.surfaces, services.sounds,
          CaptureFlows::Report{
              [this](const QImage& image, const QString& label) {
                  m_router->finish(image, label,
                                   [this, capture = m_captureCount](const CaptureOutcome& o) {
                                       Q_EMIT captureEnded(capture, o);
                                   });
              },
              [this](const QString& status) { setStatus(status); },
              [this](bool capturing) { Q_EMIT isCapturingChanged(capturing); },
              [this](const CaptureOutcome& o) { Q_EMIT captureEnded(m_captureCount, o); }}))
    , m_trimJobs(std::make_unique<TrimJobs>(
          services.preferences, services.sounds, services.toasts,
          TrimJobs::Report{[this](const QString& path) { addToLibrary(path); }}))
    , m_trims(std::make_unique<TrimWindows>(*m_trimJobs))
    , m_recording(std::make_unique<RecordingFlows>(
          RecordingFlows::Services{services.preferences, services.capture, m_flows->overlay(),
                                   m_flows->countdown(), services.sounds, services.toasts,
                                   services.video, services.audio, services.camera,
                                   services.clicks},
          RecordingFlows::Report{[this](const QString& status) { setStatus(status); },
                                 [this](const QString& path) { addToLibrary(path); },
                                 [this](const QString& path) { openTrimWindow(path); }}))
    , m_retention(std::make_unique<library::RetentionScheduler>(services.preferences)) {
    m_editors->onAskAI = [this](const QImage& image) { openAIQuery(image); };
}

AppModel::~AppModel() = default;

QString AppModel::label(CaptureKind kind) {
    return captureLabel(kind);
}

bool AppModel::isCapturing() const {
    return m_flows->isCapturing();
}

bool AppModel::isRecordingBusy() const {
    return m_recording->phase() != RecordingFlows::Phase::Idle;
}

SelectionOverlayController& AppModel::overlay() const {
    return m_flows->overlay();
}

CountdownController& AppModel::countdown() const {
    return m_flows->countdown();
}

const std::vector<std::unique_ptr<AnnotationEditorController>>&
AppModel::editorControllers() const {
    return m_editors->controllers();
}

void AppModel::configure() {
    if (m_configured)
        return;
    m_configured = true;
    // The display server answers without asking the user, so the window list can be warmed
    // at once: the first selection then opens without waiting for it.
    m_services.contentCache.prewarm();
    m_router->connectCards();
    m_services.cards.onAIQuery = [this](const QImage& image) { openAIQuery(image); };
    connect(&m_services.preferences, &Preferences::quillmarkHotkeysChanged, this,
            &AppModel::registerHotkeys);
    overlay().setAdjustBeforeCapturing(m_services.preferences.adjustAreaBeforeCapturing());
    // Movies a crash or a power loss cut off are finished and saved.
    m_recording->recoverLeftovers();
    // Old captures go to the Trash a few seconds from now, and every six hours after.
    m_retention->start();
    connect(&m_services.preferences, &Preferences::adjustAreaBeforeCapturingChanged, this,
            [this](bool on) { overlay().setAdjustBeforeCapturing(on); });
}

void AppModel::registerHotkeys() {
    HotkeyManager& hotkeys = m_services.hotkeys;
    hotkeys.unregisterAll();
    for (HotkeyAction action : allHotkeyActions) {
        const HotkeyCombo combo = m_services.preferences.hotkey(action);
        const bool ok = hotkeys.registerHotkey(combo, [this, action] { runHotkey(action); });
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
        // The same key starts and stops; during the countdown or while choosing it does nothing.
        if (m_recording->isRecording())
            stopRecording();
        else if (!isRecordingBusy())
            recordArea();
        break;
    }
}

Result<quint64> AppModel::run(const Command& command) {
    if (std::holds_alternative<command::Library>(command)) {
        showLibrary();
        return quint64(0);
    }
    if (const auto* record = std::get_if<command::Record>(&command)) {
        if (record->action == RecordAction::Stop) {
            if (!m_recording->isRecording() &&
                m_recording->phase() != RecordingFlows::Phase::Finishing)
                return failure(QStringLiteral("Nothing is being recorded."));
            const quint64 request = ++m_captureCount;
            m_recording->stopRecording(
                [this, request](const CaptureOutcome& o) { Q_EMIT captureEnded(request, o); });
            return request;
        }
        if (isRecordingBusy())
            return failure(
                QStringLiteral("Quillmark is already recording; stop that recording first."));
        if (isCapturing() || countdown().isRunning())
            return failure(
                QStringLiteral("Quillmark is taking a capture; finish or cancel that one first."));
        const quint64 request = ++m_captureCount;
        auto started = [this, request](const CaptureOutcome& o) {
            Q_EMIT captureEnded(request, o);
        };
        if (record->action == RecordAction::Area)
            m_recording->recordArea(started);
        else
            m_recording->recordScreen(started);
        return request;
    }
    const auto* capture = std::get_if<command::Capture>(&command);
    if (!capture)
        return quint64(0);
    if (isRecordingBusy())
        return failure(QStringLiteral("Quillmark is recording; stop the recording first."));
    if (isCapturing() || countdown().isRunning())
        return failure(QStringLiteral("Quillmark is already taking a capture; finish or cancel "
                                      "that one first."));
    if (capture->delaySeconds > 0)
        performDelayed(capture->kind, capture->delaySeconds);
    else
        perform(capture->kind);
    return m_captureCount;
}

void AppModel::recordArea() {
    if (isCapturing() || countdown().isRunning() || isRecordingBusy())
        return;
    m_recording->recordArea();
}

void AppModel::recordScreen() {
    if (isCapturing() || countdown().isRunning() || isRecordingBusy())
        return;
    m_recording->recordScreen();
}

void AppModel::openTrimWindow(const QString& movie) {
    m_trims->open(movie);
}

void AppModel::showLibrary() {
    if (!m_library) {
        m_library = std::make_unique<library::CaptureLibraryController>(
            library::CaptureLibraryController::Services{m_services.preferences, m_services.ocrIndex,
                                                        m_services.preferences.store(),
                                                        m_services.toasts});
        m_library->onClosed = [this] { m_library.reset(); };
        m_library->onTrim = [this](media::player::TrimSession& session, double start, double end) {
            m_trimJobs->trim(session, start, end);
        };
        m_library->onExportGif = [this](media::player::TrimSession& session, double start,
                                        double end) { m_trimJobs->exportGif(session, start, end); };
        m_library->onAskAI = [this](const QImage& image) { openAIQuery(image); };
        m_library->onSaved = [this](const QString& path) {
            setStatus(QStringLiteral("Saved → ") + QFileInfo(path).fileName());
            addToLibrary(path);
        };
    }
    m_library->show();
}

void AppModel::openAIQuery(const QImage& image) {
    auto controller = std::make_unique<ai::AIQueryController>(
        ai::AIQueryController::Services{m_services.preferences, m_services.claude, m_services.keys,
                                        m_services.toasts},
        image);
    ai::AIQueryController* raw = controller.get();
    raw->onClosed = [this, raw] {
        std::erase_if(m_aiControllers, [raw](const auto& c) { return c.get() == raw; });
    };
    raw->onOpenSettings = [this] {
        if (onOpenSettings)
            onOpenSettings();
    };
    m_aiControllers.push_back(std::move(controller));
    raw->show();
}

void AppModel::stopRecording() {
    m_recording->stopRecording();
}

void AppModel::perform(CaptureKind kind) {
    if (isCapturing() || isRecordingBusy())
        return;
    // Numbered as it starts, so a later outcome still names its own capture.
    ++m_captureCount;
    m_flows->perform(kind);
}

void AppModel::performDelayed(CaptureKind kind, int seconds) {
    if (isCapturing() || countdown().isRunning() || isRecordingBusy())
        return;
    ++m_captureCount;
    m_flows->performDelayed(kind, seconds);
}

void AppModel::openEditor(const QImage& image,
                          std::function<void(std::optional<QImage>)> onComplete) {
    m_editors->open(image, std::move(onComplete));
}

void AppModel::openEditor(const QString& path) {
    m_router->editFile(path);
}

void AppModel::setStatus(const QString& status) {
    m_lastStatus = status;
    Q_EMIT lastStatusChanged(status);
}

void AppModel::addToLibrary(const QString& path) {
    m_lastSavedURL = path;
    Q_EMIT lastSavedURLChanged();
    bumpLibrary();
    // The new image's text is read now, so a search finds it by the time anyone looks.
    if (m_services.preferences.searchImageText() &&
        library::mediaKindOf(path) == library::MediaKind::Images)
        m_services.ocrIndex.index({path});
}

void AppModel::bumpLibrary() {
    Q_EMIT libraryRevisionChanged(++m_libraryRevision);
    if (m_library)
        m_library->reload();
}

} // namespace qm
