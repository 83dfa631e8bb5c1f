#include "media/Av.h"

#include <QLoggingCategory>
#include <cerrno>
#include <cstring>
#include <mutex>

Q_LOGGING_CATEGORY(lcMedia, "quillmark.media")

namespace qm::media::av {

namespace {

void logLine(void* object, int level, const char* format, va_list arguments) {
    if (level > AV_LOG_WARNING)
        return;
    char line[1024];
    int printPrefix = 1;
    av_log_format_line2(object, level, format, arguments, line, sizeof line, &printPrefix);
    const QString text = QString::fromUtf8(line).trimmed();
    if (!text.isEmpty())
        qCWarning(lcMedia).noquote() << QStringLiteral("Quillmark media: ") + text;
}

} // namespace

void routeLibraryLog() {
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_callback(&logLine); });
}

QString errorText(int averror) {
    if (averror < 0 && averror > -4096)
        return describeErrno(-averror); // a plain errno in disguise
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(averror, text, sizeof text);
    QString reason = QString::fromUtf8(text);
    if (!reason.isEmpty())
        reason[0] = reason[0].toLower();
    return reason;
}

QString describeErrno(int error) {
    switch (error) {
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
        return QStringLiteral("the disk is full");
    case EROFS:
        return QStringLiteral("the disk is read-only");
    case EACCES:
    case EPERM:
        return QStringLiteral("the folder may not be written to");
    case ENOENT:
    case ENOTDIR:
        return QStringLiteral("the folder does not exist");
    case EEXIST:
        return QStringLiteral("a file of that name already exists");
    case ENAMETOOLONG:
        return QStringLiteral("the file name is too long");
    case EIO:
        return QStringLiteral("the disk reported a read or write error");
    case ENOMEM:
        return QStringLiteral("the computer ran out of memory");
    default:
        return QString::fromLocal8Bit(std::strerror(error)).toLower();
    }
}

} // namespace qm::media::av
