#pragma once

// Turns a range of a movie into an endlessly looping animated GIF.

#include "base/Result.h"
#include "media/gif/GifWriter.h"

#include <QSize>
#include <QString>
#include <atomic>
#include <functional>
#include <optional>
#include <variant>
#include <vector>

namespace qm::media {

class GIFExporter {
public:
    struct Settings {
        double fps = 12;
        double maxDimension = 960; // the longest side a frame may have, in pixels
    };

    // Seconds into the movie; no duration means "to the end of the movie".
    struct Range {
        double start = 0;
        std::optional<double> duration;
    };

    // Where the GIF goes: a folder, where "<movie name>.gif", "<movie name> 2.gif", … picks the
    // first free name, or an exact path. An existing file is never replaced.
    struct IntoFolder {
        QString folder;
    };
    struct ToFile {
        QString path;
    };
    using Output = std::variant<IntoFolder, ToFile>;

    struct Request {
        QString movie;
        Range range;
        Output output;
        Settings settings;
        // A fraction 0…1, called on the exporting thread.
        std::function<void(double)> progress;
        // Set from any thread to stop; the partial file is removed.
        const std::atomic<bool>* cancel = nullptr;
        // How hard colours are reduced; the defaults are the measured best (bench/gif).
        GifWriterOptions encoding;
    };

    // Blocks until the GIF is written; run it off the GUI thread. Returns the written file's
    // path, or why there is none (a failed or cancelled export leaves no file behind).
    static Result<QString> exportRange(const Request& request);

    // How long the movie plays, in seconds; fails when it is not a movie with a picture or
    // its length is unknown.
    static Result<double> movieDuration(const QString& movie);

    // The messages of the failures the caller may want to tell apart.
    static QString tooShortMessage() { return QStringLiteral("Selection is too short for a GIF"); }
    static QString cannotCreateMessage() { return QStringLiteral("Couldn't create the GIF file"); }
    static QString encodingFailedMessage() { return QStringLiteral("GIF encoding failed"); }
    static QString cancelledMessage() { return QStringLiteral("The GIF export was cancelled"); }
};

// How many frames a range of `seconds` gets: whole frames at `fps`, two at least.
int gifFrameCount(double seconds, double fps);

// Each frame's delay in hundredths of a second. The rounding is carried over from frame to
// frame, so n frames last n / fps seconds as closely as hundredths allow.
std::vector<int> gifFrameDelays(int frameCount, double fps);

// A frame of `source` scaled down, aspect kept, so that neither side exceeds `maxDimension`;
// smaller frames keep their size.
QSize gifFrameSize(QSize source, double maxDimension);

} // namespace qm::media
