#include "app/CommandLine.h"

#include <QRegularExpression>

namespace qm {

QString rawValue(CaptureKind kind) {
    switch (kind) {
    case CaptureKind::Region:
        return QStringLiteral("region");
    case CaptureKind::Window:
        return QStringLiteral("window");
    case CaptureKind::Fullscreen:
        return QStringLiteral("fullscreen");
    }
    return {};
}

std::optional<CaptureKind> captureKindFromRaw(const QString& raw) {
    for (CaptureKind k : {CaptureKind::Region, CaptureKind::Window, CaptureKind::Fullscreen})
        if (rawValue(k) == raw)
            return k;
    return std::nullopt;
}

QString rawValue(RecordAction action) {
    switch (action) {
    case RecordAction::Area:
        return QStringLiteral("area");
    case RecordAction::Screen:
        return QStringLiteral("screen");
    case RecordAction::Stop:
        return QStringLiteral("stop");
    }
    return {};
}

std::optional<RecordAction> recordActionFromRaw(const QString& raw) {
    for (RecordAction a : {RecordAction::Area, RecordAction::Screen, RecordAction::Stop})
        if (rawValue(a) == raw)
            return a;
    return std::nullopt;
}

QString commandLineUsage() {
    return QStringLiteral(
        "Usage: quillmark [COMMAND]\n"
        "\n"
        "Without a command, starts Quillmark in the tray (or does nothing if it runs).\n"
        "\n"
        "Commands:\n"
        "  capture region       choose an area or a window on the frozen screen\n"
        "  capture window       capture the active window\n"
        "  capture fullscreen   capture the screen under the pointer\n"
        "    --delay SECONDS    count down first (0 to 3600; region and fullscreen)\n"
        "  record area          choose an area or a window to record\n"
        "  record screen        record the screen under the pointer\n"
        "  record stop          stop recording and save the movie\n"
        "  trim MOVIE --from SECONDS --to SECONDS\n"
        "                       keep only that range of the movie, in place\n"
        "  gif MOVIE [--from SECONDS] [--to SECONDS] [--fps N] [--max-size PIXELS] [-o FILE]\n"
        "                       make a looping GIF of the movie (or of a range of it)\n"
        "  library              show all captures\n"
        "  search TEXT          print the captures whose name or text contains TEXT,\n"
        "                       newest first (exit status 1 when none does)\n"
        "  ask IMAGE [--action describe|explain-error|extract|bug-report] [QUESTION]\n"
        "                       ask Claude about an image with an action or a question,\n"
        "                       printing the reply as it arrives\n"
        "  --help               show this text\n"
        "  --version            show the version\n"
        "\n"
        "A capture is handed to the running Quillmark, which is started when needed. The\n"
        "saved file's path is printed; if the capture is not saved, the reason is printed\n"
        "and the exit status is 1. \"record area\" and \"record screen\" return once the\n"
        "recording runs; \"record stop\" prints the saved movie's path. A mistake in the\n"
        "command exits with status 2.\n");
}

QString versionLine() {
    return QStringLiteral("quillmark " QUILLMARK_VERSION);
}

std::optional<QString> missingDisplay() {
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        return QStringLiteral("no display: set DISPLAY (or WAYLAND_DISPLAY)");
    return std::nullopt;
}

std::optional<int> answerLocally(const Result<Command>& parsed) {
    if (!parsed) {
        printLine(stderr, parsed.error().reason);
        return 2;
    }
    if (std::holds_alternative<command::Help>(*parsed)) {
        printLine(stdout, commandLineUsage());
        return 0;
    }
    if (std::holds_alternative<command::Version>(*parsed)) {
        printLine(stdout, versionLine());
        return 0;
    }
    if (worksOnFilesAlone(*parsed))
        return std::nullopt;
    if (const auto missing = missingDisplay()) {
        printLine(stderr, *missing);
        return 1;
    }
    return std::nullopt;
}

void printLine(std::FILE* stream, const QString& text) {
    if (text.isEmpty())
        return;
    const QByteArray bytes = text.toLocal8Bit();
    std::fputs(bytes.constData(), stream);
    if (!bytes.endsWith('\n'))
        std::fputc('\n', stream);
}

bool worksOnFilesAlone(const Command& command) {
    return std::holds_alternative<command::Trim>(command) ||
           std::holds_alternative<command::Gif>(command) ||
           std::holds_alternative<command::Search>(command) ||
           std::holds_alternative<command::Ask>(command);
}

namespace {

Error error(const QString& message) {
    return failure(message);
}

// Digits only: " 5", "+3", "5s" and "0x10" are all mistakes a user would want to hear about.
std::optional<int> strictSeconds(const QString& text) {
    static const QRegularExpression digits(QStringLiteral("^[0-9]{1,4}$"));
    if (!digits.match(text).hasMatch())
        return std::nullopt;
    return text.toInt();
}

// A time in seconds: digits with an optional fraction ("2", "2.5", ".5").
std::optional<double> strictTime(const QString& text) {
    static const QRegularExpression number(
        QStringLiteral("^([0-9]{1,6}(\\.[0-9]{0,6})?|\\.[0-9]{1,6})$"));
    if (!number.match(text).hasMatch())
        return std::nullopt;
    return text.toDouble();
}

// The value of "--name VALUE" or "--name=VALUE" at arguments[i], moving i past it.
std::optional<QString> optionValue(const QStringList& arguments, qsizetype& i,
                                   const QString& name) {
    const QString& arg = arguments.at(i);
    if (arg == name) {
        if (i + 1 >= arguments.size())
            return QString();
        return arguments.at(++i);
    }
    if (arg.startsWith(name + QLatin1Char('=')))
        return arg.mid(name.size() + 1);
    return std::nullopt;
}

Result<Command> parseMovieCommand(const QStringList& arguments) {
    const QString verb = arguments.first();
    const bool trim = verb == QLatin1String("trim");
    if (arguments.size() < 2 || arguments.at(1).startsWith(QLatin1Char('-')))
        return error(QStringLiteral("Say which movie: \"quillmark %1 MOVIE …\".").arg(verb));
    command::Trim cut{arguments.at(1)};
    command::Gif gif{arguments.at(1)};
    bool hasFrom = false;
    bool hasTo = false;
    for (qsizetype i = 2; i < arguments.size(); ++i) {
        const QString arg = arguments.at(i);
        const QString name = arg.section(QLatin1Char('='), 0, 0);
        std::optional<QString> value;
        if (name == QLatin1String("--from") || name == QLatin1String("--to")) {
            value = optionValue(arguments, i, name);
            const auto seconds = strictTime(*value);
            if (!seconds)
                return error(QStringLiteral("%1 takes a time in seconds, such as 2.5, not \"%2\".")
                                 .arg(name, *value));
            if (name == QLatin1String("--from")) {
                cut.from = *seconds;
                gif.from = *seconds;
                hasFrom = true;
            } else {
                cut.to = *seconds;
                gif.to = *seconds;
                hasTo = true;
            }
        } else if (!trim && name == QLatin1String("--fps")) {
            value = optionValue(arguments, i, name);
            const auto fps = strictTime(*value);
            if (!fps || *fps < 1 || *fps > 50)
                return error(QStringLiteral("--fps takes a frame rate from 1 to 50, not \"%1\".")
                                 .arg(*value));
            gif.fps = *fps;
        } else if (!trim && name == QLatin1String("--max-size")) {
            value = optionValue(arguments, i, name);
            const std::optional<int> pixels = strictSeconds(*value);
            if (!pixels || *pixels < 16 || *pixels > 3840)
                return error(
                    QStringLiteral("--max-size takes a size in pixels from 16 to 3840, not \"%1\".")
                        .arg(*value));
            gif.maxSize = *pixels;
        } else if (!trim && (arg == QLatin1String("-o") || name == QLatin1String("--output"))) {
            value = optionValue(arguments, i, arg == QLatin1String("-o") ? arg : name);
            if (value->isEmpty())
                return error(QStringLiteral("%1 needs a file name.").arg(arg));
            gif.output = *value;
        } else {
            return error(QStringLiteral("Unknown option \"%1\" for %2.").arg(arg, verb));
        }
    }
    if (trim && (!hasFrom || !hasTo))
        return error(QStringLiteral(
            "Say which range to keep: \"quillmark trim MOVIE --from SECONDS --to SECONDS\"."));
    if (hasFrom && hasTo && cut.to <= cut.from)
        return error(QStringLiteral("--to must come after --from."));
    if (trim)
        return Command{cut};
    return Command{gif};
}

Result<Command> parseAsk(const QStringList& arguments) {
    static const QStringList actions = {QStringLiteral("describe"), QStringLiteral("explain-error"),
                                        QStringLiteral("extract"), QStringLiteral("bug-report")};
    if (arguments.size() < 2 || arguments.at(1).startsWith(QLatin1Char('-')))
        return error(QStringLiteral("Say which image: \"quillmark ask IMAGE …\"."));
    command::Ask ask{arguments.at(1), {}, {}};
    QStringList words;
    for (qsizetype i = 2; i < arguments.size(); ++i) {
        const QString arg = arguments.at(i);
        const QString name = arg.section(QLatin1Char('='), 0, 0);
        if (name == QLatin1String("--action")) {
            const QString value = *optionValue(arguments, i, name);
            if (!actions.contains(value))
                return error(QStringLiteral("--action takes one of %1, not \"%2\".")
                                 .arg(actions.join(QStringLiteral(", ")), value));
            ask.action = value;
        } else if (arg == QLatin1String("--")) {
            words += arguments.mid(i + 1);
            break;
        } else if (arg.startsWith(QLatin1String("--"))) {
            return error(QStringLiteral("Unknown option \"%1\" for ask.").arg(arg));
        } else {
            words << arg;
        }
    }
    // The words of the question are one question, as typed in the panel's field.
    ask.question = words.join(QLatin1Char(' ')).trimmed();
    if (ask.action.isEmpty() == ask.question.isEmpty())
        return error(QStringLiteral("Ask either with --action or with a question: \"quillmark "
                                    "ask IMAGE --action describe\" or \"quillmark ask IMAGE "
                                    "'What is this?'\"."));
    return Command{ask};
}

} // namespace

Result<Command> parseCommandLine(const QStringList& arguments) {
    if (arguments.isEmpty())
        return Command{command::Start{}};
    const QString verb = arguments.first();
    if (verb == QLatin1String("--help") || verb == QLatin1String("-h"))
        return Command{command::Help{}};
    if (verb == QLatin1String("--version"))
        return Command{command::Version{}};
    if (verb == QLatin1String("trim") || verb == QLatin1String("gif"))
        return parseMovieCommand(arguments);
    if (verb == QLatin1String("library")) {
        if (arguments.size() > 1)
            return error(QStringLiteral("Unknown option \"%1\" for library.").arg(arguments.at(1)));
        return Command{command::Library{}};
    }
    if (verb == QLatin1String("search")) {
        // The words after "search" are one search, spaces kept, as typed in the library.
        const QString text = arguments.mid(1).join(QLatin1Char(' '));
        if (text.isEmpty())
            return error(QStringLiteral("Say what to look for: \"quillmark search TEXT\"."));
        return Command{command::Search{text}};
    }
    if (verb == QLatin1String("ask"))
        return parseAsk(arguments);
    if (verb == QLatin1String("record")) {
        if (arguments.size() < 2)
            return error(QStringLiteral("Say what to do: \"quillmark record area\", \"screen\" or "
                                        "\"stop\"."));
        const auto action = recordActionFromRaw(arguments.at(1));
        if (!action)
            return error(QStringLiteral("Cannot record \"%1\"; choose area, screen or stop.")
                             .arg(arguments.at(1)));
        if (arguments.size() > 2)
            return error(QStringLiteral("Unknown option \"%1\" for record.").arg(arguments.at(2)));
        return Command{command::Record{*action}};
    }
    if (verb != QLatin1String("capture"))
        return error(QStringLiteral("Unknown command \"%1\"; try \"quillmark --help\".").arg(verb));
    if (arguments.size() < 2)
        return error(
            QStringLiteral("Say what to capture: \"quillmark capture region\", \"window\" or "
                           "\"fullscreen\"."));
    const auto kind = captureKindFromRaw(arguments.at(1));
    if (!kind)
        return error(QStringLiteral("Cannot capture \"%1\"; choose region, window or fullscreen.")
                         .arg(arguments.at(1)));
    command::Capture capture{*kind, 0};
    for (qsizetype i = 2; i < arguments.size(); ++i) {
        const QString& arg = arguments.at(i);
        QString value;
        if (arg == QLatin1String("--delay")) {
            if (i + 1 >= arguments.size())
                return error(QStringLiteral("--delay needs a number of seconds."));
            value = arguments.at(++i);
        } else if (arg.startsWith(QLatin1String("--delay="))) {
            value = arg.mid(8);
        } else {
            return error(QStringLiteral("Unknown option \"%1\" for capture.").arg(arg));
        }
        const std::optional<int> seconds = strictSeconds(value);
        if (!seconds || *seconds > 3600)
            return error(QStringLiteral("--delay takes a whole number of seconds from 0 to 3600, "
                                        "not \"%1\".")
                             .arg(value));
        // The countdown is only offered for areas and whole screens.
        if (*seconds > 0 && *kind == CaptureKind::Window)
            return error(QStringLiteral("A window capture cannot be delayed; use region or "
                                        "fullscreen with --delay."));
        capture.delaySeconds = *seconds;
    }
    return Command{capture};
}

} // namespace qm
