#include "media/MovieBoxes.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace qm::media {

namespace {

std::uint32_t be32(const unsigned char* p) {
    return std::uint32_t(p[0]) << 24 | std::uint32_t(p[1]) << 16 | std::uint32_t(p[2]) << 8 |
           std::uint32_t(p[3]);
}

bool readAt(int fd, unsigned char* data, std::size_t size, std::int64_t at) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t n = ::pread(fd, data + done, size - done, off_t(at) + off_t(done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += std::size_t(n);
    }
    return true;
}

} // namespace

FragmentedLayout scanFragmentedMovie(int fd, std::int64_t fileSize) {
    FragmentedLayout layout;
    std::int64_t at = 0;
    bool openFragment = false; // a moof whose mdat has not been seen yet
    while (at + 8 <= fileSize) {
        unsigned char header[16];
        if (!readAt(fd, header, 8, at))
            break;
        std::int64_t size = be32(header);
        std::int64_t headerSize = 8;
        if (size == 1) { // a 64-bit size follows the type
            if (at + 16 > fileSize || !readAt(fd, header + 8, 8, at + 8))
                break;
            size = std::int64_t(std::uint64_t(be32(header + 8)) << 32 | be32(header + 12));
            headerSize = 16;
        }
        // A size of 0 means "to the end of the file", which only a box still being written
        // claims; a size past the end is a box cut off.
        if (size < headerSize || size > fileSize - at)
            break;
        const std::int64_t end = at + size;
        if (std::memcmp(header + 4, "moov", 4) == 0) {
            layout.hasIndex = true;
            layout.usableBytes = end;
        } else if (std::memcmp(header + 4, "moof", 4) == 0) {
            openFragment = true;
        } else if (std::memcmp(header + 4, "mdat", 4) == 0) {
            if (openFragment)
                ++layout.completeFragments;
            openFragment = false;
            layout.usableBytes = end;
        } else if (!openFragment) {
            layout.usableBytes = end;
        }
        at = end;
    }
    return layout;
}

} // namespace qm::media
