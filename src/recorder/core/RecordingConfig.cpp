#include "recorder/core/RecordingConfig.h"

namespace qm::recorder {

Result<QRect> recordableArea(const QRect& area) {
    const int width = area.width() & ~1;
    const int height = area.height() & ~1;
    if (width < 2 || height < 2)
        return failure(
            QStringLiteral("The area is too small to record: it needs at least 2 × 2 pixels."));
    return QRect(area.topLeft(), QSize(width, height));
}

} // namespace qm::recorder
