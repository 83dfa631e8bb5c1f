// The tray program: the one instance of the session, started by the quillmark command.
#include "ai/core/ClaudeClient.h"
#include "app/BackendChoice.h"
#include "app/BusClient.h"
#include "app/CommandLine.h"
#include "app/FileCommands.h"
#include "app/shell/BusService.h"
#include "app/shell/TrayController.h"
#include "app/workflow/AppModel.h"
#include "base/AppId.h"
#include "base/Log.h"
#include "base/Preferences.h"
#include "capture/core/ScreenCaptureManager.h"
#include "capture/core/ShareableContentCache.h"
#include "cards/FloatingShotManager.h"
#include "library/index/OcrTextIndex.h"
#include "platform/desktop/Notifications.h"
#include "platform/secrets/api/SecretStore.h"
#include "platform/shortcuts/api/GlobalShortcutBackend.h"
#include "platform/sound/api/SoundPlayer.h"
#include "shortcuts/HotkeyManager.h"
#include "ui/FloatingWindow.h"
#include "ui/Theme.h"
#include "ui/ToastCenter.h"

#include <QApplication>
#include <QNetworkAccessManager>
#include <QTimer>
#include <cstdio>

int main(int argc, char** argv) {
    // What needs no display is answered before the application exists (it aborts without one).
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    const auto parsed = qm::parseCommandLine(arguments);
    if (const auto answered = qm::answerLocally(parsed))
        return *answered;
    const qm::Command command = *parsed;
    if (qm::worksOnFilesAlone(command)) {
        // Trimming and GIFs need neither a display nor the running instance.
        QCoreApplication app(argc, argv);
        QCoreApplication::setApplicationName(QStringLiteral("Quillmark"));
        QCoreApplication::setOrganizationName(QStringLiteral("quillworks"));
        return qm::runFileCommand(command);
    }

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Quillmark"));
    QApplication::setOrganizationName(QStringLiteral("quillworks"));
    QApplication::setApplicationVersion(QStringLiteral(QUILLMARK_VERSION));
    QApplication::setDesktopFileName(qm::applicationId);
    // A tray utility: closing its last window never ends it.
    QApplication::setQuitOnLastWindowClosed(false);
    qm::installLogPattern();
    // Before any floating window is made; it outlives them all.
    const auto surfaces = qm::platform::createSurfaceBackend();
    qm::installSurfaceBackend(surfaces.get());

    // One instance per session: a later start hands its command to the running one.
    std::function<qm::Result<quint64>(const qm::Command&)> dispatch;
    qm::BusService bus([&dispatch](const qm::Command& c) -> qm::Result<quint64> {
        if (!dispatch)
            return qm::failure(QStringLiteral("Quillmark is still starting."));
        return dispatch(c);
    });
    if (!bus.publish()) {
        // Another instance won the race to start.
        return qm::printResult(qm::forwardToRunningInstance(command));
    }

    qm::IniSettingsStore store;
    qm::Preferences preferences(store, qm::applyApplicationTheme);

    auto captureBackend = qm::platform::createScreenCaptureBackend();
    if (const QString reason = captureBackend->unavailableReason(); !reason.isEmpty())
        qCWarning(lcCapture).noquote() << QStringLiteral("Quillmark capture error: ") + reason;
    qm::ShareableContentCache contentCache(*captureBackend);
    qm::ScreenCaptureManager captureManager(*captureBackend, contentCache);

    auto shortcutBackend = qm::createGlobalShortcutBackend();
    if (const QString reason = shortcutBackend->unavailableReason(); !reason.isEmpty())
        qCWarning(lcHotkey).noquote() << QStringLiteral("Quillmark: ") + reason;
    qm::HotkeyManager hotkeys(*shortcutBackend);

    auto sounds = qm::makeSoundPlayer();
    auto videoBackend = qm::platform::createScreenVideoBackend();
    auto audioBackend = qm::platform::createAudioCaptureBackend();
    auto cameraBackend = qm::platform::createCameraBackend();
    auto clickBackend = qm::platform::createClickSourceBackend();
    qm::ToastCenter toasts;
    qm::FloatingShotManager cards(preferences, toasts);

    // Settings that could not be read or written are told once, where results are told.
    auto tellSettingsProblem = [&toasts](const QString& problem) {
        toasts.present(problem, QStringLiteral("dialog-warning"), qm::ToastCenter::Style::Error);
    };
    QObject::connect(&preferences, &qm::Preferences::settingsProblemReported, &toasts,
                     tellSettingsProblem);
    if (const QString problem = preferences.settingsProblem(); !problem.isEmpty())
        QTimer::singleShot(0, &toasts,
                           [tellSettingsProblem, problem] { tellSettingsProblem(problem); });

    qm::DesktopNotifications notifications;
    auto routeResults = [&](bool asNotifications) {
        toasts.sendResultsTo(asNotifications && notifications.available() ? &notifications
                                                                          : nullptr);
    };
    routeResults(preferences.resultsAsNotifications());
    QObject::connect(&preferences, &qm::Preferences::resultsAsNotificationsChanged, &toasts,
                     routeResults);

    // Reads the text of image captures for the library's search; written back as it changes.
    qm::library::OcrTextIndex ocrIndex;
    // The API key stays in the desktop keyring; one network manager serves every request.
    auto keys = qm::platform::createSecretStore();
    if (const QString reason = keys->unavailableReason(); !reason.isEmpty())
        qCWarning(lcAi).noquote() << QStringLiteral("Quillmark AI: ") + reason;
    QNetworkAccessManager network;
    qm::ai::ClaudeClient claude(*keys, network);
    qm::AppModel model({preferences, captureManager, contentCache, *surfaces, hotkeys, *sounds,
                        toasts, cards, *videoBackend, *audioBackend, *cameraBackend, *clickBackend,
                        ocrIndex, claude, *keys});
    qm::TrayController tray(model, preferences,
                            [&model](const QString& path) { model.openEditor(path); });

    model.configure();
    model.registerHotkeys();
    QObject::connect(&model, &qm::AppModel::captureEnded, &bus, &qm::BusService::report);
    dispatch = [&model](const qm::Command& c) { return model.run(c); };
    QTimer::singleShot(0, &model, [&model, command] {
        if (const auto started = model.run(command); !started)
            qm::printLine(stderr, started.error().reason);
    });

    return QApplication::exec();
}
