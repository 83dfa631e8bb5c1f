#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

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

// Bytes that rewriting a stream as non-final may add.
constexpr std::size_t kNonFinalSlack = 5;

// Rewrites a complete raw deflate stream in place so that another stream can follow it: the
// final block loses its BFINAL bit and an empty stored block realigns to a byte boundary.
// `buffer` holds the stream plus kNonFinalSlack spare bytes; returns the new stream size.
std::size_t makeNonFinal(std::span<std::uint8_t> buffer, const FinalBlock& final);

// Adler-32 of two pieces joined, from each piece's checksum and the second piece's length.
std::uint32_t adler32Combine(std::uint32_t first, std::uint32_t second, std::size_t secondLength);

} // namespace qm::png
