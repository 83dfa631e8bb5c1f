#pragma once

#include <QByteArray>
#include <QColor>
#include <QImage>
#include <QString>
#include <QStringList>
#include <chrono>
#include <functional>
#include <optional>
#include <ostream>

namespace qm::test {

// Spins the event loop until the condition holds or the deadline passes.
bool waitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds deadline = std::chrono::seconds(10));

struct ProcessResult {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

// Runs an external program to completion (with a deadline) while our event loop keeps
// running, and returns its output.
ProcessResult run(const QString& program, const QStringList& args,
                  std::chrono::milliseconds deadline = std::chrono::seconds(30));

// Captures every Qt log message while alive, so tests can assert the exact log lines.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    QStringList lines() const;
    bool contains(const QString& fragment) const;
};

// A screenshot-like test image: flat UI areas, text, gradients and a noisy "photo" region.
QImage makeScreenshotLikeImage(int width, int height, bool withAlpha = false);

} // namespace qm::test

// Readable QString values in test failure messages.
inline void PrintTo(const QString& s, std::ostream* os) {
    *os << '"' << s.toStdString() << '"';
}
