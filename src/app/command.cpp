// The quillmark command. It does not load the tray program's libraries, so a desktop shortcut
// bound to `quillmark capture fullscreen` reaches the running instance in a few milliseconds;
// it starts the tray program (in its place, same process) only when none runs yet.
#include "app/BusClient.h"
#include "app/CommandLine.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace {

// Next to this command in a build tree, in libexec once installed.
QString trayProgram() {
    const QDir here(QCoreApplication::applicationDirPath());
    for (const QString& candidate :
         {here.filePath(QStringLiteral("quillmark-tray")),
          here.filePath(QStringLiteral("../libexec/quillmark/quillmark-tray"))})
        if (QFileInfo(candidate).isExecutable())
            return QFileInfo(candidate).absoluteFilePath();
    return {};
}

// How long a running instance may take to accept a request. Scripts that would rather fail
// sooner set QUILLMARK_TIMEOUT_MS.
std::chrono::milliseconds patience() {
    bool ok = false;
    const int ms = qEnvironmentVariableIntValue("QUILLMARK_TIMEOUT_MS", &ok);
    return std::chrono::milliseconds(ok && ms > 0 ? ms : 5000);
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const auto parsed = qm::parseCommandLine(QCoreApplication::arguments().mid(1));
    if (const auto answered = qm::answerLocally(parsed))
        return *answered;
    // Trimming and GIFs work on files here and now; everything else goes to the instance.
    if (!qm::worksOnFilesAlone(*parsed) && qm::instanceRunning())
        return qm::printResult(qm::forwardToRunningInstance(*parsed, patience()));
    const QString tray = trayProgram();
    if (tray.isEmpty()) {
        qm::printLine(stderr,
                      QStringLiteral("Cannot start Quillmark: quillmark-tray is not installed "
                                     "next to this command."));
        return 1;
    }
    // Still "quillmark" to the user: in the process list and as the windows' class.
    const QByteArray path = QFile::encodeName(tray);
    execv(path.constData(), argv);
    qm::printLine(stderr, QStringLiteral("Cannot start Quillmark: %1: %2")
                              .arg(tray, QString::fromLocal8Bit(std::strerror(errno))));
    return 1;
}
