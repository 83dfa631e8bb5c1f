#include "base/png/DeflateJoin.h"

#include <gtest/gtest.h>
#include <libdeflate.h>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <zlib.h>

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes deflateRaw(const Bytes& input, int level) {
    std::unique_ptr<libdeflate_compressor, decltype(&libdeflate_free_compressor)> compressor(
        libdeflate_alloc_compressor(level), &libdeflate_free_compressor);
    Bytes out(libdeflate_deflate_compress_bound(compressor.get(), input.size()));
    out.resize(libdeflate_deflate_compress(compressor.get(), input.data(), input.size(), out.data(),
                                           out.size()));
    return out;
}

// zlib's inflate is an independent reader; it must see one stream that ends exactly at the end.
std::optional<Bytes> inflateRaw(const Bytes& stream, std::size_t expectedSize) {
    Bytes out(expectedSize + 1);
    z_stream z{};
    if (inflateInit2(&z, -15) != Z_OK)
        return std::nullopt;
    z.next_in = const_cast<Bytef*>(stream.data());
    z.avail_in = uInt(stream.size());
    z.next_out = out.data();
    z.avail_out = uInt(out.size());
    const int rc = inflate(&z, Z_FINISH);
    const bool complete = rc == Z_STREAM_END && z.avail_in == 0;
    out.resize(z.total_out);
    inflateEnd(&z);
    if (!complete)
        return std::nullopt;
    return out;
}

struct Piece {
    const char* kind;
    Bytes data;
    int level;
};

// Inputs that make libdeflate choose each block type: stored for noise and tiny input, fixed
// Huffman for a short sentence, dynamic Huffman (many blocks) for long structured data, and empty
// input.
std::vector<Piece> pieces() {
    std::mt19937 rng(7);
    Bytes noise(300000);
    for (auto& b : noise)
        b = std::uint8_t(rng());
    Bytes text;
    for (int i = 0; text.size() < 2000000; ++i)
        for (char c : "the quick brown fox " + std::to_string(i * 7919 % 1000))
            text.push_back(std::uint8_t(c));
    Bytes flat(1500000, 0x42);
    const std::string words = "the quick brown fox jumps over the lazy dog the quick brown fox";
    const Bytes sentence(words.begin(), words.end());
    return {{"noise", noise, 4},   {"tiny", Bytes{'a', 'b', 'c'}, 4}, {"sentence", sentence, 4},
            {"text", text, 1},     {"text-best", text, 12},           {"flat", flat, 6},
            {"empty", Bytes{}, 4}, {"stored-level", text, 0}};
}

TEST(DeflateJoin, FindsTheEndOfEveryKindOfStream) {
    std::set<int> firstBlockTypes;
    for (const Piece& piece : pieces()) {
        SCOPED_TRACE(piece.kind);
        const Bytes stream = deflateRaw(piece.data, piece.level);
        firstBlockTypes.insert(stream[0] >> 1 & 3);
        const auto final = qm::png::locateFinalBlock(stream);
        ASSERT_TRUE(final);
        // libdeflate pads only up to the next byte after the final end-of-block code.
        EXPECT_EQ((final->endBit + 7) / 8, stream.size());
        EXPECT_LT(final->headerBit, final->endBit);
        EXPECT_EQ(stream[final->headerBit / 8] >> (final->headerBit % 8) & 1, 1);
    }
    // The inputs cover stored, fixed Huffman and dynamic Huffman blocks.
    EXPECT_EQ(firstBlockTypes, (std::set<int>{0, 1, 2}));
}

TEST(DeflateJoin, JoinedStreamsInflateToTheJoinedInput) {
    const std::vector<Piece> all = pieces();
    std::vector<Bytes> rewritten;
    for (const Piece& piece : all) {
        const Bytes stream = deflateRaw(piece.data, piece.level);
        const auto final = qm::png::locateFinalBlock(stream);
        ASSERT_TRUE(final) << piece.kind;
        Bytes bytes = stream;
        bytes.resize(stream.size() + qm::png::kNonFinalSlack);
        bytes.resize(qm::png::makeNonFinal(bytes, *final));
        rewritten.push_back(bytes);
    }
    // Every kind next to every other, so each alignment of the end-of-block bit occurs.
    Bytes joined;
    Bytes expected;
    for (std::size_t i = 0; i < all.size() * all.size(); ++i) {
        const std::size_t k = (i * 5 + i / all.size()) % all.size();
        joined.insert(joined.end(), rewritten[k].begin(), rewritten[k].end());
        expected.insert(expected.end(), all[k].data.begin(), all[k].data.end());
    }
    const Bytes last = deflateRaw(Bytes{'e', 'n', 'd'}, 4);
    joined.insert(joined.end(), last.begin(), last.end());
    expected.insert(expected.end(), {'e', 'n', 'd'});

    const auto inflated = inflateRaw(joined, expected.size());
    ASSERT_TRUE(inflated);
    EXPECT_TRUE(*inflated == expected);
}

TEST(DeflateJoin, RejectsBrokenStreams) {
    const Bytes stream = deflateRaw(pieces()[3].data, 6); // long text, dynamic blocks
    EXPECT_FALSE(qm::png::locateFinalBlock(Bytes(stream.begin(), stream.end() - 3)));
    EXPECT_FALSE(qm::png::locateFinalBlock(Bytes{}));
    EXPECT_FALSE(qm::png::locateFinalBlock(Bytes{0x07})); // reserved block type 3
    // A stored block whose length check does not match.
    EXPECT_FALSE(qm::png::locateFinalBlock(Bytes{0x01, 0x02, 0x00, 0x00, 0x00, 'x', 'y'}));
}

TEST(DeflateJoin, AdlerOfPiecesCombinesToAdlerOfWhole) {
    std::mt19937 rng(3);
    Bytes data(200000);
    for (auto& b : data)
        b = std::uint8_t(rng());
    for (std::size_t cut : {std::size_t(0), std::size_t(1), std::size_t(65521), std::size_t(131042),
                            std::size_t(199999), data.size()}) {
        const std::uint32_t a = libdeflate_adler32(1, data.data(), cut);
        const std::uint32_t b = libdeflate_adler32(1, data.data() + cut, data.size() - cut);
        EXPECT_EQ(qm::png::adler32Combine(a, b, data.size() - cut),
                  libdeflate_adler32(1, data.data(), data.size()))
            << cut;
    }
}

} // namespace
