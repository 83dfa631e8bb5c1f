#include "base/SettingsStore.h"

#include "base/Log.h"
#include "base/SafeWrite.h"
#include "base/SettingsIni.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QStringList>
#include <QThreadPool>
#include <QTimer>
#include <QtConcurrent/QtConcurrentRun>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <fcntl.h>

namespace qm {

namespace {

// QSettings reads "a\b" in a file as the key "a/b"; the store uses the same spelling.
QString normalizedKey(const QString& key) {
    QString k = key;
    return k.replace(QLatin1Char('\\'), QLatin1Char('/'));
}

bool isNumber(const QVariant& v) {
    switch (v.typeId()) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Double:
    case QMetaType::Float:
        return true;
    default:
        return false;
    }
}

std::optional<double> finiteNumber(const QVariant& v) {
    bool ok = false;
    double d = 0;
    if (v.typeId() == QMetaType::QString)
        d = v.toString().trimmed().toDouble(&ok);
    else if (isNumber(v))
        d = v.toDouble(&ok);
    if (!ok || !std::isfinite(d))
        return std::nullopt;
    return d;
}

// Moves the damaged file to "<name>.bad-<date>-<time>" beside it, never over another file.
Result<QString> setAside(const QString& path) {
    const QString stem = path + QStringLiteral(".bad-") +
                         QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    const QByteArray from = QFile::encodeName(path);
    for (int n = 1; n < 100; ++n) {
        const QString aside = n == 1 ? stem : stem + QLatin1Char('-') + QString::number(n);
        const QByteArray to = QFile::encodeName(aside);
        int error = 0;
        if (::renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE) !=
            0)
            error = errno;
        if ((error == EINVAL || error == ENOSYS) && !QFileInfo::exists(aside))
            error = ::rename(from.constData(), to.constData()) == 0 ? 0 : errno;
        if (error == 0)
            return aside;
        if (error != EEXIST)
            return failure(SafeWrite::describeErrno(error, QFileInfo(path).absolutePath()));
    }
    return failure(QStringLiteral("every name for the old file is taken"));
}

} // namespace

std::optional<bool> SettingsStore::toBool(const QVariant& value) {
    if (value.typeId() == QMetaType::Bool)
        return value.toBool();
    if (value.typeId() == QMetaType::QString) {
        const QString s = value.toString().trimmed().toLower();
        for (const char* yes : {"true", "yes", "on", "1"})
            if (s == QLatin1String(yes))
                return true;
        for (const char* no : {"false", "no", "off", "0"})
            if (s == QLatin1String(no))
                return false;
        return std::nullopt;
    }
    if (const auto d = finiteNumber(value); d && (*d == 0 || *d == 1))
        return *d == 1;
    return std::nullopt;
}

std::optional<qint64> SettingsStore::toInteger(const QVariant& value) {
    bool ok = false;
    if (value.typeId() == QMetaType::QString) {
        const qint64 i = value.toString().trimmed().toLongLong(&ok);
        if (ok)
            return i;
    } else if (isNumber(value) && value.typeId() != QMetaType::Double &&
               value.typeId() != QMetaType::Float) {
        const qint64 i = value.toLongLong(&ok);
        if (ok)
            return i;
    }
    // "30.0" is thirty; 30.5 and numbers beyond 64 bits are no integer.
    const auto d = finiteNumber(value);
    if (!d || std::trunc(*d) != *d || std::fabs(*d) >= 9.2e18)
        return std::nullopt;
    return qint64(*d);
}

std::optional<double> SettingsStore::toDouble(const QVariant& value) {
    return finiteNumber(value);
}

bool SettingsStore::boolValue(const QString& key) const {
    const auto v = value(key);
    return v ? toBool(*v).value_or(false) : false;
}

qint64 SettingsStore::integerValue(const QString& key) const {
    const auto v = value(key);
    return v ? toInteger(*v).value_or(0) : 0;
}

double SettingsStore::doubleValue(const QString& key) const {
    const auto v = value(key);
    return v ? toDouble(*v).value_or(0) : 0;
}

std::optional<QString> SettingsStore::stringValue(const QString& key) const {
    const auto v = value(key);
    if (!v || !v->canConvert<QString>())
        return std::nullopt;
    return v->toString();
}

std::optional<QByteArray> SettingsStore::dataValue(const QString& key) const {
    const auto v = value(key);
    if (!v)
        return std::nullopt;
    if (v->typeId() == QMetaType::QByteArray)
        return v->toByteArray();
    return std::nullopt;
}

struct IniSettingsStore::Private {
    explicit Private(QString file)
        : path(std::move(file)) {
        writer.setMaxThreadCount(1);
        flushTimer.setSingleShot(true);
        flushTimer.setInterval(0);
        QObject::connect(&flushTimer, &QTimer::timeout, &flushTimer, [this] { flush(); });
        // The store may outlive the event loop in main(); quitting must not lose a change.
        if (auto* app = QCoreApplication::instance())
            QObject::connect(app, &QCoreApplication::aboutToQuit, &flushTimer,
                             [this] { flushNow(); });
        load();
    }

    void load() {
        // A folder in the way is no damaged file: it stays, and the first write says why.
        if (QFileInfo(path).isDir())
            return;
        auto read = SettingsIni::readFile(path);
        if (read) {
            values = std::move(*read);
            return;
        }
        const QString name = QFileInfo(path).fileName();
        auto aside = setAside(path);
        if (aside) {
            report(QStringLiteral("Your settings file could not be used because %1, so Quillmark "
                                  "started with the default settings; the old file was kept as "
                                  "“%2”.")
                       .arg(read.error().reason, QFileInfo(*aside).fileName()));
            return;
        }
        // Whatever is in it may still be the user's only copy: never write over it.
        writable = false;
        report(QStringLiteral("Your settings file “%1” could not be used because %2, and it "
                              "could not be set aside (%3), so Quillmark uses the default "
                              "settings and will not save changes to them.")
                   .arg(name, read.error().reason, aside.error().reason));
    }

    void changed() {
        dirty = true;
        if (!flushTimer.isActive())
            flushTimer.start();
    }

    // Replaces the file by the given text; on the writer thread, or at the end on this one.
    static Status writeFile(const QString& path, const QByteArray& text) {
        const QFileInfo info(path);
        if (info.isDir())
            return failure(QStringLiteral("a folder is in the way of the settings file “%1”")
                               .arg(info.fileName()));
        if (Status folder = SafeWrite::ensureFolder(info.absolutePath()); !folder)
            return folder;
        return SafeWrite::replaceFile(path, text);
    }

    // Hands the values to the writer thread: the disk may take its time (the data is flushed
    // to it), never the user's.
    void flush() {
        flushTimer.stop();
        if (!dirty || !writable)
            return;
        dirty = false;
        const int number = ++writesStarted;
        QtConcurrent::run(&writer, &Private::writeFile, path, SettingsIni::text(values))
            .then(&flushTimer, [this, number](const Status& written) { settled(number, written); });
    }

    // Waits for the writer, then writes what is still pending here and now: when the store
    // goes away, the application quits, or someone asks to sync.
    void flushNow() {
        flushTimer.stop();
        writer.waitForDone();
        // The results of finished writes wait in the event queue; hear them first, in order.
        QCoreApplication::sendPostedEvents(&flushTimer, QEvent::MetaCall);
        if (!dirty || !writable)
            return;
        dirty = false;
        const int number = ++writesStarted;
        settled(number, writeFile(path, SettingsIni::text(values)));
    }

    void settled(int number, const Status& written) {
        // A result that arrives after a newer one has nothing left to say.
        if (number < writesSettled)
            return;
        writesSettled = number;
        if (!written) {
            // Pending again, so the next change or quitting tries again; told once per reason.
            dirty = true;
            const QString problem =
                QStringLiteral("Your settings could not be saved: %1.").arg(written.error().reason);
            if (problem != lastWriteProblem)
                report(problem);
            lastWriteProblem = problem;
            return;
        }
        lastWriteProblem.clear();
        ++writes;
    }

    void report(const QString& problem) {
        qCWarning(lcApp).noquote() << QStringLiteral("Quillmark: ") + problem;
        if (handler)
            handler(problem);
        else
            unheard << problem;
    }

    QString path;
    QVariantMap values;
    QVariantMap defaults;
    QTimer flushTimer;
    bool dirty = false;
    bool writable = true;
    int writes = 0;
    int writesStarted = 0;
    int writesSettled = 0;
    ProblemHandler handler;
    QStringList unheard;
    QString lastWriteProblem;
    // One thread, so the writes reach the disk in the order they were made.
    QThreadPool writer;
};

IniSettingsStore::IniSettingsStore()
    : IniSettingsStore(defaultPath()) {}

IniSettingsStore::IniSettingsStore(const QString& path)
    : d(std::make_unique<Private>(path)) {}

IniSettingsStore::~IniSettingsStore() {
    d->flushNow();
}

QString IniSettingsStore::defaultPath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/quillworks/Quillmark.conf");
}

QString IniSettingsStore::path() const {
    return d->path;
}

void IniSettingsStore::registerDefaults(const QVariantMap& defaults) {
    for (auto it = defaults.begin(); it != defaults.end(); ++it)
        d->defaults.insert(normalizedKey(it.key()), it.value());
}

std::optional<QVariant> IniSettingsStore::value(const QString& key) const {
    const QString k = normalizedKey(key);
    if (const auto it = d->values.constFind(k); it != d->values.constEnd())
        return *it;
    if (const auto it = d->defaults.constFind(k); it != d->defaults.constEnd())
        return *it;
    return std::nullopt;
}

void IniSettingsStore::setValue(const QString& key, const QVariant& value) {
    d->values.insert(normalizedKey(key), value);
    d->changed();
}

void IniSettingsStore::remove(const QString& key) {
    d->values.remove(normalizedKey(key));
    d->changed();
}

bool IniSettingsStore::contains(const QString& key) const {
    return d->values.contains(normalizedKey(key));
}

void IniSettingsStore::sync() {
    const bool pending = d->dirty || d->writesStarted > d->writesSettled;
    d->flushNow();
    if (pending || !d->writable)
        return;
    if (auto read = SettingsIni::readFile(d->path))
        d->values = std::move(*read);
}

void IniSettingsStore::setProblemHandler(ProblemHandler handler) {
    d->handler = std::move(handler);
    if (!d->handler)
        return;
    const QStringList unheard = std::exchange(d->unheard, {});
    for (const QString& problem : unheard)
        d->handler(problem);
}

int IniSettingsStore::writeCount() const {
    return d->writes;
}

} // namespace qm
