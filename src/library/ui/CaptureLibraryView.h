#pragma once

#include "library/catalog/CaptureEntry.h"

#include <QImage>
#include <QWidget>
#include <functional>
#include <memory>

class QLabel;
class QLineEdit;
class QMenu;
class QStackedWidget;
class QToolButton;
class QTreeWidget;

namespace qm {
class Preferences;
class SettingsStore;
class ToastCenter;
namespace media::player {
class TrimSession;
}
} // namespace qm

namespace qm::library {

class CaptureGrid;
class CaptureGridModel;
class LibraryModel;
class OcrTextIndex;
class ThumbnailLoader;

// The library window's content: the kinds with their counts on the left, the toolbar with
// search above a grid of thumbnails, and the selected capture on the right.
class CaptureLibraryView : public QWidget {
    Q_OBJECT
public:
    struct Services {
        LibraryModel& model;
        Preferences& preferences;
        OcrTextIndex& index;
        SettingsStore& editorSettings;
        ToastCenter& toasts;
    };
    // `thumbnailRoot` empty: the user's thumbnail cache.
    CaptureLibraryView(Services services, QString thumbnailRoot = {}, QWidget* parent = nullptr);
    ~CaptureLibraryView() override;

    // "Ask Claude" shows while one is set.
    void setAskAI(std::function<void(const QImage& image)> onAskAI);
    std::function<void(media::player::TrimSession& session, double start, double end)> onTrim;
    std::function<void(media::player::TrimSession& session, double start, double end)> onExportGif;
    std::function<void(const QString& path)> onSaved;
    // Whether movies in the detail pane play their sound.
    bool movieSound = true;

    // The menu a right click on the capture opens; deletes itself when closed.
    QMenu* contextMenu(const CaptureEntry& entry);
    void moveToTrash(const CaptureEntry& entry);

    QTreeWidget* sidebar() const { return m_sidebar; }
    CaptureGrid* grid() const { return m_grid; }
    CaptureGridModel* gridModel() const { return m_gridModel.get(); }
    ThumbnailLoader& thumbnails() const { return *m_thumbnails; }
    QLineEdit* searchField() const { return m_search; }
    QLabel* statusLine() const { return m_status; }
    QLabel* emptyMessage() const { return m_empty; }
    QToolButton* askButton() const { return m_ask; }
    // What the detail pane shows now.
    QWidget* detail() const { return m_pane; }

private:
    QWidget* makeToolbar();
    void updateCounts();
    void updateEmptyState();
    void updateStatus();
    void syncGridSelection();
    void showDetail();
    // The decoded image in the editor, or why it could not be read.
    void showImage(const QString& path, const QImage& image);
    void askAI();

    Services m_services;
    std::unique_ptr<ThumbnailLoader> m_thumbnails;
    std::unique_ptr<CaptureGridModel> m_gridModel;
    std::function<void(const QImage&)> m_onAskAI;
    QTreeWidget* m_sidebar = nullptr;
    QLineEdit* m_search = nullptr;
    QLabel* m_status = nullptr;
    QToolButton* m_ask = nullptr;
    QStackedWidget* m_gridStack = nullptr;
    CaptureGrid* m_grid = nullptr;
    QLabel* m_empty = nullptr;
    QWidget* m_detailHost = nullptr;
    QWidget* m_pane = nullptr; // the detail pane, or a blank one while its image decodes
    QString m_panePath;
    bool m_syncing = false;
};

} // namespace qm::library
