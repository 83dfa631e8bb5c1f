#pragma once

#include "base/Result.h"

#include <QByteArray>
#include <QImage>
#include <QPointer>
#include <QScreen>
#include <QString>
#include <QTimer>
#include <QUuid>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace qm {

class FloatingShotView;

// One capture card.
struct FloatingShotItem {
    QUuid id;
    // What the card shows: at most 480 × 320 pixels, sharp on 2× screens.
    QImage displayImage;
    QImage fullImage;
    // The PNG of fullImage once it is encoded: the clipboard and the file get these bytes.
    QByteArray png;
    QPointer<FloatingShotView> panel;
    std::optional<QString> savedURL;
    // Pinned cards stay on this screen; the others follow the pointer.
    QPointer<QScreen> pinnedScreen;
    // The auto-dismiss countdown; inactive while the pointer is over the card.
    QTimer dismissTask;

    // Bumped whenever the image is replaced; the file holds savedRevision (-1: no file yet).
    // A write that finishes behind the image is followed by one of the newer image.
    int imageRevision = 0;
    int savedRevision = -1;
    // A write of this card's file runs; the next waits for it.
    bool saving = false;
    // Why the last write failed: the image the card shows is not on disk.
    std::optional<QString> saveError;
    // The file was saved, then went away from disk (moved or deleted by someone else).
    bool fileMissing = false;
    // savedURL is the card's own annotated copy, written beside the capture; edits after the
    // first go over it, the capture itself is never written over.
    bool annotated = false;
    // Deleted by the user: a write still running ends in the Trash.
    bool trashed = false;
    // Told once how the first write of the capture ended: its path, or why it failed.
    std::function<void(const Result<QString>&)> onFirstWrite;
    // Actions that need the file, waiting for a running write.
    std::vector<std::function<void(std::optional<QString>)>> waitingForFile;
};

using FloatingShotItemPtr = std::shared_ptr<FloatingShotItem>;

// The largest picture a card shows, in pixels (sharp on 2× screens).
inline constexpr QSize cardThumbnailLimit{480, 320};
// The capture scaled down to fit the card; smaller ones are never scaled up.
inline QImage cardThumbnail(const QImage& image) {
    if (image.width() <= cardThumbnailLimit.width() &&
        image.height() <= cardThumbnailLimit.height())
        return image;
    return image.scaled(cardThumbnailLimit, Qt::KeepAspectRatio, Qt::SmoothTransformation);
}

} // namespace qm
