#include "base/SettingsIni.h"

#include "base/SafeWrite.h"

#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QStringDecoder>
#include <QStringList>
#include <cerrno>
#include <map>
#include <optional>

namespace qm::SettingsIni {

namespace {

bool isHexDigit(QChar c) {
    return (c >= QLatin1Char('0') && c <= QLatin1Char('9')) ||
           (c >= QLatin1Char('a') && c <= QLatin1Char('f')) ||
           (c >= QLatin1Char('A') && c <= QLatin1Char('F'));
}

// Keys and section names: letters, digits and "_-." as they are, '/' as '\', the rest as
// %XX or %UXXXX, the way QSettings spells them.
QString escapedKey(const QString& key) {
    QString out;
    for (const QChar c : key) {
        const char16_t u = c.unicode();
        if (c == QLatin1Char('/'))
            out += QLatin1Char('\\');
        else if ((u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || (u >= '0' && u <= '9') ||
                 u == '_' || u == '-' || u == '.')
            out += c;
        else if (u <= 0xFF)
            out += QStringLiteral("%%1").arg(int(u), 2, 16, QLatin1Char('0')).toUpper();
        else
            out += QStringLiteral("%U%1").arg(int(u), 4, 16, QLatin1Char('0')).toUpper();
    }
    return out;
}

// One value, quoted when its spaces or separators would otherwise be lost. The reader takes
// as many hex digits as follow "\x", so a hex digit right after an escape is escaped too.
QString escapedString(const QString& s, bool escapeNonAscii) {
    const bool quote = s.contains(QLatin1Char(',')) || s.contains(QLatin1Char(';')) ||
                       (!s.isEmpty() && (s.front().isSpace() || s.back().isSpace()));
    QString out;
    if (quote)
        out += QLatin1Char('"');
    bool afterHexEscape = false;
    for (const QChar c : s) {
        const char16_t u = c.unicode();
        const bool hexEscape = u < 0x20 || u == 0x7F || (escapeNonAscii && u >= 0x80) ||
                               (afterHexEscape && isHexDigit(c));
        afterHexEscape = false;
        if (u == '\n')
            out += QLatin1String("\\n");
        else if (u == '\r')
            out += QLatin1String("\\r");
        else if (u == '\t')
            out += QLatin1String("\\t");
        else if (u == '"' || u == '\\')
            out += QLatin1Char('\\') + c;
        else if (hexEscape) {
            out += QStringLiteral("\\x%1").arg(int(u), 0, 16);
            afterHexEscape = true;
        } else
            out += c;
    }
    if (quote)
        out += QLatin1Char('"');
    return out;
}

// A leading '@' marks a typed value ("@ByteArray(…)"); a plain string starting with one
// doubles it.
QString plainString(const QString& s) {
    return s.startsWith(QLatin1Char('@')) ? QLatin1Char('@') + s : s;
}

QString valueText(const QVariant& value) {
    switch (value.typeId()) {
    case QMetaType::Bool:
        return value.toBool() ? QStringLiteral("true") : QStringLiteral("false");
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::UShort:
        return value.toString();
    case QMetaType::ULongLong:
        return QString::number(value.toULongLong());
    case QMetaType::Double:
    case QMetaType::Float:
        return QString::number(value.toDouble(), 'g', QLocale::FloatingPointShortest);
    case QMetaType::QByteArray:
        return escapedString(QStringLiteral("@ByteArray(") +
                                 QString::fromLatin1(value.toByteArray()) + QLatin1Char(')'),
                             true);
    case QMetaType::QStringList: {
        QStringList parts;
        for (const QString& s : value.toStringList())
            parts << escapedString(plainString(s), false);
        return parts.join(QStringLiteral(", "));
    }
    default:
        return escapedString(plainString(value.toString()), false);
    }
}

QString unescapedKey(const QString& raw) {
    QString out;
    for (qsizetype i = 0; i < raw.size(); ++i) {
        const QChar c = raw[i];
        if (c == QLatin1Char('\\')) {
            out += QLatin1Char('/');
            continue;
        }
        if (c == QLatin1Char('%')) {
            const bool wide = i + 1 < raw.size() && raw[i + 1] == QLatin1Char('U');
            const qsizetype digits = wide ? 4 : 2;
            const qsizetype from = i + (wide ? 2 : 1);
            bool ok = false;
            const uint code = raw.mid(from, digits).toUInt(&ok, 16);
            if (ok && from + digits <= raw.size()) {
                out += QChar(char16_t(code));
                i = from + digits - 1;
                continue;
            }
        }
        out += c;
    }
    return out;
}

// A value as QSettings reads it: quoted parts, backslash escapes, "," between the items of a
// list, ";" before a comment; spaces around items dropped.
QStringList unescapedItems(QStringView raw, bool* isList) {
    QStringList items;
    QString current;
    bool inQuotes = false;
    bool quotedSomething = false;
    *isList = false;
    auto finishItem = [&] {
        items << (quotedSomething ? current : current.trimmed());
        current.clear();
        quotedSomething = false;
    };
    for (qsizetype i = 0; i < raw.size(); ++i) {
        const QChar c = raw[i];
        if (c == QLatin1Char('\\') && i + 1 < raw.size()) {
            const QChar e = raw[++i];
            switch (e.unicode()) {
            case 'a':
                current += QChar(u'\a');
                break;
            case 'b':
                current += QChar(u'\b');
                break;
            case 'f':
                current += QChar(u'\f');
                break;
            case 'n':
                current += QChar(u'\n');
                break;
            case 'r':
                current += QChar(u'\r');
                break;
            case 't':
                current += QChar(u'\t');
                break;
            case 'v':
                current += QChar(u'\v');
                break;
            case 'x': {
                uint code = 0;
                while (i + 1 < raw.size() && isHexDigit(raw[i + 1]))
                    code = (code * 16 + uint(QString(raw[++i]).toUInt(nullptr, 16))) & 0xFFFF;
                current += QChar(char16_t(code));
                break;
            }
            default:
                if (e >= QLatin1Char('0') && e <= QLatin1Char('7')) {
                    uint code = uint(e.unicode() - '0');
                    while (i + 1 < raw.size() && raw[i + 1] >= QLatin1Char('0') &&
                           raw[i + 1] <= QLatin1Char('7'))
                        code = (code * 8 + uint(raw[++i].unicode() - '0')) & 0xFFFF;
                    current += QChar(char16_t(code));
                } else {
                    current += e; // \" \' \\ and anything else stand for themselves
                }
            }
        } else if (c == QLatin1Char('"')) {
            if (!inQuotes && !quotedSomething && current.trimmed().isEmpty())
                current.clear();
            inQuotes = !inQuotes;
            quotedSomething = true;
        } else if (inQuotes) {
            current += c;
        } else if (c == QLatin1Char(',')) {
            *isList = true;
            finishItem();
        } else if (c == QLatin1Char(';')) {
            break;
        } else if (!(quotedSomething && c.isSpace())) {
            current += c;
        }
    }
    finishItem();
    return items;
}

// "@@text" is "@text"; "@ByteArray(…)" holds bytes; "@Invalid()" is no value.
QVariant typedValue(const QString& s) {
    if (!s.startsWith(QLatin1Char('@')))
        return s;
    if (s.startsWith(QLatin1String("@@")))
        return s.mid(1);
    if (s.startsWith(QLatin1String("@ByteArray(")) && s.endsWith(QLatin1Char(')')))
        return s.mid(11, s.size() - 12).toLatin1();
    if (s == QLatin1String("@Invalid()"))
        return QVariant();
    return s;
}

// Every value by key, or nothing when the text is not a settings file: not UTF-8 text, a
// section without its "]", a line that is neither a section, a comment nor "key=value".
std::optional<QVariantMap> parse(const QByteArray& bytes) {
    if (bytes.contains('\0'))
        return std::nullopt;
    QStringDecoder decode(QStringDecoder::Utf8);
    const QString text = decode(bytes);
    if (decode.hasError())
        return std::nullopt;
    QVariantMap values;
    QString section;
    for (QStringView line : QStringView(text).split(QLatin1Char('\n'))) {
        line = line.trimmed(); // also the \r of Windows line ends
        if (line.isEmpty() || line.front() == QLatin1Char(';') || line.front() == QLatin1Char('#'))
            continue;
        if (line.front() == QLatin1Char('[')) {
            if (line.back() != QLatin1Char(']'))
                return std::nullopt;
            section = unescapedKey(line.mid(1, line.size() - 2).trimmed().toString());
            if (section.compare(QLatin1String("General"), Qt::CaseInsensitive) == 0)
                section.clear();
            continue;
        }
        const qsizetype equals = line.indexOf(QLatin1Char('='));
        if (equals < 0)
            return std::nullopt;
        const QString key = unescapedKey(line.left(equals).trimmed().toString());
        if (key.isEmpty())
            continue;
        bool isList = false;
        const QStringList items = unescapedItems(line.mid(equals + 1), &isList);
        QVariant value;
        if (isList) {
            QStringList list;
            for (const QString& item : items)
                list << (item.startsWith(QLatin1String("@@")) ? item.mid(1) : item);
            value = list;
        } else {
            value = typedValue(items.front());
        }
        if (value.isValid())
            values.insert(section.isEmpty() ? key : section + QLatin1Char('/') + key, value);
    }
    return values;
}

} // namespace

Result<QVariantMap> readFile(const QString& path) {
    const QFileInfo info(path);
    if (!info.exists())
        return QVariantMap{};
    if (info.isDir())
        return failure(QStringLiteral("a folder is in the way of the settings file"));
    QFile file(path);
    errno = 0;
    if (!file.open(QIODevice::ReadOnly))
        return failure(
            QStringLiteral("it could not be read (%1)")
                .arg(SafeWrite::describeErrno(errno ? errno : EACCES, info.absolutePath())));
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return failure(QStringLiteral("it could not be read (%1)").arg(file.errorString()));
    auto values = parse(bytes);
    if (!values)
        return failure(QStringLiteral("it is damaged"));
    return std::move(*values);
}

QByteArray text(const QVariantMap& values) {
    // Section name → its lines; "General" holds the keys without a group and comes first.
    std::map<QString, QStringList> sections;
    for (auto it = values.begin(); it != values.end(); ++it) {
        if (!it.value().isValid())
            continue;
        const QString& key = it.key();
        const qsizetype slash = key.indexOf(QLatin1Char('/'));
        const QString section = slash < 0 ? QString() : key.left(slash);
        const QString name = slash < 0 ? key : key.mid(slash + 1);
        sections[section] << escapedKey(name) + QLatin1Char('=') + valueText(it.value());
    }
    QString out;
    for (const auto& [section, lines] : sections) {
        if (!out.isEmpty())
            out += QLatin1Char('\n');
        out += QLatin1Char('[') +
               (section.isEmpty() ? QStringLiteral("General") : escapedKey(section)) +
               QStringLiteral("]\n");
        for (const QString& line : lines)
            out += line + QLatin1Char('\n');
    }
    return out.toUtf8();
}

} // namespace qm::SettingsIni
