#include "media/trim/TrimInPlace.h"

#include "media/trim/MovieCut.h"
#include "media/trim/ReplaceFile.h"

#include <QFile>
#include <QFileInfo>
#include <cmath>
#include <sys/stat.h>
#include <unistd.h>

namespace qm::media::trim {

namespace {

QString seconds(double value) {
    return QString::number(value, 'f', 2) + QStringLiteral(" s");
}

// A movie nobody may write to is refused, also for root, who could write it anyway: the
// user made it read-only on purpose.
bool writable(const QString& movie) {
    const QByteArray name = QFile::encodeName(movie);
    struct stat info {};
    return ::stat(name.constData(), &info) == 0 && (info.st_mode & 0222) != 0 &&
           ::access(name.constData(), W_OK) == 0;
}

// The range as it will be cut (the end held to the movie's), or why it cannot be.
Result<std::pair<double, double>> checkRange(double start, double end, double duration) {
    if (!std::isfinite(start) || !std::isfinite(end))
        return failure(QStringLiteral("the trim range is not a number"));
    if (start < -kEndTolerance || start >= duration)
        return failure(QStringLiteral("the trim range starts outside the movie, which lasts ") +
                       seconds(duration));
    if (end > duration + kEndTolerance)
        return failure(QStringLiteral("the trim range ends after the movie, which lasts ") +
                       seconds(duration));
    start = std::max(start, 0.0);
    end = std::min(end, duration);
    // A hair of rounding below the minimum is still the minimum the trim window allows.
    if (end - start < kMinimumTrimLength - 1e-6)
        return failure(QStringLiteral("the trim range is shorter than ") +
                       seconds(kMinimumTrimLength));
    if (start <= kEndTolerance && end >= duration - kEndTolerance)
        return failure(QStringLiteral("the trim range keeps the whole movie"));
    return std::pair{start, end};
}

} // namespace

QString cancelledReason() {
    return QStringLiteral("the trim was cancelled");
}

Result<TrimSummary> trimInPlace(const QString& movie, double startSeconds, double endSeconds,
                                const std::function<void(double fraction)>& progress,
                                const std::atomic_bool* cancel) {
    // A link to the movie stays a link: the file it points at is the one replaced.
    const QString canonical = QFileInfo(movie).canonicalFilePath();
    const QString& target = canonical.isEmpty() ? movie : canonical;
    auto cut = MovieCut::open(target);
    if (!cut)
        return cut.error();
    if (!writable(target))
        return failure(QStringLiteral("the movie is read-only"));
    const auto range = checkRange(startSeconds, endSeconds, (*cut)->durationSeconds());
    if (!range)
        return range.error();

    const QString temporary = hiddenSiblingPath(target);
    Result<TrimSummary> outcome =
        (*cut)->writeRange(temporary, range->first, range->second, progress, cancel);
    cut->reset(); // the original is closed before it is replaced
    if (outcome.ok() && cancel && cancel->load())
        outcome = failure(cancelledReason());
    if (outcome.ok()) {
        if (Status replaced = replaceFile(temporary, target); !replaced.ok())
            outcome = replaced.error();
    }
    if (!outcome.ok()) {
        ::unlink(QFile::encodeName(temporary).constData());
        return outcome;
    }
    if (progress)
        progress(1.0);
    return outcome;
}

} // namespace qm::media::trim
