#pragma once

#include <cstddef>
#include <cstdint>

namespace qm::png {

// Writes one PNG row (filter type byte, then the filtered bytes) to `out`, choosing per row
// the filter whose output has the smallest sum of absolute signed bytes: those rows deflate
// best in practice. `prev` is the raw row above (all zeros for the first row), `scratch`
// holds 4 * rowBytes bytes. `bytesPerPixel` is 3 or 4.
void filterRow(const std::uint8_t* cur, const std::uint8_t* prev, std::size_t rowBytes,
               int bytesPerPixel, std::uint8_t* scratch, std::uint8_t* out);

} // namespace qm::png
