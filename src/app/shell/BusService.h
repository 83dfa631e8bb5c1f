#pragma once

#include "app/BusNames.h"
#include "app/CommandLine.h"
#include "app/workflow/CaptureOutcome.h"

#include <QDBusContext>
#include <QHash>
#include <QObject>
#include <functional>

namespace qm {

// The running program's actions on the session bus, so desktop shortcuts, scripts and a
// second `quillmark` command reach the one instance of the session.
class BusService : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.quillworks.Quillmark")
public:
    // Starts a command; for a capture, the number its outcome will carry (see report).
    using Handler = std::function<Result<quint64>(const Command&)>;
    explicit BusService(Handler handler, QObject* parent = nullptr);

    // Claims the bus name and publishes the object; false when another instance has it.
    bool publish();

    // How a capture ended; a command-line request waiting for it hears through Finished.
    void report(quint64 capture, const CaptureOutcome& outcome);

    // Makes the clock the deadlines are checked against (milliseconds since the epoch).
    void setClock(std::function<qint64()> now) { m_now = std::move(now); }

public Q_SLOTS:
    // kind: "region", "window" or "fullscreen"; delaySeconds 0 captures at once. Returns at
    // once, for desktop shortcuts and scripts that do not wait.
    void Capture(const QString& kind, int delaySeconds);
    // The same for a caller that waits for the outcome: returns a request number that
    // Finished carries later. A request that arrives after its deadline (milliseconds since
    // the epoch; the caller has given up) is refused and never carried out.
    uint Request(const QString& kind, int delaySeconds, qlonglong deadline);

    // action: "area", "screen" or "stop". Returns at once.
    void Record(const QString& action);
    // The same for a caller that waits: Finished carries the outcome (for area and screen,
    // once the recording runs; for stop, the saved movie).
    uint RequestRecord(const QString& action, qlonglong deadline);

    // Shows the library window ("All Captures").
    void ShowLibrary();

Q_SIGNALS:
    // ok: detail is the saved file (empty when the capture went to the editor or a recording
    // started); otherwise detail says why there is no file.
    void Finished(uint request, bool ok, const QString& detail);

private:
    Result<quint64> start(const QString& kind, int delaySeconds);
    Result<quint64> startRecord(const QString& action);
    uint waitFor(const Result<quint64>& started);
    bool expired(qlonglong deadline);

    Handler m_handler;
    std::function<qint64()> m_now;
    // Captures a caller waits for, by their number.
    QHash<quint64, uint> m_waiting;
    uint m_lastRequest = 0;
};

} // namespace qm
