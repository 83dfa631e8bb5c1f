#include "app/core/Log.h"
#include "app/core/Preferences.h"
#include "app/core/Theme.h"
#include "app/shell/TrayController.h"

#include <QApplication>

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

    qm::IniSettingsStore store;
    qm::Preferences preferences(store, qm::applyApplicationTheme);
    qm::TrayController tray;

    return QApplication::exec();
}
