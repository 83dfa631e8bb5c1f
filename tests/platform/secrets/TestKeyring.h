#pragma once

// A keyring of the test's own: GNOME Keyring's Secret Service on the test's private session
// bus, unlocked with a known password, stopped by its process id at the end.

#include "TestSupport.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QProcess>

namespace qm::test {

class TestKeyring {
public:
    TestKeyring() {
        m_daemon.setProgram(QStringLiteral("gnome-keyring-daemon"));
        m_daemon.setArguments({QStringLiteral("--foreground"), QStringLiteral("--unlock"),
                               QStringLiteral("--components=secrets")});
        m_daemon.start();
        m_daemon.write("test-password");
        m_daemon.closeWriteChannel();
        m_ready = m_daemon.waitForStarted() && waitUntil([] {
                      return QDBusConnection::sessionBus().interface()->isServiceRegistered(
                          QStringLiteral("org.freedesktop.secrets"));
                  });
    }
    ~TestKeyring() {
        m_daemon.terminate();
        m_daemon.waitForFinished(5000);
    }
    TestKeyring(const TestKeyring&) = delete;
    TestKeyring& operator=(const TestKeyring&) = delete;

    bool ready() const { return m_ready; }

    // What another program sees, through secret-tool.
    static QByteArray lookup(const QString& account) {
        return run(QStringLiteral("secret-tool"),
                   {QStringLiteral("lookup"), QStringLiteral("service"),
                    QStringLiteral("com.quillworks.quillmark"), QStringLiteral("account"), account})
            .out;
    }
    // How many items match, through secret-tool.
    static int count(const QString& account) {
        const ProcessResult found =
            run(QStringLiteral("secret-tool"),
                {QStringLiteral("search"), QStringLiteral("--all"), QStringLiteral("service"),
                 QStringLiteral("com.quillworks.quillmark"), QStringLiteral("account"), account});
        return int((found.out + found.err).count("\nlabel = ") +
                   (found.out + found.err).startsWith("label = "));
    }
    // Stores a secret as another program would.
    static bool store(const QString& account, const QByteArray& secret) {
        QProcess tool;
        tool.start(QStringLiteral("secret-tool"),
                   {QStringLiteral("store"), QStringLiteral("--label=stored by hand"),
                    QStringLiteral("service"), QStringLiteral("com.quillworks.quillmark"),
                    QStringLiteral("account"), account});
        tool.write(secret);
        tool.closeWriteChannel();
        return waitUntil([&] { return tool.state() == QProcess::NotRunning; }) &&
               tool.exitCode() == 0;
    }

private:
    QProcess m_daemon;
    bool m_ready = false;
};

} // namespace qm::test
