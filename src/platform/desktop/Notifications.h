#pragma once

#include <QHash>
#include <QObject>
#include <QString>
#include <functional>

namespace qm {

// Messages through the desktop's notification server (org.freedesktop.Notifications on the
// session bus), for users who want results where their other programs' messages go.
class DesktopNotifications : public QObject {
    Q_OBJECT
public:
    explicit DesktopNotifications(QObject* parent = nullptr);

    // Whether a notification server runs (or can be started) on the session bus.
    bool available() const;

    // Shows a notification from Quillmark. A click on it (its default action) runs onActivate.
    void notify(const QString& summary, const QString& body, const QString& iconName,
                std::function<void()> onActivate = {});

private Q_SLOTS:
    void actionInvoked(uint id, const QString& action);
    void notificationClosed(uint id, uint reason);

private:
    QHash<uint, std::function<void()>> m_onActivate;
};

} // namespace qm
