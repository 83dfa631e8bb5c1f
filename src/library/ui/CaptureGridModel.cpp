#include "library/ui/CaptureGridModel.h"

#include "library/model/LibraryModel.h"
#include "library/thumbnails/ThumbnailLoader.h"

#include <QFileInfo>

namespace qm::library {

CaptureGridModel::CaptureGridModel(LibraryModel& library, ThumbnailLoader& thumbnails,
                                   QObject* parent)
    : QAbstractListModel(parent)
    , m_library(library) {
    rebuild();
    connect(&library, &LibraryModel::filteredChanged, this, [this] {
        beginResetModel();
        rebuild();
        endResetModel();
    });
    connect(&thumbnails, &ThumbnailLoader::ready, this, [this](const QString& path) {
        if (const int row = rowOf(path); row >= 0)
            Q_EMIT dataChanged(index(row), index(row), {Qt::DecorationRole});
    });
}

void CaptureGridModel::rebuild() {
    // A copy: the library's list changes before it says so, and the rows must not.
    m_entries = m_library.filtered();
    const auto& shown = m_entries;
    m_rows.clear();
    m_rows.reserve(qsizetype(shown.size()));
    for (int row = 0; row < int(shown.size()); ++row)
        m_rows.insert(shown[size_t(row)].path, row);
}

int CaptureGridModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(m_entries.size());
}

const CaptureEntry* CaptureGridModel::entry(int row) const {
    const auto& shown = m_entries;
    return row >= 0 && row < int(shown.size()) ? &shown[size_t(row)] : nullptr;
}

int CaptureGridModel::rowOf(const QString& path) const {
    return m_rows.value(path, -1);
}

QVariant CaptureGridModel::data(const QModelIndex& index, int role) const {
    const CaptureEntry* captured = entry(index.row());
    if (!captured)
        return {};
    switch (role) {
    case Qt::DisplayRole:
    case Qt::ToolTipRole:
        return QFileInfo(captured->path).fileName();
    case PathRole:
        return captured->path;
    default:
        return {};
    }
}

} // namespace qm::library
