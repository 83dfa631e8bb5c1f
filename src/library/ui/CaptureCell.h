#pragma once

#include <QListView>
#include <QSet>
#include <QStyledItemDelegate>
#include <QTimer>

namespace qm::library {

class CaptureGridModel;
class ThumbnailLoader;

// "1:05": a movie's length in minutes and seconds.
QString formatDuration(double seconds);

// One capture in the grid: its thumbnail (a placeholder until it is made, or for good when it
// can't be), the file name, a movie's length, and the selection ring. Every cell has the same
// size, so the grid lays out ten thousand of them without asking each.
class CaptureCell : public QStyledItemDelegate {
    Q_OBJECT
public:
    static constexpr QSize cellSize{196, 164};
    static constexpr QSize pictureSize{180, 124};

    CaptureCell(const CaptureGridModel& model, ThumbnailLoader& thumbnails,
                QObject* parent = nullptr);

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

private:
    const CaptureGridModel& m_model;
    ThumbnailLoader& m_thumbnails;
};

// The grid: cells in rows that wrap with the width. Asks for thumbnails of the cells on screen
// only, and drops the requests of those scrolled away.
class CaptureGrid : public QListView {
    Q_OBJECT
public:
    CaptureGrid(CaptureGridModel& model, ThumbnailLoader& thumbnails, QWidget* parent = nullptr);

    // The rows on screen now, first and last (-1, -1 when none).
    std::pair<int, int> visibleRows() const;

protected:
    void scrollContentsBy(int dx, int dy) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void scheduleRequests();
    void requestVisible();

    CaptureGridModel& m_model;
    ThumbnailLoader& m_thumbnails;
    QTimer m_requestTimer;
};

} // namespace qm::library
