#pragma once

#include <cstddef>
#include <cstdint>

namespace qm::png {

// Writes one PNG row (filter type byte, then rowBytes filtered bytes) to `out`, choosing the
// filter per row. `prev` is the raw row above (all zeros for the first row); `bytesPerPixel`
// is 3 or 4.
void filterRow(const std::uint8_t* cur, const std::uint8_t* prev, std::size_t rowBytes,
               int bytesPerPixel, std::uint8_t* out);

} // namespace qm::png
