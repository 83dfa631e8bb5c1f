#pragma once

#include "app/CommandLine.h"
#include "base/AppId.h"

#include <QDBusContext>
#include <QObject>
#include <functional>

namespace qm {

inline const QString busServiceName = applicationId;
inline const QString busObjectPath = QStringLiteral("/com/quillworks/Quillmark");

// The running program's actions on the session bus, so desktop shortcuts, scripts and a
// second `quillmark` command reach the one instance of the session.
class BusService : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.quillworks.Quillmark")
public:
    using Handler = std::function<void(const Command&)>;
    explicit BusService(Handler handler, QObject* parent = nullptr);

    // Claims the bus name and publishes the object; false when another instance has it.
    bool publish();

public Q_SLOTS:
    // kind: "region", "window" or "fullscreen"; delaySeconds 0 captures at once.
    void Capture(const QString& kind, int delaySeconds);

private:
    Handler m_handler;
};

// Hands a command to the instance that owns the bus name. Empty on success, else one
// sentence saying what went wrong.
QString forwardToRunningInstance(const Command& command);

} // namespace qm
