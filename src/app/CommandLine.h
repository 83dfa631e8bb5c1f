#pragma once

#include "base/Result.h"

#include <QString>
#include <QStringList>
#include <optional>
#include <variant>

namespace qm {

enum class CaptureKind { Region, Window, Fullscreen };
QString rawValue(CaptureKind kind);
std::optional<CaptureKind> captureKindFromRaw(const QString& raw);

// What the quillmark command asks for. A desktop binds shortcuts to these, so they reach the
// running program over the session bus.
namespace command {
struct Start {};
struct Capture {
    CaptureKind kind = CaptureKind::Region;
    int delaySeconds = 0;
};
} // namespace command
using Command = std::variant<command::Start, command::Capture>;

// Parses the arguments after the program name; a failure's reason is one sentence for the
// terminal (or the usage, for --help).
Result<Command> parseCommandLine(const QStringList& arguments);

QString commandLineUsage();

} // namespace qm
