#include "app/workflow/AppModel.h"

#include "app/workflow/CaptureFlows.h"
#include "app/workflow/CaptureRouter.h"
#include "app/workflow/EditorWindows.h"
#include "base/Preferences.h"
#include "capture/core/ShareableContentCache.h"
#include "editor/ui/AnnotationEditorController.h"
#include "shortcuts/HotkeyManager.h"

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
              [this](const CaptureOutcome& o) { Q_EMIT captureEnded(m_captureCount, o); }})) {}

AppModel::~AppModel() = default;

QString AppModel::label(CaptureKind kind) {
    return captureLabel(kind);
}

bool AppModel::isCapturing() const {
    return m_flows->isCapturing();
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
    connect(&m_services.preferences, &Preferences::quillmarkHotkeysChanged, this,
            &AppModel::registerHotkeys);
    overlay().setAdjustBeforeCapturing(m_services.preferences.adjustAreaBeforeCapturing());
    connect(&m_services.preferences, &Preferences::adjustAreaBeforeCapturingChanged, this,
            [this](bool on) { overlay().setAdjustBeforeCapturing(on); });
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
        break; // not registered until recording exists
    }
}

Result<quint64> AppModel::run(const Command& command) {
    const auto* capture = std::get_if<command::Capture>(&command);
    if (!capture)
        return quint64(0);
    if (isCapturing() || countdown().isRunning())
        return failure(QStringLiteral("Quillmark is already taking a capture; finish or cancel "
                                      "that one first."));
    if (capture->delaySeconds > 0)
        performDelayed(capture->kind, capture->delaySeconds);
    else
        perform(capture->kind);
    return m_captureCount;
}

void AppModel::perform(CaptureKind kind) {
    if (isCapturing())
        return;
    // Numbered as it starts, so a later outcome still names its own capture.
    ++m_captureCount;
    m_flows->perform(kind);
}

void AppModel::performDelayed(CaptureKind kind, int seconds) {
    if (isCapturing() || countdown().isRunning())
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
}

void AppModel::bumpLibrary() {
    Q_EMIT libraryRevisionChanged(++m_libraryRevision);
}

} // namespace qm
