#include "platform/desktop/Notifications.h"

#include "base/AppId.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QVariantMap>

namespace qm {

namespace {
const QString kService = QStringLiteral("org.freedesktop.Notifications");
const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
const QString kDefaultAction = QStringLiteral("default");
} // namespace

DesktopNotifications::DesktopNotifications(QObject* parent)
    : QObject(parent) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.connect(kService, kPath, kService, QStringLiteral("ActionInvoked"), this,
                SLOT(actionInvoked(uint, QString)));
    bus.connect(kService, kPath, kService, QStringLiteral("NotificationClosed"), this,
                SLOT(notificationClosed(uint, uint)));
}

bool DesktopNotifications::available() const {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface())
        return false;
    if (bus.interface()->isServiceRegistered(kService).value())
        return true;
    const auto activatable = bus.interface()->activatableServiceNames();
    return activatable.isValid() && activatable.value().contains(kService);
}

void DesktopNotifications::notify(const QString& summary, const QString& body,
                                  const QString& iconName, std::function<void()> onActivate) {
    QDBusMessage call =
        QDBusMessage::createMethodCall(kService, kPath, kService, QStringLiteral("Notify"));
    const QStringList actions =
        onActivate ? QStringList{kDefaultAction, QStringLiteral("Show")} : QStringList();
    QVariantMap hints;
    hints.insert(QStringLiteral("desktop-entry"), applicationId);
    call << QStringLiteral("Quillmark") << uint(0) << iconName << summary << body << actions
         << hints << int(-1);
    auto* watcher =
        new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, watcher, onActivate = std::move(onActivate)] {
                const QDBusPendingReply<uint> reply = *watcher;
                if (!reply.isError() && onActivate)
                    m_onActivate.insert(reply.value(), onActivate);
                watcher->deleteLater();
            });
}

void DesktopNotifications::actionInvoked(uint id, const QString& action) {
    if (action != kDefaultAction)
        return;
    if (const auto activate = m_onActivate.take(id))
        activate();
}

void DesktopNotifications::notificationClosed(uint id, uint) {
    m_onActivate.remove(id);
}

} // namespace qm
