#pragma once

#include "base/Result.h"

#include <QRect>
#include <QString>

namespace qm::recorder {

// What to record. The area is in device pixels of the desktop (X root coordinates).
struct RecordingConfig {
    QRect area;
    bool includeSystemAudio = true;
    bool includeMicrophone = false;
};

inline constexpr int kRecordingFps = 30;

// The part of `area` the movie shows: the video encoder needs even sizes, so an odd width or
// height loses its last pixel (1001 × 601 records as 1000 × 600). Under 2 × 2 there is nothing
// a movie can hold, which is an error a person can read.
Result<QRect> recordableArea(const QRect& area);

} // namespace qm::recorder
