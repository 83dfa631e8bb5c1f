#pragma once

// The real program run as a user runs it, for the end-to-end tests of this folder.
#include "TestSupport.h"

#include <QDir>
#include <QProcess>
#include <QString>
#include <QStringList>

namespace qm::test {

inline const QString kPictures = QDir::homePath() + QStringLiteral("/Pictures/Quillmark");

inline QStringList captures() {
    QStringList files =
        QDir(kPictures).entryList({QStringLiteral("*.png")}, QDir::Files, QDir::Time);
    for (QString& f : files)
        f = QDir(kPictures).filePath(f);
    return files; // newest first
}

// Waits for the number of saved captures to reach `count`, and returns the newest.
inline QString waitForCapture(qsizetype count) {
    if (!waitUntil([&] { return captures().size() >= count; }))
        return {};
    QString newest = captures().first();
    // The file is renamed into place complete, so it decodes as soon as it is there.
    return newest;
}

// The program started as a user starts it, ended with the test.
class Program {
public:
    explicit Program(const QStringList& args = {}) {
        m_process.start(QStringLiteral(QUILLMARK_BINARY), args);
        m_process.waitForStarted();
    }
    ~Program() {
        m_process.terminate();
        if (!m_process.waitForFinished(5000))
            m_process.kill();
        m_process.waitForFinished();
    }
    // Waits until the program says `text` on stderr.
    bool logged(const QString& text) {
        return waitUntil([&] {
            m_log += QString::fromUtf8(m_process.readAllStandardError());
            return m_log.contains(text);
        });
    }
    // Ready once it answers on the session bus.
    bool ready() {
        return waitUntil([] {
            return run(QStringLiteral("gdbus"),
                       {QStringLiteral("introspect"), QStringLiteral("--session"),
                        QStringLiteral("--dest"), QStringLiteral("com.quillworks.Quillmark"),
                        QStringLiteral("--object-path"),
                        QStringLiteral("/com/quillworks/Quillmark")})
                       .exitCode == 0;
        });
    }
    QString log() {
        m_log += QString::fromUtf8(m_process.readAllStandardError());
        return m_log;
    }
    QProcess& process() { return m_process; }

private:
    QProcess m_process;
    QString m_log;
};

} // namespace qm::test
