#pragma once

#include <QDateTime>
#include <QString>
#include <optional>
#include <vector>

namespace qm::library {

// What the library shows in one list: still images or movies.
enum class MediaKind { Images, Videos };
inline constexpr MediaKind allMediaKinds[] = {MediaKind::Images, MediaKind::Videos};
QString rawValue(MediaKind kind);

// The kind a file is by its extension (compared lower-cased): png, jpg, jpeg, tiff, heic, gif
// and webp are images; mov, mp4 and m4v are movies; anything else is not a capture.
std::optional<MediaKind> mediaKindOf(const QString& fileName);

// One capture in the save folder, identified by its path.
struct CaptureEntry {
    QString path; // absolute
    MediaKind kind = MediaKind::Images;
    // When the content last changed; invalid when the file system gives none, which sorts as
    // the distant past.
    QDateTime date;
    // Read from the image's header; 0 × 0 for movies and for images whose size can't be read.
    int pixelWidth = 0;
    int pixelHeight = 0;

    bool operator==(const CaptureEntry&) const = default;
};

// The captures directly in `folder`, newest first: hidden files, sub-folders and files of
// other kinds are left out, and a folder that can't be listed gives none. Image sizes come
// from the headers, so listing thousands of files reads no pixels.
std::vector<CaptureEntry> scanCaptures(const QString& folder);

} // namespace qm::library
