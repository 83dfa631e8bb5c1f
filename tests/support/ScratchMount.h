#pragma once

#include <QString>
#include <QTemporaryDir>

namespace qm::test {

// A small tmpfs of its own in a temporary folder, for disks that are full or read-only. Needs
// root (ok() says whether the mount was allowed); unmounted when it goes.
class ScratchMount {
public:
    explicit ScratchMount(const QString& options = QStringLiteral("size=64k"));
    ~ScratchMount();
    ScratchMount(const ScratchMount&) = delete;
    ScratchMount& operator=(const ScratchMount&) = delete;

    bool ok() const { return m_mounted; }
    QString path() const { return m_dir.path(); }
    QString filePath(const QString& name) const { return m_dir.filePath(name); }
    // Remounts it read-only or writable again.
    bool setReadOnly(bool readOnly);
    // Takes every free byte, leaving an empty folder "Shots" to save into; returns its path.
    QString fill() const;

private:
    bool mount(const QString& options);

    QTemporaryDir m_dir;
    bool m_mounted = false;
};

} // namespace qm::test
