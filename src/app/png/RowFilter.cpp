#include "app/png/RowFilter.h"

#include <cstdlib> // std::abs
#include <cstring>

namespace qm::png {

namespace {

enum Filter : std::uint8_t { None = 0, Sub = 1, Up = 2, Average = 3, Paeth = 4 };

// The cost of one filtered byte: its magnitude read as a signed residual.
[[gnu::always_inline]] inline std::uint32_t magnitude(std::uint8_t v) {
    const auto s = std::int8_t(v);
    return std::uint32_t(s < 0 ? -s : s);
}

template <int Bpp>
[[gnu::always_inline]] inline std::uint32_t costNone(const std::uint8_t* cur, std::size_t n) {
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < n; ++i)
        sum += magnitude(cur[i]);
    return sum;
}

template <int Bpp>
[[gnu::always_inline]] inline std::uint32_t filterSub(const std::uint8_t* cur, std::size_t n,
                                                      std::uint8_t* out) {
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < Bpp; ++i) {
        out[i] = cur[i];
        sum += magnitude(out[i]);
    }
    for (std::size_t i = Bpp; i < n; ++i) {
        out[i] = std::uint8_t(cur[i] - cur[i - Bpp]);
        sum += magnitude(out[i]);
    }
    return sum;
}

template <int Bpp>
[[gnu::always_inline]] inline std::uint32_t
filterUp(const std::uint8_t* cur, const std::uint8_t* prev, std::size_t n, std::uint8_t* out) {
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < n; ++i) {
        out[i] = std::uint8_t(cur[i] - prev[i]);
        sum += magnitude(out[i]);
    }
    return sum;
}

template <int Bpp>
[[gnu::always_inline]] inline std::uint32_t
filterAverage(const std::uint8_t* cur, const std::uint8_t* prev, std::size_t n, std::uint8_t* out) {
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < Bpp; ++i) {
        out[i] = std::uint8_t(cur[i] - (prev[i] >> 1));
        sum += magnitude(out[i]);
    }
    for (std::size_t i = Bpp; i < n; ++i) {
        out[i] = std::uint8_t(cur[i] - ((unsigned(cur[i - Bpp]) + prev[i]) >> 1));
        sum += magnitude(out[i]);
    }
    return sum;
}

template <int Bpp>
[[gnu::always_inline]] inline std::uint32_t
filterPaeth(const std::uint8_t* cur, const std::uint8_t* prev, std::size_t n, std::uint8_t* out) {
    std::uint32_t sum = 0;
    // With nothing to the left the predictor is always the byte above.
    for (std::size_t i = 0; i < Bpp; ++i) {
        out[i] = std::uint8_t(cur[i] - prev[i]);
        sum += magnitude(out[i]);
    }
    for (std::size_t i = Bpp; i < n; ++i) {
        const int a = cur[i - Bpp];
        const int b = prev[i];
        const int c = prev[i - Bpp];
        const int pa = std::abs(b - c);
        const int pb = std::abs(a - c);
        const int pc = std::abs(a + b - 2 * c);
        const int predictor = (pa <= pb && pa <= pc) ? a : (pb <= pc ? b : c);
        out[i] = std::uint8_t(cur[i] - predictor);
        sum += magnitude(out[i]);
    }
    return sum;
}

template <int Bpp>
[[gnu::always_inline]] inline void filterRowFor(const std::uint8_t* cur, const std::uint8_t* prev,
                                                std::size_t n, std::uint8_t* scratch,
                                                std::uint8_t* out) {
    std::uint32_t best = ~0u;
    int chosen = None;
    const std::uint8_t* chosenBytes = cur;
    auto consider = [&](int filter, std::uint32_t cost, const std::uint8_t* bytes) {
        if (cost < best) {
            best = cost;
            chosen = filter;
            chosenBytes = bytes;
        }
    };
    consider(None, costNone<Bpp>(cur, n), cur);
    consider(Sub, filterSub<Bpp>(cur, n, scratch), scratch);
    consider(Up, filterUp<Bpp>(cur, prev, n, scratch + n), scratch + n);
    consider(Average, filterAverage<Bpp>(cur, prev, n, scratch + 2 * n), scratch + 2 * n);
    consider(Paeth, filterPaeth<Bpp>(cur, prev, n, scratch + 3 * n), scratch + 3 * n);
    out[0] = std::uint8_t(chosen);
    std::memcpy(out + 1, chosenBytes, n);
}

} // namespace

// The loops above vectorise; on x86-64 an AVX2 build of them is picked at load time.
#if defined(__x86_64__) && defined(__GNUC__)
__attribute__((target_clones("avx2", "default")))
#endif
void filterRow(const std::uint8_t* cur, const std::uint8_t* prev, std::size_t rowBytes,
               int bytesPerPixel, std::uint8_t* scratch, std::uint8_t* out) {
    if (bytesPerPixel == 4)
        filterRowFor<4>(cur, prev, rowBytes, scratch, out);
    else
        filterRowFor<3>(cur, prev, rowBytes, scratch, out);
}

} // namespace qm::png
