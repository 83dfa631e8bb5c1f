#include "app/BusClient.h"

#include "app/BusNames.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QDateTime>
#include <QEventLoop>
#include <QHash>
#include <optional>

namespace qm {

namespace {

// Collects the instance's Finished signals; the bus connects it by signature.
// The reply naming the request and its Finished signal may be handled in either order.
class FinishedListener : public QObject {
    Q_OBJECT
public:
    std::function<void()> onResult;

    void await(uint request) {
        m_awaited = request;
        if (m_seen.contains(request) && onResult)
            onResult();
    }
    std::optional<ForwardResult> result() const {
        if (m_awaited && m_seen.contains(*m_awaited))
            return m_seen.value(*m_awaited);
        return std::nullopt;
    }

public Q_SLOTS:
    void finished(uint request, bool ok, const QString& detail) {
        m_seen.insert(request, ok ? ForwardResult{0, detail, {}} : ForwardResult{1, {}, detail});
        if (m_awaited == request && onResult)
            onResult();
    }

private:
    std::optional<uint> m_awaited;
    QHash<uint, ForwardResult> m_seen;
};

QString notResponding(QDBusConnection& bus) {
    const QDBusReply<uint> pid = bus.interface()->servicePid(busServiceName);
    if (pid.isValid())
        return QStringLiteral("Quillmark (pid %1) is not responding.").arg(pid.value());
    return QStringLiteral("Quillmark is not responding.");
}

} // namespace

int printResult(const ForwardResult& result) {
    printLine(stdout, result.out);
    printLine(stderr, result.err);
    return result.exitCode;
}

bool instanceRunning() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    return bus.isConnected() && bus.interface()->isServiceRegistered(busServiceName).value();
}

ForwardResult forwardToRunningInstance(const Command& command, std::chrono::milliseconds patience) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return {1, {}, QStringLiteral("Cannot reach the session bus to talk to Quillmark.")};
    if (std::holds_alternative<command::Library>(command)) {
        const QDBusMessage reply =
            bus.call(QDBusMessage::createMethodCall(busServiceName, busObjectPath, busInterface,
                                                    QStringLiteral("ShowLibrary")),
                     QDBus::Block, int(patience.count()));
        if (reply.type() == QDBusMessage::ErrorMessage)
            return {1, {}, reply.errorMessage()};
        return {};
    }
    const auto* capture = std::get_if<command::Capture>(&command);
    const auto* record = std::get_if<command::Record>(&command);
    if (!capture && !record)
        return {}; // starting again while running does nothing

    QEventLoop loop;
    FinishedListener listener;
    listener.onResult = [&loop] { loop.quit(); };
    // Listening starts before asking, so an answer cannot slip past.
    bus.connect(busServiceName, busObjectPath, busInterface, QStringLiteral("Finished"), &listener,
                SLOT(finished(uint, bool, QString)));
    std::optional<ForwardResult> early;
    QDBusServiceWatcher gone(busServiceName, bus, QDBusServiceWatcher::WatchForUnregistration);
    QObject::connect(&gone, &QDBusServiceWatcher::serviceUnregistered, &loop, [&] {
        early = ForwardResult{
            1,
            {},
            record ? QStringLiteral("Quillmark quit before the recording was saved.")
                   : QStringLiteral("Quillmark quit before the capture was finished.")};
        loop.quit();
    });

    const qint64 deadline = QDateTime::currentMSecsSinceEpoch() + patience.count();
    QDBusMessage call = QDBusMessage::createMethodCall(busServiceName, busObjectPath, busInterface,
                                                       record ? QStringLiteral("RequestRecord")
                                                              : QStringLiteral("Request"));
    if (record)
        call << rawValue(record->action) << deadline;
    else
        call << rawValue(capture->kind) << capture->delaySeconds << deadline;
    // Given up on a little after the deadline (timers may fire early), so a request the
    // instance takes after this has always expired.
    QDBusPendingCallWatcher accepted(bus.asyncCall(call, int(patience.count()) + 100));
    QObject::connect(&accepted, &QDBusPendingCallWatcher::finished, &loop, [&] {
        const QDBusPendingReply<uint> reply = accepted;
        if (reply.isError()) {
            const QDBusError::ErrorType type = reply.error().type();
            const bool silent = type == QDBusError::NoReply || type == QDBusError::Timeout ||
                                type == QDBusError::TimedOut;
            early = ForwardResult{1, {}, silent ? notResponding(bus) : reply.error().message()};
            loop.quit();
            return;
        }
        listener.await(reply.value());
    });
    loop.exec();
    if (early)
        return *early;
    return listener.result().value_or(
        ForwardResult{1, {}, QStringLiteral("No answer from Quillmark.")});
}

} // namespace qm

#include "BusClient.moc"
