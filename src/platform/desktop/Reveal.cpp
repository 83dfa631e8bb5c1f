#include "platform/desktop/Reveal.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDesktopServices>
#include <QFileInfo>
#include <QUrl>

namespace qm {

void revealInFolder(const QString& path) {
    const QString service = QStringLiteral("org.freedesktop.FileManager1");
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (bus.isConnected() && bus.interface()) {
        const bool running = bus.interface()->isServiceRegistered(service);
        const auto activatable = bus.interface()->activatableServiceNames();
        if (running || (activatable.isValid() && activatable.value().contains(service))) {
            QDBusMessage call = QDBusMessage::createMethodCall(
                service, QStringLiteral("/org/freedesktop/FileManager1"), service,
                QStringLiteral("ShowItems"));
            call << QStringList{QUrl::fromLocalFile(path).toString()} << QString();
            if (bus.send(call))
                return;
        }
    }
    QDesktopServices::openUrl(QUrl::fromLocalFile(QFileInfo(path).absolutePath()));
}

} // namespace qm
