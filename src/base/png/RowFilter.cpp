#include "base/png/RowFilter.h"

#include <algorithm>
#include <cstdlib>

namespace qm::png {

namespace {

enum Filter : std::uint8_t { None = 0, Sub = 1, Up = 2, Average = 3, Paeth = 4 };

// The cost of one filtered byte: its magnitude read as a signed residual.
[[gnu::always_inline]] inline std::uint32_t magnitude(std::uint8_t v) {
    const auto s = std::int8_t(v);
    return std::uint32_t(s < 0 ? -s : s);
}

[[gnu::always_inline]] inline int paethPredictor(int a, int b, int c) {
    const int pa = std::abs(b - c);
    const int pb = std::abs(a - c);
    const int pc = std::abs(a + b - 2 * c);
    return (pa <= pb && pa <= pc) ? a : (pb <= pc ? b : c);
}

// The filtered byte at i >= Bpp, where every filter has a left neighbour.
template <int Bpp, Filter F>
[[gnu::always_inline]] inline std::uint8_t residual(const std::uint8_t* cur,
                                                    const std::uint8_t* prev, std::size_t i) {
    switch (F) {
    case None:
        return cur[i];
    case Sub:
        return std::uint8_t(cur[i] - cur[i - Bpp]);
    case Up:
        return std::uint8_t(cur[i] - prev[i]);
    case Average:
        return std::uint8_t(cur[i] - ((unsigned(cur[i - Bpp]) + prev[i]) >> 1));
    case Paeth:
        return std::uint8_t(cur[i] - paethPredictor(cur[i - Bpp], prev[i], prev[i - Bpp]));
    }
    return 0;
}

template <int Bpp, Filter F>
[[gnu::always_inline]] inline void apply(const std::uint8_t* cur, const std::uint8_t* prev,
                                         std::size_t n, std::uint8_t* out) {
    // Without a left neighbour Sub keeps the byte, Average halves the one above and Paeth
    // predicts from the one above.
    for (std::size_t i = 0; i < Bpp; ++i) {
        const unsigned up = prev[i];
        const unsigned predictor = F == Sub || F == None ? 0 : F == Average ? up >> 1 : up;
        out[i] = std::uint8_t(cur[i] - predictor);
    }
    for (std::size_t i = Bpp; i < n; ++i)
        out[i] = residual<Bpp, F>(cur, prev, i);
}

// Rows are judged on a sample: the first kSampleBytes of every kSampleStride bytes, which
// picks the same filter as the whole row nearly always at a fraction of the work.
constexpr std::size_t kSampleBytes = 64;
constexpr std::size_t kSampleStride = 256;

template <int Bpp, Filter F>
[[gnu::always_inline]] inline std::uint32_t sampledCost(const std::uint8_t* cur,
                                                        const std::uint8_t* prev, std::size_t n) {
    std::uint32_t sum = 0;
    for (std::size_t start = 0; start < n; start += kSampleStride) {
        const std::size_t end = std::min(n, start + kSampleBytes);
        for (std::size_t i = std::max<std::size_t>(start, Bpp); i < end; ++i)
            sum += magnitude(residual<Bpp, F>(cur, prev, i));
    }
    return sum;
}

// The filter whose output has the smallest sum of absolute signed bytes: such rows deflate
// best in practice.
template <int Bpp>
[[gnu::always_inline]] inline void filterRowFor(const std::uint8_t* cur, const std::uint8_t* prev,
                                                std::size_t n, std::uint8_t* out) {
    const std::uint32_t costs[5] = {
        sampledCost<Bpp, None>(cur, prev, n), sampledCost<Bpp, Sub>(cur, prev, n),
        sampledCost<Bpp, Up>(cur, prev, n), sampledCost<Bpp, Average>(cur, prev, n),
        sampledCost<Bpp, Paeth>(cur, prev, n)};
    const auto chosen = Filter(std::min_element(costs, costs + 5) - costs);
    out[0] = chosen;
    switch (chosen) {
    case None:
        apply<Bpp, None>(cur, prev, n, out + 1);
        break;
    case Sub:
        apply<Bpp, Sub>(cur, prev, n, out + 1);
        break;
    case Up:
        apply<Bpp, Up>(cur, prev, n, out + 1);
        break;
    case Average:
        apply<Bpp, Average>(cur, prev, n, out + 1);
        break;
    case Paeth:
        apply<Bpp, Paeth>(cur, prev, n, out + 1);
        break;
    }
}

} // namespace

// The loops above vectorise; on x86-64 an AVX2 build of them is picked at load time.
#if defined(__x86_64__) && defined(__GNUC__)
__attribute__((target_clones("avx2", "default")))
#endif
void filterRow(const std::uint8_t* cur, const std::uint8_t* prev, std::size_t rowBytes,
               int bytesPerPixel, std::uint8_t* out) {
    if (bytesPerPixel == 4)
        filterRowFor<4>(cur, prev, rowBytes, out);
    else
        filterRowFor<3>(cur, prev, rowBytes, out);
}

} // namespace qm::png
