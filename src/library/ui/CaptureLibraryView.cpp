#include "library/ui/CaptureLibraryView.h"

#include "base/Hotkeys.h"
#include "base/Preferences.h"
#include "library/index/OcrTextIndex.h"
#include "library/model/LibraryModel.h"
#include "library/thumbnails/ThumbnailLoader.h"
#include "library/ui/CaptureCell.h"
#include "library/ui/CaptureGridModel.h"
#include "library/ui/LibraryPanes.h"
#include "platform/desktop/Reveal.h"
#include "ui/Icons.h"
#include "ui/ToastCenter.h"

#include <QApplication>
#include <QClipboard>
#include <QDesktopServices>
#include <QFileInfo>
#include <QFutureWatcher>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QImageReader>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMimeData>
#include <QPointer>
#include <QSplitter>
#include <QStackedWidget>
#include <QToolButton>
#include <QTreeWidget>
#include <QUrl>
#include <QVBoxLayout>
#include <QtConcurrent/QtConcurrentRun>

namespace qm::library {

namespace {

QString kindName(MediaKind kind) {
    return kind == MediaKind::Images ? QObject::tr("Images") : QObject::tr("Videos");
}

QString shortcutText(const Preferences& preferences, HotkeyAction action) {
    return preferences.hotkey(action).sequence().toString(QKeySequence::NativeText);
}

QImage readImage(const QString& path) {
    QImageReader reader(path);
    reader.setAutoTransform(true);
    return reader.read();
}

QToolButton* toolButton(const QString& icon, const QString& text, QWidget* parent) {
    auto* button = new QToolButton(parent);
    button->setIcon(themedIcon(icon));
    button->setText(text);
    button->setAutoRaise(true);
    return button;
}

} // namespace

CaptureLibraryView::CaptureLibraryView(Services services, QString thumbnailRoot, QWidget* parent)
    : QWidget(parent)
    , m_services(services)
    , m_thumbnails(std::make_unique<ThumbnailLoader>(ThumbnailCache(std::move(thumbnailRoot)),
                                                     ThumbnailCache::Size::Large))
    , m_gridModel(std::make_unique<CaptureGridModel>(services.model, *m_thumbnails)) {
    LibraryModel& model = services.model;

    // The sidebar: a heading, then one row per kind with its count.
    auto* side = new QWidget(this);
    auto* sideLayout = new QVBoxLayout(side);
    sideLayout->setContentsMargins(8, 12, 0, 8);
    auto* heading = new QLabel(tr("Captures"), side);
    QFont headingFont = heading->font();
    headingFont.setBold(true);
    heading->setFont(headingFont);
    m_sidebar = new QTreeWidget(side);
    m_sidebar->setColumnCount(2);
    m_sidebar->setHeaderHidden(true);
    m_sidebar->setRootIsDecorated(false);
    m_sidebar->setFrameShape(QFrame::NoFrame);
    m_sidebar->header()->setStretchLastSection(false);
    m_sidebar->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    m_sidebar->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    for (MediaKind kind : allMediaKinds) {
        auto* row = new QTreeWidgetItem(m_sidebar, {kindName(kind), QString()});
        row->setIcon(0, themedIcon(kind == MediaKind::Images ? QStringLiteral("image-x-generic")
                                                             : QStringLiteral("video-display")));
        row->setTextAlignment(1, Qt::AlignRight | Qt::AlignVCenter);
    }
    sideLayout->addWidget(heading);
    sideLayout->addWidget(m_sidebar, 1);
    side->setFixedWidth(180);

    // The middle: toolbar, status line, grid or the empty message.
    auto* middle = new QWidget(this);
    auto* middleLayout = new QVBoxLayout(middle);
    middleLayout->setContentsMargins(0, 0, 0, 0);
    middleLayout->setSpacing(0);
    middleLayout->addWidget(makeToolbar());
    m_status = new QLabel(middle);
    m_status->setContentsMargins(10, 2, 10, 4);
    m_status->setWordWrap(true);
    middleLayout->addWidget(m_status);
    m_gridStack = new QStackedWidget(middle);
    m_grid = new CaptureGrid(*m_gridModel, *m_thumbnails, m_gridStack);
    m_empty = static_cast<QLabel*>(makePaneMessage({}, m_gridStack));
    m_gridStack->addWidget(m_grid);
    m_gridStack->addWidget(m_empty);
    middleLayout->addWidget(m_gridStack, 1);

    m_detailHost = new QWidget(this);
    auto* detailLayout = new QVBoxLayout(m_detailHost);
    detailLayout->setContentsMargins(0, 0, 0, 0);

    auto* splitter = new QSplitter(this);
    splitter->addWidget(middle);
    splitter->addWidget(m_detailHost);
    splitter->setStretchFactor(0, 1);
    splitter->setStretchFactor(1, 1);
    splitter->setSizes({470, 510});
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(side);
    layout->addWidget(splitter, 1);

    connect(m_sidebar, &QTreeWidget::currentItemChanged, this, [this, &model] {
        const int row = m_sidebar->indexOfTopLevelItem(m_sidebar->currentItem());
        if (row >= 0)
            model.setFilter(allMediaKinds[row]);
    });
    connect(&model, &LibraryModel::filterChanged, this, [this](MediaKind kind) {
        m_sidebar->setCurrentItem(m_sidebar->topLevelItem(kind == MediaKind::Images ? 0 : 1));
        updateEmptyState(); // an empty list can stay empty and still need other words
    });
    m_sidebar->setCurrentItem(m_sidebar->topLevelItem(model.filter() == MediaKind::Images ? 0 : 1));
    connect(&model, &LibraryModel::entriesChanged, this, &CaptureLibraryView::updateCounts);
    connect(&model, &LibraryModel::filteredChanged, this, [this] {
        updateEmptyState();
        syncGridSelection();
        showDetail();
    });
    connect(&model, &LibraryModel::selectionChanged, this, [this] {
        syncGridSelection();
        showDetail();
    });
    connect(&model, &LibraryModel::searchTextChanged, this, [this](const QString& text) {
        if (m_search->text() != text)
            m_search->setText(text);
        updateEmptyState();
    });
    connect(&services.preferences, &Preferences::hotkeysChanged, this,
            &CaptureLibraryView::updateEmptyState);
    connect(&services.index, &OcrTextIndex::isIndexingChanged, this,
            &CaptureLibraryView::updateStatus);
    connect(&services.index, &OcrTextIndex::unavailableReasonChanged, this,
            &CaptureLibraryView::updateStatus);

    connect(m_grid->selectionModel(), &QItemSelectionModel::selectionChanged, this, [this, &model] {
        if (m_syncing)
            return;
        const QModelIndexList rows = m_grid->selectionModel()->selectedIndexes();
        if (rows.isEmpty())
            return; // the model keeps a capture selected while any is shown
        if (const CaptureEntry* entry = m_gridModel->entry(rows.first().row()))
            model.setSelection(entry->path);
    });
    connect(m_grid, &QWidget::customContextMenuRequested, this, [this](const QPoint& at) {
        const QModelIndex index = m_grid->indexAt(at);
        const CaptureEntry* entry = m_gridModel->entry(index.row());
        if (!entry)
            return;
        m_services.model.setSelection(entry->path);
        contextMenu(*entry)->popup(m_grid->viewport()->mapToGlobal(at));
    });

    updateCounts();
    updateEmptyState();
    updateStatus();
    syncGridSelection();
    showDetail();
}

CaptureLibraryView::~CaptureLibraryView() {
    // The panes and the grid refer to the loader and the grid model.
    delete m_pane;
    delete m_gridStack;
}

QWidget* CaptureLibraryView::makeToolbar() {
    auto* bar = new QWidget(this);
    auto* layout = new QHBoxLayout(bar);
    layout->setContentsMargins(8, 8, 8, 6);
    auto* folder = toolButton(QStringLiteral("folder"), {}, bar);
    folder->setObjectName(QStringLiteral("openFolder"));
    folder->setToolTip(tr("Open captures folder"));
    connect(folder, &QToolButton::clicked, this, [this] {
        QDesktopServices::openUrl(QUrl::fromLocalFile(m_services.preferences.outputDirectory()));
    });
    auto* refresh = toolButton(QStringLiteral("view-refresh"), tr("Refresh"), bar);
    refresh->setObjectName(QStringLiteral("refresh"));
    refresh->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    connect(refresh, &QToolButton::clicked, this,
            [this] { m_services.model.reload(/*keepSelection=*/true); });
    m_search = new QLineEdit(bar);
    m_search->setPlaceholderText(tr("Search names & text"));
    m_search->setAccessibleName(tr("Search"));
    m_search->setClearButtonEnabled(true);
    m_search->addAction(themedIcon(QStringLiteral("edit-find")), QLineEdit::LeadingPosition);
    m_search->setText(m_services.model.searchText());
    connect(m_search, &QLineEdit::textChanged, this,
            [this](const QString& text) { m_services.model.setSearchText(text); });
    m_ask = toolButton(QStringLiteral("tools-wizard"), tr("Ask Claude"), bar);
    m_ask->setObjectName(QStringLiteral("askClaude"));
    m_ask->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_ask->setVisible(false);
    connect(m_ask, &QToolButton::clicked, this, &CaptureLibraryView::askAI);
    layout->addWidget(folder);
    layout->addWidget(refresh);
    layout->addWidget(m_search, 1);
    layout->addWidget(m_ask);
    return bar;
}

void CaptureLibraryView::setAskAI(std::function<void(const QImage&)> onAskAI) {
    m_onAskAI = std::move(onAskAI);
    m_ask->setVisible(bool(m_onAskAI));
    showDetail();
}

void CaptureLibraryView::askAI() {
    const CaptureEntry* entry = m_services.model.selectedEntry();
    if (!m_onAskAI || !entry || entry->kind != MediaKind::Images)
        return;
    const QImage image = readImage(entry->path);
    if (image.isNull()) {
        m_services.toasts.present(tr("Could not load image"), QStringLiteral("dialog-warning"),
                                  ToastCenter::Style::Error);
        return;
    }
    m_onAskAI(image);
}

void CaptureLibraryView::updateCounts() {
    for (MediaKind kind : allMediaKinds) {
        QTreeWidgetItem* row = m_sidebar->topLevelItem(kind == MediaKind::Images ? 0 : 1);
        row->setText(1, QString::number(m_services.model.count(kind)));
    }
}

void CaptureLibraryView::updateEmptyState() {
    const LibraryModel& model = m_services.model;
    if (!model.filtered().empty()) {
        m_gridStack->setCurrentWidget(m_grid);
        return;
    }
    QString text;
    if (!model.searchText().isEmpty())
        text = tr("No captures match “%1”").arg(model.searchText());
    else if (model.filter() == MediaKind::Images)
        text = tr("No captures yet — press %1 to take one.")
                   .arg(shortcutText(m_services.preferences, HotkeyAction::Region));
    else
        text = tr("No recordings yet — press %1 to record one.")
                   .arg(shortcutText(m_services.preferences, HotkeyAction::Record));
    m_empty->setText(text);
    m_gridStack->setCurrentWidget(m_empty);
}

void CaptureLibraryView::updateStatus() {
    const OcrTextIndex& index = m_services.index;
    QString text;
    if (!index.unavailableReason().isEmpty())
        text = index.unavailableReason();
    else if (index.isIndexing())
        text = tr("Reading text in images…");
    m_status->setText(text);
    m_status->setVisible(!text.isEmpty());
}

void CaptureLibraryView::syncGridSelection() {
    const std::optional<QString> selected = m_services.model.selection();
    const int row = selected ? m_gridModel->rowOf(*selected) : -1;
    m_syncing = true;
    if (row < 0) {
        m_grid->clearSelection();
    } else {
        const QModelIndex index = m_gridModel->index(row);
        m_grid->selectionModel()->setCurrentIndex(index, QItemSelectionModel::ClearAndSelect);
        m_grid->scrollTo(index);
    }
    m_syncing = false;
}

void CaptureLibraryView::showDetail() {
    const CaptureEntry* entry = m_services.model.selectedEntry();
    const QString path = entry ? entry->path : QString();
    m_ask->setEnabled(entry && entry->kind == MediaKind::Images);
    if (m_pane && path == m_panePath)
        return;
    // The old pane goes at once, so a movie stops playing before the next one loads.
    delete m_pane;
    m_pane = nullptr;
    m_panePath = path;
    if (!entry) {
        m_pane = makePaneMessage(tr("Select a capture to view and mark it up."), m_detailHost);
    } else if (entry->kind == MediaKind::Videos) {
        auto* pane = new LibraryVideoPane(entry->path, movieSound, m_detailHost);
        pane->onTrim = [this](media::player::TrimSession& session, double start, double end) {
            if (onTrim)
                onTrim(session, start, end);
        };
        pane->onExportGif = [this](media::player::TrimSession& session, double start, double end) {
            if (onExportGif)
                onExportGif(session, start, end);
        };
        // The trimmed movie keeps its place by date; a GIF joins the images.
        pane->onSaved = [this] { m_services.model.reload(/*keepSelection=*/true); };
        m_pane = pane;
    } else {
        // A large screenshot takes a while to decode: it is read on a worker, so moving
        // through the grid never waits for it, and the editor opens once it is there.
        m_pane = new QWidget(m_detailHost);
        const QPointer<QWidget> placeholder(m_pane);
        auto* decoding = new QFutureWatcher<QImage>(this);
        connect(decoding, &QFutureWatcherBase::finished, this,
                [this, decoding, placeholder, path = entry->path] {
                    decoding->deleteLater();
                    if (!placeholder || m_pane != placeholder)
                        return; // another capture was chosen meanwhile
                    showImage(path, decoding->result());
                });
        decoding->setFuture(QtConcurrent::run([path = entry->path] { return readImage(path); }));
    }
    m_detailHost->layout()->addWidget(m_pane);
    m_pane->show();
}

void CaptureLibraryView::showImage(const QString& path, const QImage& image) {
    delete m_pane;
    if (image.isNull()) {
        m_pane = makePaneMessage(tr("Could not load image"), m_detailHost);
    } else {
        auto* pane = new LibraryEditorPane(path, image, m_services.editorSettings,
                                           m_services.toasts, m_detailHost);
        pane->onSaved = [this](const QString& written) {
            if (onSaved)
                onSaved(written);
            m_services.model.reload(/*keepSelection=*/true);
        };
        m_pane = pane;
    }
    m_detailHost->layout()->addWidget(m_pane);
    m_pane->show();
}

QMenu* CaptureLibraryView::contextMenu(const CaptureEntry& entry) {
    auto* menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    const QString path = entry.path;
    menu->addAction(tr("Open"), this,
                    [path] { QDesktopServices::openUrl(QUrl::fromLocalFile(path)); });
    menu->addAction(themedIcon(QStringLiteral("folder")), tr("Show in Folder"), this,
                    [path] { revealInFolder(path); });
    menu->addAction(themedIcon(QStringLiteral("edit-copy")), tr("Copy File"), this, [path] {
        auto* mime = new QMimeData;
        mime->setUrls({QUrl::fromLocalFile(path)});
        // File managers paste a copy of the file from this.
        mime->setData(QStringLiteral("x-special/gnome-copied-files"),
                      "copy\n" + QUrl::fromLocalFile(path).toEncoded());
        QGuiApplication::clipboard()->setMimeData(mime);
    });
    QAction* copyImage = menu->addAction(tr("Copy Image"), this, [this, path] {
        const QImage image = readImage(path);
        if (image.isNull()) {
            m_services.toasts.present(tr("Could not load image"), QStringLiteral("dialog-warning"),
                                      ToastCenter::Style::Error);
            return;
        }
        QGuiApplication::clipboard()->setImage(image);
    });
    copyImage->setEnabled(entry.kind == MediaKind::Images);
    const std::optional<OcrRecord> record = m_services.index.record(path);
    const QString text = record ? record->text : QString();
    QAction* copyText = menu->addAction(tr("Copy Text"), this,
                                        [text] { QGuiApplication::clipboard()->setText(text); });
    copyText->setEnabled(!text.trimmed().isEmpty());
    menu->addSeparator();
    const CaptureEntry copy = entry;
    menu->addAction(themedIcon(QStringLiteral("user-trash")), tr("Move to Trash"), this,
                    [this, copy] { moveToTrash(copy); });
    return menu;
}

void CaptureLibraryView::moveToTrash(const CaptureEntry& entry) {
    // The capture after it takes its place (the one before, at the end of the list).
    std::optional<QString> next;
    const int row = m_gridModel->rowOf(entry.path);
    if (const CaptureEntry* after = m_gridModel->entry(row + 1); row >= 0 && after)
        next = after->path;
    else if (const CaptureEntry* before = m_gridModel->entry(row - 1); row > 0 && before)
        next = before->path;
    if (const Status trashed = m_services.model.trash(entry); !trashed) {
        m_services.toasts.present(tr("Not moved to the Trash: %1").arg(trashed.error().reason),
                                  QStringLiteral("dialog-warning"), ToastCenter::Style::Error);
        return;
    }
    if (next)
        m_services.model.setSelection(next);
}

} // namespace qm::library
