#include "library/ui/CaptureCell.h"

#include "library/thumbnails/ThumbnailLoader.h"
#include "library/ui/CaptureGridModel.h"
#include "ui/Icons.h"

#include <QFileInfo>
#include <QPainter>
#include <QPainterPath>
#include <QScrollBar>
#include <cmath>

namespace qm::library {

QString formatDuration(double seconds) {
    const int whole = std::max(0, int(std::lround(seconds)));
    return QString::asprintf("%d:%02d", whole / 60, whole % 60);
}

CaptureCell::CaptureCell(const CaptureGridModel& model, ThumbnailLoader& thumbnails,
                         QObject* parent)
    : QStyledItemDelegate(parent)
    , m_model(model)
    , m_thumbnails(thumbnails) {}

QSize CaptureCell::sizeHint(const QStyleOptionViewItem&, const QModelIndex&) const {
    return cellSize;
}

void CaptureCell::paint(QPainter* painter, const QStyleOptionViewItem& option,
                        const QModelIndex& index) const {
    const CaptureEntry* entry = m_model.entry(index.row());
    if (!entry)
        return;
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    const QRect cell = option.rect.adjusted(4, 4, -4, -4);
    const QPalette& palette = option.palette;
    const bool selected = option.state & QStyle::State_Selected;

    const QRect picture(cell.left() + (cell.width() - pictureSize.width()) / 2, cell.top() + 4,
                        pictureSize.width(), pictureSize.height());
    QPainterPath frame;
    frame.addRoundedRect(QRectF(picture), 6, 6);
    painter->fillPath(frame, palette.color(QPalette::AlternateBase));

    const ThumbnailLoader::Thumb* thumb = m_thumbnails.find(entry->path, entry->date);
    if (thumb && !thumb->image.isNull()) {
        const QSize fitted = thumb->image.size().scaled(picture.size(), Qt::KeepAspectRatio);
        const QRect target(picture.center() - QPoint(fitted.width() / 2, fitted.height() / 2),
                           fitted);
        painter->save();
        painter->setClipPath(frame);
        painter->setRenderHint(QPainter::SmoothPixmapTransform);
        painter->drawImage(target, thumb->image);
        painter->restore();
    } else {
        // The placeholder: the kind's icon, faded.
        if (!m_thumbnails.hasFailed(entry->path, entry->date))
            m_thumbnails.request(entry->path, entry->date);
        const QString icon = entry->kind == MediaKind::Videos ? QStringLiteral("video-display")
                                                              : QStringLiteral("image-x-generic");
        QColor tint = palette.color(QPalette::Text);
        tint.setAlphaF(0.35);
        paintIcon(*painter, icon, QRectF(picture.center() - QPointF(16, 16), QSizeF(32, 32)), tint);
    }

    if (thumb && thumb->duration) {
        const QString text = formatDuration(*thumb->duration);
        QFont font = option.font;
        font.setPointSizeF(font.pointSizeF() * 0.85);
        font.setBold(true);
        painter->setFont(font);
        const QRect badgeText = QFontMetrics(font).boundingRect(text).adjusted(-5, -2, 5, 2);
        const QRect badge(picture.right() - badgeText.width() - 6,
                          picture.bottom() - badgeText.height() - 6, badgeText.width(),
                          badgeText.height());
        QPainterPath pill;
        pill.addRoundedRect(QRectF(badge), 4, 4);
        painter->fillPath(pill, QColor(0, 0, 0, 170));
        painter->setPen(Qt::white);
        painter->drawText(badge, Qt::AlignCenter, text);
        painter->setFont(option.font);
    }

    if (selected) {
        QPen ring(palette.color(QPalette::Highlight), 3);
        painter->setPen(ring);
        painter->setBrush(Qt::NoBrush);
        painter->drawRoundedRect(QRectF(picture).adjusted(-1.5, -1.5, 1.5, 1.5), 7, 7);
    }

    const QRect label(cell.left(), picture.bottom() + 6, cell.width(),
                      cell.bottom() - picture.bottom() - 6);
    painter->setPen(palette.color(selected ? QPalette::Highlight : QPalette::Text));
    const QString name = QFileInfo(entry->path).completeBaseName();
    painter->drawText(label, Qt::AlignHCenter | Qt::AlignTop,
                      option.fontMetrics.elidedText(name, Qt::ElideMiddle, label.width()));
    painter->restore();
}

CaptureGrid::CaptureGrid(CaptureGridModel& model, ThumbnailLoader& thumbnails, QWidget* parent)
    : QListView(parent)
    , m_model(model)
    , m_thumbnails(thumbnails) {
    setViewMode(QListView::IconMode);
    setMovement(QListView::Static);
    setResizeMode(QListView::Adjust);
    setFlow(QListView::LeftToRight);
    setWrapping(true);
    setUniformItemSizes(true);
    setLayoutMode(QListView::SinglePass);
    setGridSize(CaptureCell::cellSize);
    setSpacing(0);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setContextMenuPolicy(Qt::CustomContextMenu);
    setFrameShape(QFrame::NoFrame);
    setItemDelegate(new CaptureCell(model, thumbnails, this));
    setModel(&model);
    m_requestTimer.setSingleShot(true);
    m_requestTimer.setInterval(0);
    connect(&m_requestTimer, &QTimer::timeout, this, &CaptureGrid::requestVisible);
    connect(&model, &QAbstractItemModel::modelReset, this, &CaptureGrid::scheduleRequests);
}

void CaptureGrid::scrollContentsBy(int dx, int dy) {
    QListView::scrollContentsBy(dx, dy);
    scheduleRequests();
}

void CaptureGrid::resizeEvent(QResizeEvent* event) {
    QListView::resizeEvent(event);
    scheduleRequests();
}

void CaptureGrid::scheduleRequests() {
    m_requestTimer.start();
}

std::pair<int, int> CaptureGrid::visibleRows() const {
    const int rows = m_model.rowCount();
    if (rows == 0)
        return {-1, -1};
    const QRect area = viewport()->rect();
    // Rows are laid out in order, top to bottom: search for the first and last on screen.
    auto firstBelow = [&](auto&& isPast) {
        int lo = 0, hi = rows;
        while (lo < hi) {
            const int mid = (lo + hi) / 2;
            if (isPast(visualRect(m_model.index(mid))))
                hi = mid;
            else
                lo = mid + 1;
        }
        return lo;
    };
    const int first = firstBelow([&](const QRect& r) { return r.bottom() >= area.top(); });
    const int end = firstBelow([&](const QRect& r) { return r.top() > area.bottom(); });
    if (first >= end)
        return {-1, -1};
    return {first, end - 1};
}

void CaptureGrid::requestVisible() {
    const auto [first, last] = visibleRows();
    QSet<QString> shown;
    for (int row = first; row >= 0 && row <= last; ++row) {
        const CaptureEntry* entry = m_model.entry(row);
        shown.insert(entry->path);
        m_thumbnails.request(entry->path, entry->date);
    }
    m_thumbnails.keepOnly(shown);
}

} // namespace qm::library
