#include "app/core/CommandLine.h"
#include "app/core/Log.h"
#include "app/core/Preferences.h"
#include "app/core/Theme.h"
#include "app/hotkeys/HotkeyManager.h"
#include "app/shell/BusService.h"
#include "app/shell/TrayController.h"
#include "app/toast/ToastCenter.h"
#include "app/workflow/AppModel.h"
#include "capture/core/ScreenCaptureManager.h"
#include "capture/core/ShareableContentCache.h"
#include "overlay/FloatingShotManager.h"
#include "platform/capture/CaptureBackendChoice.h"
#include "platform/shortcuts/GlobalShortcutBackend.h"
#include "platform/sound/SoundPlayer.h"

#include <QApplication>
#include <QTimer>
#include <cstdio>

int main(int argc, char** argv) {
    // Text recognition is far faster single-threaded on small machines; it must be set before
    // the engine starts.
    if (qEnvironmentVariableIsEmpty("OMP_THREAD_LIMIT"))
        qputenv("OMP_THREAD_LIMIT", "1");

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Quillmark"));
    QApplication::setOrganizationName(QStringLiteral("quillworks"));
    QApplication::setApplicationVersion(QStringLiteral(QUILLMARK_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("quillmark"));
    // A tray utility: closing its last window never ends it.
    QApplication::setQuitOnLastWindowClosed(false);
    qm::installLogPattern();

    const auto parsed = qm::parseCommandLine(QApplication::arguments().mid(1));
    if (const auto* error = std::get_if<qm::CommandLineError>(&parsed)) {
        std::fprintf(stderr, "%s\n", qPrintable(error->message));
        return 2;
    }
    const qm::Command command = std::get<qm::Command>(parsed);

    // One instance per session: a later start hands its command to the running one.
    std::function<void(const qm::Command&)> dispatch;
    qm::BusService bus([&dispatch](const qm::Command& c) {
        if (dispatch)
            dispatch(c);
    });
    if (!bus.publish()) {
        const QString problem = qm::forwardToRunningInstance(command);
        if (problem.isEmpty())
            return 0;
        std::fprintf(stderr, "%s\n", qPrintable(problem));
        return 1;
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
    qm::ToastCenter toasts;
    qm::FloatingShotManager cards(preferences, toasts);

    qm::AppModel model(
        {preferences, captureManager, contentCache, hotkeys, *sounds, toasts, cards});
    qm::TrayController tray(model, preferences,
                            [&model](const QString& path) { model.openEditor(path); });

    model.configure();
    model.registerHotkeys();
    dispatch = [&model](const qm::Command& c) { model.run(c); };
    QTimer::singleShot(0, &model, [&model, command] { model.run(command); });

    return QApplication::exec();
}
