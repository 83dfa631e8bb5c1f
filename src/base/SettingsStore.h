#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>
#include <QVariantMap>
#include <memory>
#include <optional>

namespace qm {

// The per-user key-value store behind every setting. Keys are a stored format and spelled
// exactly as users' existing files have them. Registered defaults answer reads of unset keys
// but are never written to the file.
class SettingsStore {
public:
    virtual ~SettingsStore() = default;

    virtual void registerDefaults(const QVariantMap& defaults) = 0;
    // The stored value, else the registered default, else nothing.
    virtual std::optional<QVariant> value(const QString& key) const = 0;
    virtual void setValue(const QString& key, const QVariant& value) = 0;
    virtual void remove(const QString& key) = 0;
    virtual bool contains(const QString& key) const = 0; // stored, not registered
    virtual void sync() = 0;

    // Typed reads fall back to the store's zero value when the key is absent or of another type.
    bool boolValue(const QString& key) const;
    qint64 integerValue(const QString& key) const;
    double doubleValue(const QString& key) const;
    std::optional<QString> stringValue(const QString& key) const;
    std::optional<QByteArray> dataValue(const QString& key) const;
};

// QSettings in INI format: $XDG_CONFIG_HOME/quillworks/Quillmark.conf unless a path is given.
// Reads see every write at once; the file is written at most once per turn of the event loop
// (a burst of writes, such as loading the preferences, makes one write), and at the latest
// when the store goes away or the application quits.
class IniSettingsStore final : public SettingsStore {
public:
    IniSettingsStore();
    explicit IniSettingsStore(const QString& path);
    ~IniSettingsStore() override;

    static QString defaultPath();
    QString path() const;

    void registerDefaults(const QVariantMap& defaults) override;
    std::optional<QVariant> value(const QString& key) const override;
    void setValue(const QString& key, const QVariant& value) override;
    void remove(const QString& key) override;
    bool contains(const QString& key) const override;
    // Writes pending changes now and rereads values another program changed.
    void sync() override;
    // Times pending changes were flushed to the file: at most one per turn of the event loop.
    int writeCount() const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace qm
