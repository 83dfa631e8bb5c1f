#pragma once

#include "base/Result.h"

#include <QString>
#include <QStringList>
#include <cstdio>
#include <optional>
#include <variant>

namespace qm {

enum class CaptureKind { Region, Window, Fullscreen };
QString rawValue(CaptureKind kind);
std::optional<CaptureKind> captureKindFromRaw(const QString& raw);

// Start recording a chosen area or the screen under the pointer, or stop the recording.
enum class RecordAction { Area, Screen, Stop };
QString rawValue(RecordAction action);
std::optional<RecordAction> recordActionFromRaw(const QString& raw);

// What the quillmark command asks for. A desktop binds shortcuts to these, so they reach the
// running program over the session bus.
namespace command {
struct Start {};
struct Capture {
    CaptureKind kind = CaptureKind::Region;
    int delaySeconds = 0;
};
struct Record {
    RecordAction action = RecordAction::Area;
};
// Cut a movie to a range, in place, without a running instance.
struct Trim {
    QString movie;
    double from = 0;
    double to = 0;
};
// A looping GIF of a movie's range, without a running instance. Unset values come from the
// settings ("gif.fps", "gif.maxDimension") and the whole movie.
struct Gif {
    QString movie;
    std::optional<double> from;
    std::optional<double> to;
    std::optional<double> fps;
    std::optional<int> maxSize;
    QString output; // empty: named by the clip rule in the save folder
};
// Show the library window of the running instance.
struct Library {};
// Print the captures whose name or recognised text contains `text`, newest first, without a
// running instance (new images are read first).
struct Search {
    QString text;
};
// Ask Claude about an image, printing the reply as it arrives, without a running instance:
// one of the ready-made actions ("describe", "explain-error", "extract", "bug-report") or a
// question of one's own.
struct Ask {
    QString image;
    QString action;   // empty when a question is asked
    QString question; // empty when an action is run
};
struct Help {};
struct Version {};
} // namespace command
using Command =
    std::variant<command::Start, command::Capture, command::Record, command::Trim, command::Gif,
                 command::Library, command::Search, command::Ask, command::Help, command::Version>;

// Whether the command works on files alone: no display and no running instance needed.
bool worksOnFilesAlone(const Command& command);

// Parses the arguments after the program name; a failure's reason is one sentence for the
// terminal, naming the argument and what is wrong with it.
Result<Command> parseCommandLine(const QStringList& arguments);

// The text --help prints, ending in a newline.
QString commandLineUsage();
// "quillmark 0.2.0", for --version.
QString versionLine();

// Why no display can be reached from this environment, or nothing when one is named.
std::optional<QString> missingDisplay();

// What the command answers by itself, before a display or a running instance is needed: a
// mistake (status 2), --help and --version (0), no display (1); printed, with the exit status.
// Nothing when the command goes on.
std::optional<int> answerLocally(const Result<Command>& parsed);

// A line for the terminal, its newline added when missing; nothing for empty text.
void printLine(std::FILE* stream, const QString& text);

} // namespace qm
