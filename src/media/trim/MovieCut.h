#pragma once

#include "base/Result.h"
#include "media/trim/TrimInPlace.h"

#include <QString>
#include <atomic>
#include <functional>
#include <memory>

namespace qm::media::trim {

// A movie opened for cutting without re-encoding.
class MovieCut {
public:
    // Opens `movie` for reading and checks that it can be cut: a QuickTime movie whose
    // pictures and sound are all in the file, with a picture track and a known length.
    static Result<std::unique_ptr<MovieCut>> open(const QString& movie);
    ~MovieCut();
    MovieCut(const MovieCut&) = delete;
    MovieCut& operator=(const MovieCut&) = delete;

    double durationSeconds() const;

    // Writes the range [start, end) (seconds, inside the movie) to a new movie at `output`,
    // created exclusively, with its index at the front. Stops with a reason on a read or
    // disk error or when `cancel` is set; the caller removes what was written by then.
    Result<TrimSummary> writeRange(const QString& output, double start, double end,
                                   const std::function<void(double)>& progress,
                                   const std::atomic_bool* cancel);

private:
    struct Input;
    explicit MovieCut(std::unique_ptr<Input> input);
    std::unique_ptr<Input> m_input;
};

} // namespace qm::media::trim
