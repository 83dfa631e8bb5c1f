#include "ScratchMount.h"

#include "TestSupport.h"

#include <QDir>
#include <QFile>

namespace qm::test {

ScratchMount::ScratchMount(const QString& options) {
    m_mounted = mount(options);
}

ScratchMount::~ScratchMount() {
    if (m_mounted)
        run(QStringLiteral("umount"), {m_dir.path()});
}

bool ScratchMount::mount(const QString& options) {
    return run(QStringLiteral("mount"),
               {QStringLiteral("-t"), QStringLiteral("tmpfs"), QStringLiteral("-o"), options,
                QStringLiteral("tmpfs"), m_dir.path()})
               .exitCode == 0;
}

bool ScratchMount::setReadOnly(bool readOnly) {
    return mount(readOnly ? QStringLiteral("remount,ro") : QStringLiteral("remount,rw"));
}

QString ScratchMount::fill() const {
    const QString folder = QDir(m_dir.path()).filePath(QStringLiteral("Shots"));
    QDir().mkpath(folder);
    QFile filler(QDir(m_dir.path()).filePath(QStringLiteral("filler")));
    if (filler.open(QIODevice::WriteOnly))
        while (filler.write(QByteArray(4096, 'x')) == 4096 && filler.flush()) {
        }
    return folder;
}

} // namespace qm::test
