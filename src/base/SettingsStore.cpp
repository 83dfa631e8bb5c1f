#include "base/SettingsStore.h"

#include <QCoreApplication>
#include <QSettings>
#include <QStandardPaths>
#include <QTimer>

namespace qm {

namespace {
// QSettings' INI format treats '/' as a group separator and stores dotted keys as they are,
// so keys like "afterCapture.overlay" live at the top level of the [General] group.
QString iniKey(const QString& key) {
    QString k = key;
    return k.replace(QLatin1Char('/'), QLatin1Char('\\'));
}
} // namespace

bool SettingsStore::boolValue(const QString& key) const {
    const auto v = value(key);
    if (!v)
        return false;
    if (v->typeId() == QMetaType::QString) {
        const QString s = v->toString().trimmed().toLower();
        return s == QLatin1String("true") || s == QLatin1String("1") || s == QLatin1String("yes");
    }
    return v->toBool();
}

qint64 SettingsStore::integerValue(const QString& key) const {
    const auto v = value(key);
    if (!v)
        return 0;
    bool ok = false;
    const qint64 i = v->toLongLong(&ok);
    if (ok)
        return i;
    const double d = v->toDouble(&ok);
    return ok ? qint64(d) : 0;
}

double SettingsStore::doubleValue(const QString& key) const {
    const auto v = value(key);
    if (!v)
        return 0;
    bool ok = false;
    const double d = v->toDouble(&ok);
    return ok ? d : 0;
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
    explicit Private(const QString& path)
        : settings(path, QSettings::IniFormat) {
        flushTimer.setSingleShot(true);
        flushTimer.setInterval(0);
        QObject::connect(&flushTimer, &QTimer::timeout, &flushTimer, [this] { flush(); });
        // The store may outlive the event loop in main(); quitting must not lose a change.
        if (auto* app = QCoreApplication::instance())
            QObject::connect(app, &QCoreApplication::aboutToQuit, &flushTimer, [this] { flush(); });
    }

    void changed() {
        dirty = true;
        if (!flushTimer.isActive())
            flushTimer.start();
    }
    void flush() {
        flushTimer.stop();
        if (!dirty)
            return;
        dirty = false;
        settings.sync();
        ++writes;
    }

    QSettings settings;
    QVariantMap defaults;
    QTimer flushTimer;
    bool dirty = false;
    int writes = 0;
};

IniSettingsStore::IniSettingsStore()
    : IniSettingsStore(defaultPath()) {}

IniSettingsStore::IniSettingsStore(const QString& path)
    : d(std::make_unique<Private>(path)) {}

IniSettingsStore::~IniSettingsStore() {
    d->flush();
}

QString IniSettingsStore::defaultPath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/quillworks/Quillmark.conf");
}

QString IniSettingsStore::path() const {
    return d->settings.fileName();
}

void IniSettingsStore::registerDefaults(const QVariantMap& defaults) {
    for (auto it = defaults.begin(); it != defaults.end(); ++it)
        d->defaults.insert(it.key(), it.value());
}

std::optional<QVariant> IniSettingsStore::value(const QString& key) const {
    const QVariant v = d->settings.value(iniKey(key));
    if (v.isValid())
        return v;
    const auto it = d->defaults.constFind(key);
    if (it != d->defaults.constEnd())
        return *it;
    return std::nullopt;
}

void IniSettingsStore::setValue(const QString& key, const QVariant& value) {
    d->settings.setValue(iniKey(key), value);
    d->changed();
}

void IniSettingsStore::remove(const QString& key) {
    d->settings.remove(iniKey(key));
    d->changed();
}

bool IniSettingsStore::contains(const QString& key) const {
    return d->settings.contains(iniKey(key));
}

void IniSettingsStore::sync() {
    if (d->dirty)
        d->flush();
    else
        d->settings.sync();
}

int IniSettingsStore::writeCount() const {
    return d->writes;
}

} // namespace qm
