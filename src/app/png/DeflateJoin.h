#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace qm::png {

// Where the last block of a complete raw deflate stream sits, in bits from the stream's start.
struct FinalBlock {
    std::size_t headerBit = 0; // the block's BFINAL bit
    std::size_t endBit = 0;    // first bit after the block's end-of-block code
};

// Walks every block of a raw deflate stream (stored, fixed and dynamic Huffman) without
// producing output and reports where its final block begins and ends. Nothing when the
// stream is malformed or truncated.
std::optional<FinalBlock> locateFinalBlock(std::span<const std::uint8_t> stream);

// Appends a complete raw deflate stream to `out` so that another stream can follow it: the
// final block loses its BFINAL bit and an empty stored block realigns to a byte boundary.
void appendAsNonFinal(std::vector<std::uint8_t>& out, std::span<const std::uint8_t> stream,
                      const FinalBlock& final);

// Adler-32 of two pieces joined, from each piece's checksum and the second piece's length.
std::uint32_t adler32Combine(std::uint32_t first, std::uint32_t second, std::size_t secondLength);

} // namespace qm::png
