#include "library/model/LibraryModel.h"

#include "base/Preferences.h"
#include "library/catalog/Retention.h"
#include "library/catalog/TextSearch.h"
#include "library/index/OcrTextIndex.h"

#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QFutureWatcher>
#include <QTimer>
#include <QtConcurrent>
#include <algorithm>

namespace qm::library {

namespace {

// Another program writing a batch of files shows as a burst of folder changes; one listing
// after the burst is enough.
constexpr int watchSettleMs = 250;

} // namespace

// What a listing of the folder gives: the entries and each one's name, folded for searching.
struct LibraryModel::Listing {
    std::vector<CaptureEntry> entries;
    std::vector<QString> foldedNames;

    static Listing of(const QString& folder);
};

LibraryModel::Listing LibraryModel::Listing::of(const QString& folder) {
    Listing listing;
    listing.entries = scanCaptures(folder);
    listing.foldedNames.reserve(listing.entries.size());
    for (const CaptureEntry& entry : listing.entries)
        listing.foldedNames.push_back(foldForSearch(QFileInfo(entry.path).completeBaseName()));
    return listing;
}

struct LibraryModel::Private {
    Private(Preferences& p, OcrTextIndex* i)
        : preferences(p)
        , index(i) {}

    Preferences& preferences;
    OcrTextIndex* index = nullptr;
    std::vector<QString> foldedNames; // parallel to m_entries
    SearchableTexts texts;            // the recognised text of images, ready for searching
    QFileSystemWatcher watcher;
    QTimer settle;
    QString watched;
    quint64 latestReload = 0;
    bool clearSelectionOnPublish = false;
};

LibraryModel::LibraryModel(Preferences& preferences, OcrTextIndex* index, QObject* parent)
    : QObject(parent)
    , d(std::make_unique<Private>(preferences, index)) {
    d->settle.setSingleShot(true);
    d->settle.setInterval(watchSettleMs);
    connect(&d->settle, &QTimer::timeout, this, [this] { reload(true); });
    connect(&d->watcher, &QFileSystemWatcher::directoryChanged, this,
            [this] { d->settle.start(); });

    auto watchFolder = [this] {
        if (!d->watched.isEmpty())
            d->watcher.removePath(d->watched);
        d->watched = d->preferences.outputDirectory();
        if (!d->watched.isEmpty() && QFileInfo(d->watched).isDir())
            d->watcher.addPath(d->watched);
    };
    watchFolder();
    connect(&preferences, &Preferences::outputDirectoryChanged, this, [this, watchFolder] {
        watchFolder();
        reload(false);
    });
    connect(&preferences, &Preferences::searchImageTextChanged, this, [this](bool on) {
        if (on && d->index)
            d->index->index(imagePaths());
        if (!m_searchText.isEmpty())
            refresh();
    });
    if (index)
        connect(index, &OcrTextIndex::revisionChanged, this, [this] {
            if (!m_searchText.isEmpty())
                refresh();
        });
}

LibraryModel::~LibraryModel() = default;

int LibraryModel::count(MediaKind kind) const {
    return int(std::count_if(m_entries.begin(), m_entries.end(),
                             [kind](const CaptureEntry& e) { return e.kind == kind; }));
}

void LibraryModel::setFilter(MediaKind kind) {
    if (kind == m_filter)
        return;
    m_filter = kind;
    Q_EMIT filterChanged(kind);
    refresh();
}

void LibraryModel::setSearchText(const QString& text) {
    if (text == m_searchText)
        return;
    m_searchText = text;
    Q_EMIT searchTextChanged(text);
    refresh();
}

void LibraryModel::setSelection(const std::optional<QString>& path) {
    if (path != m_selection) {
        m_selection = path;
        Q_EMIT selectionChanged(m_selection);
    }
    fixSelection();
}

const CaptureEntry* LibraryModel::selectedEntry() const {
    if (!m_selection)
        return nullptr;
    const auto it = std::find_if(m_entries.begin(), m_entries.end(),
                                 [&](const CaptureEntry& e) { return e.path == *m_selection; });
    return it == m_entries.end() ? nullptr : &*it;
}

void LibraryModel::reload(bool keepSelection) {
    // A newer listing supersedes one still running; a request to start afresh is not lost
    // when a keeping one follows it before either finishes.
    d->clearSelectionOnPublish = d->clearSelectionOnPublish || !keepSelection;
    const quint64 ticket = ++d->latestReload;
    auto* watcher = new QFutureWatcher<Listing>(this);
    connect(watcher, &QFutureWatcher<Listing>::finished, this, [this, watcher, ticket] {
        watcher->deleteLater();
        if (ticket != d->latestReload)
            return;
        publish(watcher->result());
    });
    watcher->setFuture(QtConcurrent::run(&Listing::of, d->preferences.outputDirectory()));
}

Status LibraryModel::trash(const CaptureEntry& entry) {
    const Status status = moveToTrash(entry.path);
    reload(true);
    return status;
}

void LibraryModel::publish(Listing listing) {
    const bool changed = listing.entries != m_entries;
    m_entries = std::move(listing.entries);
    d->foldedNames = std::move(listing.foldedNames);
    if (changed)
        Q_EMIT entriesChanged();
    if (d->clearSelectionOnPublish) {
        d->clearSelectionOnPublish = false;
        if (m_selection) {
            m_selection.reset();
            Q_EMIT selectionChanged(m_selection);
        }
    }
    refresh();
    Q_EMIT reloaded();
    if (d->index && d->preferences.searchImageText())
        d->index->index(imagePaths());
}

QStringList LibraryModel::imagePaths() const {
    QStringList paths;
    for (const CaptureEntry& entry : m_entries)
        if (entry.kind == MediaKind::Images)
            paths.append(entry.path);
    return paths;
}

void LibraryModel::refresh() {
    std::vector<CaptureEntry> shown;
    const SearchNeedle needle(m_searchText);
    const bool byText = d->index && d->preferences.searchImageText() && !needle.isEmpty() &&
                        m_filter == MediaKind::Images;
    std::optional<SearchableTexts::Probe> probe;
    if (byText)
        probe.emplace(needle);
    for (std::size_t i = 0; i < m_entries.size(); ++i) {
        const CaptureEntry& entry = m_entries[i];
        if (entry.kind != m_filter)
            continue;
        if (needle.isEmpty() || needle.foundIn(d->foldedNames[i])) {
            shown.push_back(entry);
            continue;
        }
        // Videos are found by name only.
        if (!byText || entry.kind != MediaKind::Images)
            continue;
        const auto record = d->index->record(entry.path);
        if (!record) {
            d->texts.remove(entry.path);
            continue;
        }
        d->texts.put(entry.path, record->text);
        if (d->texts.matches(entry.path, *probe))
            shown.push_back(entry);
    }
    if (shown != m_filtered) {
        m_filtered = std::move(shown);
        Q_EMIT filteredChanged();
    }
    fixSelection();
}

void LibraryModel::fixSelection() {
    if (m_selection && std::any_of(m_filtered.begin(), m_filtered.end(),
                                   [&](const auto& e) { return e.path == *m_selection; }))
        return;
    std::optional<QString> next;
    if (!m_filtered.empty())
        next = m_filtered.front().path;
    if (next != m_selection) {
        m_selection = std::move(next);
        Q_EMIT selectionChanged(m_selection);
    }
}

} // namespace qm::library
