#pragma once

#include "library/catalog/CaptureEntry.h"

#include <QAbstractListModel>
#include <QHash>
#include <vector>

namespace qm::library {

class LibraryModel;
class ThumbnailLoader;

// The grid's rows: the library's shown captures, newest first. A change of the list resets
// the rows in one step (no per-row work beyond a lookup table), so a filter change over ten
// thousand captures costs the grid next to nothing.
class CaptureGridModel : public QAbstractListModel {
    Q_OBJECT
public:
    enum Role { PathRole = Qt::UserRole + 1 };

    CaptureGridModel(LibraryModel& library, ThumbnailLoader& thumbnails, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;

    const CaptureEntry* entry(int row) const;
    // The row showing `path`, or -1.
    int rowOf(const QString& path) const;

private:
    void rebuild();

    LibraryModel& m_library;
    std::vector<CaptureEntry> m_entries;
    QHash<QString, int> m_rows;
};

} // namespace qm::library
