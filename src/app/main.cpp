#include "app/BackendChoice.h"
#include "app/CommandLine.h"
#include "app/shell/BusService.h"
#include "app/shell/TrayController.h"
#include "app/workflow/AppModel.h"
#include "base/AppId.h"
#include "base/Log.h"
#include "base/Preferences.h"
#include "capture/core/ScreenCaptureManager.h"
#include "capture/core/ShareableContentCache.h"
#include "cards/FloatingShotManager.h"
#include "platform/shortcuts/api/GlobalShortcutBackend.h"
#include "platform/sound/api/SoundPlayer.h"
#include "shortcuts/HotkeyManager.h"
#include "ui/FloatingWindow.h"
#include "ui/Theme.h"
#include "ui/ToastCenter.h"

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
    QApplication::setDesktopFileName(qm::applicationId);
    // A tray utility: closing its last window never ends it.
    QApplication::setQuitOnLastWindowClosed(false);
    qm::installLogPattern();
    // Before any floating window is made; it outlives them all.
    const auto surfaces = qm::platform::createSurfaceBackend();
    qm::installSurfaceBackend(surfaces.get());

    const auto parsed = qm::parseCommandLine(QApplication::arguments().mid(1));
    if (!parsed) {
        std::fprintf(stderr, "%s\n", qPrintable(parsed.error().reason));
        return 2;
    }
    const qm::Command command = *parsed;

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
        {preferences, captureManager, contentCache, *surfaces, hotkeys, *sounds, toasts, cards});
    qm::TrayController tray(model, preferences,
                            [&model](const QString& path) { model.openEditor(path); });

    model.configure();
    model.registerHotkeys();
    dispatch = [&model](const qm::Command& c) { model.run(c); };
    QTimer::singleShot(0, &model, [&model, command] { model.run(command); });

    return QApplication::exec();
}
