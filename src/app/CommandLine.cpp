#include "app/CommandLine.h"

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

QString commandLineUsage() {
    return QStringLiteral("Usage: quillmark [capture region|window|fullscreen [--delay SECONDS]]");
}

namespace {
Error error(const QString& message) {
    return failure(message);
}
} // namespace

Result<Command> parseCommandLine(const QStringList& arguments) {
    if (arguments.isEmpty())
        return Command{command::Start{}};
    const QString verb = arguments.first();
    if (verb == QLatin1String("--help") || verb == QLatin1String("-h"))
        return error(commandLineUsage());
    if (verb != QLatin1String("capture"))
        return error(
            QStringLiteral("Unknown command \"%1\"; try \"quillmark capture region\".").arg(verb));
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
        bool ok = false;
        const int seconds = value.toInt(&ok);
        if (!ok || seconds < 0 || seconds > 3600)
            return error(QStringLiteral("The delay must be a whole number of seconds from 0 to "
                                        "3600, not \"%1\".")
                             .arg(value));
        // The countdown is only offered for areas and whole screens.
        if (seconds > 0 && *kind == CaptureKind::Window)
            return error(QStringLiteral("A window capture cannot be delayed; use region or "
                                        "fullscreen with --delay."));
        capture.delaySeconds = seconds;
    }
    return Command{capture};
}

} // namespace qm
