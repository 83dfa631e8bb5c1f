#include "app/shell/BusService.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>

namespace qm {

BusService::BusService(Handler handler, QObject* parent)
    : QObject(parent)
    , m_handler(std::move(handler)) {}

bool BusService::publish() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false;
    if (!bus.registerService(busServiceName))
        return false;
    return bus.registerObject(busObjectPath, this, QDBusConnection::ExportAllSlots);
}

void BusService::Capture(const QString& kind, int delaySeconds) {
    QStringList args{QStringLiteral("capture"), kind};
    if (delaySeconds != 0)
        args << QStringLiteral("--delay") << QString::number(delaySeconds);
    const Result<Command> parsed = parseCommandLine(args);
    if (!parsed) {
        if (calledFromDBus())
            sendErrorReply(QDBusError::InvalidArgs, parsed.error().reason);
        return;
    }
    m_handler(*parsed);
}

QString forwardToRunningInstance(const Command& command) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return QStringLiteral("Cannot reach the session bus to talk to Quillmark.");
    const auto* capture = std::get_if<command::Capture>(&command);
    if (!capture)
        return {}; // starting again while running does nothing
    QDBusMessage call = QDBusMessage::createMethodCall(busServiceName, busObjectPath,
                                                       busServiceName, QStringLiteral("Capture"));
    call << rawValue(capture->kind) << capture->delaySeconds;
    const QDBusMessage reply = bus.call(call, QDBus::Block, 10000);
    if (reply.type() == QDBusMessage::ErrorMessage)
        return reply.errorMessage();
    return {};
}

} // namespace qm
