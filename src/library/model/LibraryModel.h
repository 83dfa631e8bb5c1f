#pragma once

#include "base/Result.h"
#include "library/catalog/CaptureEntry.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <memory>
#include <optional>
#include <vector>

namespace qm {
class Preferences;
}

namespace qm::library {

class OcrTextIndex;

// What the library window shows: the captures in the save folder, one kind at a time,
// narrowed by a search over file names and the text read from images, and the selected one.
// Lives on the GUI thread; the folder is listed on a worker and watched, so files other
// programs add or remove appear without a refresh.
class LibraryModel : public QObject {
    Q_OBJECT
public:
    // `index` may be null (no text search).
    LibraryModel(Preferences& preferences, OcrTextIndex* index, QObject* parent = nullptr);
    ~LibraryModel() override;

    // Every capture found, newest first.
    const std::vector<CaptureEntry>& entries() const { return m_entries; }
    // The entries shown: the chosen kind only; with a search, those whose name (without the
    // extension) contains it, or, for images when text search is on, whose recognised text
    // does; case and diacritics ignored, the search used as typed.
    const std::vector<CaptureEntry>& filtered() const { return m_filtered; }
    int count(MediaKind kind) const;

    MediaKind filter() const { return m_filter; }
    void setFilter(MediaKind kind);
    QString searchText() const { return m_searchText; }
    void setSearchText(const QString& text);
    // The selected capture's path. Kept while it is shown; otherwise the newest shown capture
    // is selected, or none when nothing is shown.
    std::optional<QString> selection() const { return m_selection; }
    void setSelection(const std::optional<QString>& path);
    const CaptureEntry* selectedEntry() const;

    // Lists the folder again, in the background; `reloaded` follows. Without keepSelection
    // the newest shown capture becomes selected. When text search is on, the images are
    // handed to the index, which reads only new or changed ones.
    void reload(bool keepSelection);
    // Moves the capture to the Trash and lists the folder again, whatever happened.
    Status trash(const CaptureEntry& entry);

Q_SIGNALS:
    void reloaded();
    void entriesChanged();
    void filteredChanged();
    void selectionChanged(const std::optional<QString>& path);
    void filterChanged(MediaKind kind);
    void searchTextChanged(const QString& text);

private:
    struct Private;
    struct Listing;
    void publish(Listing listing);
    // Works out `filtered` again and fixes the selection.
    void refresh();
    void fixSelection();
    QStringList imagePaths() const;

    std::unique_ptr<Private> d;
    std::vector<CaptureEntry> m_entries;
    std::vector<CaptureEntry> m_filtered;
    MediaKind m_filter = MediaKind::Images;
    QString m_searchText;
    std::optional<QString> m_selection;
};

} // namespace qm::library
