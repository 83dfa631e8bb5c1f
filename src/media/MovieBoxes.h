#pragma once

#include <cstdint>

namespace qm::media {

// How much of a fragmented movie can be trusted: the top-level boxes are walked from the
// start, and a fragment (a moof box and the mdat box after it) counts once both are wholly
// in the file.
struct FragmentedLayout {
    bool hasIndex = false; // the moov box (the tracks' descriptions) is complete
    int completeFragments = 0;
    std::int64_t usableBytes = 0; // the file up to the end of the last complete box that
                                  // does not belong to an unfinished fragment
};

FragmentedLayout scanFragmentedMovie(int fd, std::int64_t fileSize);

} // namespace qm::media
