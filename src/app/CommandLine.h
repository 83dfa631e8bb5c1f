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
struct Help {};
struct Version {};
} // namespace command
using Command = std::variant<command::Start, command::Capture, command::Help, command::Version>;

// Parses the arguments after the program name; a failure's reason is one sentence for the
// terminal, naming the argument and what is wrong with it.
Result<Command> parseCommandLine(const QStringList& arguments);

// The text --help prints, ending in a newline.
QString commandLineUsage();
// "quillmark 0.2.0", for --version.
QString versionLine();

// Why no display can be reached from this environment, or nothing when one is named.
std::optional<QString> missingDisplay();

} // namespace qm
