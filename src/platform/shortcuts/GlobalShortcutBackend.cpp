#include "platform/shortcuts/GlobalShortcutBackend.h"

#include "platform/x11keys/X11GlobalShortcuts.h"

#include <QGuiApplication>

namespace qm {

std::unique_ptr<GlobalShortcutBackend> createGlobalShortcutBackend(QObject* parent) {
    const QByteArray forced = qgetenv("QUILLMARK_SHORTCUT_BACKEND");
    const bool x11Session = QGuiApplication::platformName() == QLatin1String("xcb");
    if (forced != "null" && (forced == "x11" || x11Session)) {
        if (auto x11 = X11GlobalShortcuts::connect(parent))
            return x11;
        return std::make_unique<NullGlobalShortcuts>(
            QStringLiteral("Global shortcuts are unavailable because the X display could not "
                           "be reached."),
            parent);
    }
    return std::make_unique<NullGlobalShortcuts>(
        QStringLiteral("This desktop does not let programs take global shortcuts; bind "
                       "\"quillmark capture region\" to a key in your desktop's keyboard "
                       "settings instead."),
        parent);
}

} // namespace qm
