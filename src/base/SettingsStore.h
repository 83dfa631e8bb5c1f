#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>
#include <QVariantMap>
#include <functional>
#include <memory>
#include <optional>

namespace qm {

// The per-user key-value store behind every setting. Keys are a stored format and spelled
// exactly as users' existing files have them. Registered defaults answer reads of unset keys
// but are never written to the file.
class SettingsStore {
public:
    // One sentence the user should read ("Your settings could not be saved: the disk is full.").
    using ProblemHandler = std::function<void(const QString& problem)>;

    virtual ~SettingsStore() = default;

    virtual void registerDefaults(const QVariantMap& defaults) = 0;
    // The stored value, else the registered default, else nothing.
    virtual std::optional<QVariant> value(const QString& key) const = 0;
    virtual void setValue(const QString& key, const QVariant& value) = 0;
    virtual void remove(const QString& key) = 0;
    virtual bool contains(const QString& key) const = 0; // stored, not registered
    virtual void sync() = 0;

    // Told about each thing that went wrong with the settings file, once: a damaged file that
    // was set aside, a write that failed. A problem found before a handler is set (while the
    // file was read) is passed to the handler as soon as it is set. An empty handler stops it.
    virtual void setProblemHandler(ProblemHandler handler) = 0;

    // Typed reads fall back to the store's zero value when the key is absent or its value does
    // not read as that type.
    bool boolValue(const QString& key) const;
    qint64 integerValue(const QString& key) const;
    double doubleValue(const QString& key) const;
    std::optional<QString> stringValue(const QString& key) const;
    std::optional<QByteArray> dataValue(const QString& key) const;

    // How values read from a hand-edited file are understood: "true", "Yes", " 1 ", "off" are
    // booleans; "30" and "30.0" integers; only finite numbers are numbers. Nothing otherwise.
    static std::optional<bool> toBool(const QVariant& value);
    static std::optional<qint64> toInteger(const QVariant& value);
    static std::optional<double> toDouble(const QVariant& value);
};

// The settings file, in INI format: $XDG_CONFIG_HOME/quillworks/Quillmark.conf unless a path
// is given. Reads see every write at once. The file is replaced in one step (never half
// written) on a thread of its own, at most once per turn of the event loop (a burst of writes,
// such as loading the preferences, makes one write); when the store goes away or the
// application quits, pending changes are written before it returns.
//
// A file that cannot be read or is not a settings file is moved aside to
// "Quillmark.conf.bad-<date>-<time>" before anything is written, and the defaults apply. If it
// cannot be moved, it is left alone and nothing is written over it.
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
    // Writes pending changes now and waits until they are on disk; with none pending, rereads
    // values another program changed.
    void sync() override;
    void setProblemHandler(ProblemHandler handler) override;
    // Times the file was replaced (writes that finished): at most one per turn of the event
    // loop.
    int writeCount() const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace qm
