#include "app/shell/BusService.h"

#include "base/Log.h"

#include <QDBusConnection>
#include <QDateTime>

namespace qm {

BusService::BusService(Handler handler, QObject* parent)
    : QObject(parent)
    , m_handler(std::move(handler))
    , m_now([] { return QDateTime::currentMSecsSinceEpoch(); }) {}

bool BusService::publish() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false;
    if (!bus.registerService(busServiceName))
        return false;
    return bus.registerObject(busObjectPath, this,
                              QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals);
}

Result<quint64> BusService::start(const QString& kind, int delaySeconds) {
    QStringList args{QStringLiteral("capture"), kind};
    if (delaySeconds != 0)
        args << QStringLiteral("--delay") << QString::number(delaySeconds);
    const Result<Command> parsed = parseCommandLine(args);
    if (!parsed)
        return parsed.error();
    return m_handler(*parsed);
}

void BusService::Capture(const QString& kind, int delaySeconds) {
    const Result<quint64> started = start(kind, delaySeconds);
    if (!started && calledFromDBus())
        sendErrorReply(QDBusError::InvalidArgs, started.error().reason);
}

Result<quint64> BusService::startRecord(const QString& action) {
    const Result<Command> parsed = parseCommandLine({QStringLiteral("record"), action});
    if (!parsed)
        return parsed.error();
    return m_handler(*parsed);
}

uint BusService::Request(const QString& kind, int delaySeconds, qlonglong deadline) {
    if (expired(deadline))
        return 0;
    return waitFor(start(kind, delaySeconds));
}

void BusService::Record(const QString& action) {
    const Result<quint64> started = startRecord(action);
    if (!started && calledFromDBus())
        sendErrorReply(QDBusError::InvalidArgs, started.error().reason);
}

void BusService::ShowLibrary() {
    const Result<quint64> shown = m_handler(Command{command::Library{}});
    if (!shown && calledFromDBus())
        sendErrorReply(QDBusError::Failed, shown.error().reason);
}

uint BusService::RequestRecord(const QString& action, qlonglong deadline) {
    if (expired(deadline))
        return 0;
    return waitFor(startRecord(action));
}

bool BusService::expired(qlonglong deadline) {
    if (m_now() < deadline)
        return false;
    qCInfo(lcApp).noquote() << QStringLiteral(
        "Quillmark: dropped a command-line request that arrived after its caller gave up");
    if (calledFromDBus())
        sendErrorReply(QDBusError::TimedOut,
                       QStringLiteral("The request arrived after its deadline."));
    return true;
}

uint BusService::waitFor(const Result<quint64>& started) {
    if (!started) {
        if (calledFromDBus())
            sendErrorReply(QDBusError::Failed, started.error().reason);
        return 0;
    }
    const uint request = ++m_lastRequest;
    m_waiting.insert(*started, request);
    return request;
}

void BusService::report(quint64 capture, const CaptureOutcome& outcome) {
    const auto waiting = m_waiting.constFind(capture);
    if (waiting == m_waiting.cend())
        return;
    const uint request = *waiting;
    m_waiting.erase(waiting);
    // A signal, not a reply: a region capture can wait on the user for as long as it likes.
    std::visit(
        [&](const auto& o) {
            using T = std::decay_t<decltype(o)>;
            if constexpr (std::is_same_v<T, outcome::Saved>)
                Q_EMIT Finished(request, true, o.path);
            else if constexpr (std::is_same_v<T, outcome::Editing> ||
                               std::is_same_v<T, outcome::Recording>)
                Q_EMIT Finished(request, true, QString());
            else if constexpr (std::is_same_v<T, outcome::NotSaved>)
                Q_EMIT Finished(request, false, QStringLiteral("Not saved: ") + o.reason);
            else if constexpr (std::is_same_v<T, outcome::Cancelled>)
                Q_EMIT Finished(request, false, QStringLiteral("Cancelled."));
            else
                Q_EMIT Finished(request, false, QStringLiteral("Capture failed: ") + o.reason);
        },
        outcome);
}

} // namespace qm
