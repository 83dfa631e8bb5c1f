#include "base/png/DeflateJoin.h"

#include <array>
#include <cstring>
#include <vector>

namespace qm::png {

namespace {

// Reads the stream LSB-first as deflate packs it; reading past the end yields zero bits and
// marks the reader as overrun, which the walker treats as a truncated stream.
class BitReader {
public:
    explicit BitReader(std::span<const std::uint8_t> data)
        : m_data(data) {}

    // At least the next 56 bits, lowest first.
    std::uint64_t peekWord() const {
        const std::size_t byte = m_pos >> 3;
        std::uint64_t word = 0;
        if (byte + 8 <= m_data.size()) {
            std::memcpy(&word, m_data.data() + byte, 8);
        } else {
            for (std::size_t i = byte; i < m_data.size(); ++i)
                word |= std::uint64_t(m_data[i]) << (8 * (i - byte));
        }
        return word >> (m_pos & 7);
    }
    // The next `count` bits (count <= 32) without consuming them.
    std::uint32_t peek(int count) const {
        return std::uint32_t(peekWord() & ((std::uint64_t(1) << count) - 1));
    }
    void skip(int count) { m_pos += std::size_t(count); }
    std::uint32_t read(int count) {
        const std::uint32_t value = peek(count);
        skip(count);
        return value;
    }
    void alignToByte() { m_pos = (m_pos + 7) & ~std::size_t(7); }
    std::size_t position() const { return m_pos; }
    bool overrun() const { return m_pos > m_data.size() * 8; }

private:
    std::span<const std::uint8_t> m_data;
    std::size_t m_pos = 0;
};

constexpr int kMaxCodeLength = 15;

// A canonical Huffman code as lookup tables indexed by the next input bits. What an entry
// holds is up to the caller's `entryFor(symbol, codeLength)`; 0 marks bit patterns no symbol
// uses (incomplete codes) or symbols the caller rejects. Short codes resolve in a small
// primary table that stays in the L1 cache; the rare longer ones go on to a full table.
class HuffmanTable {
public:
    template <typename EntryFor>
    bool build(const std::uint8_t* lengths, int symbols, EntryFor entryFor) {
        std::array<int, kMaxCodeLength + 1> counts{};
        int longest = 0;
        for (int s = 0; s < symbols; ++s) {
            ++counts[lengths[s]];
            longest = std::max<int>(longest, lengths[s]);
        }
        counts[0] = 0;
        // Over-subscribed codes cannot come from a valid encoder.
        int left = 1;
        for (int len = 1; len <= kMaxCodeLength; ++len) {
            left = (left << 1) - counts[len];
            if (left < 0)
                return false;
        }
        m_primaryBits = std::min(longest, kPrimaryBits);
        m_fullBits = longest;
        m_primary.assign(std::size_t(1) << m_primaryBits, 0);
        if (longest > kPrimaryBits)
            m_full.assign(std::size_t(1) << longest, 0);
        std::array<std::uint32_t, kMaxCodeLength + 2> next{};
        std::uint32_t code = 0;
        for (int len = 1; len <= kMaxCodeLength; ++len) {
            code = (code + std::uint32_t(counts[len - 1])) << 1;
            next[len] = code;
        }
        for (int s = 0; s < symbols; ++s) {
            const int len = lengths[s];
            if (len == 0)
                continue;
            const std::uint32_t reversed = reverse(next[len]++, len);
            const std::uint16_t entry = entryFor(s, len);
            if (len <= kPrimaryBits) {
                for (std::size_t i = reversed; i < m_primary.size(); i += std::size_t(1) << len)
                    m_primary[i] = entry;
            } else {
                m_primary[reversed & ((1u << kPrimaryBits) - 1)] = kLongCode;
                for (std::size_t i = reversed; i < m_full.size(); i += std::size_t(1) << len)
                    m_full[i] = entry;
            }
        }
        return true;
    }

    // The entry for the code at the start of `bits`.
    std::uint16_t lookup(std::uint64_t bits) const {
        const std::uint16_t entry = m_primary[bits & ((std::uint64_t(1) << m_primaryBits) - 1)];
        if (entry != kLongCode)
            return entry;
        return m_full[bits & ((std::uint64_t(1) << m_fullBits) - 1)];
    }

    // The next symbol of a table built with symbolEntry, or -1 when the input matches no code.
    int decode(BitReader& in) const {
        const std::uint16_t entry = lookup(in.peekWord());
        if (entry == 0)
            return -1;
        in.skip(entry & 15);
        return entry >> 4;
    }

private:
    static constexpr int kPrimaryBits = 10;
    static constexpr std::uint16_t kLongCode = 0xffff;

    static std::uint32_t reverse(std::uint32_t code, int len) {
        std::uint32_t out = 0;
        for (int i = 0; i < len; ++i, code >>= 1)
            out = (out << 1) | (code & 1);
        return out;
    }

    std::vector<std::uint16_t> m_primary;
    std::vector<std::uint16_t> m_full;
    int m_primaryBits = 0;
    int m_fullBits = 0;
};

std::uint16_t symbolEntry(int symbol, int length) {
    return std::uint16_t((symbol << 4) | length);
}

// Entries of the tables the walker skips with: the kind of symbol in the top bits and every
// bit it occupies (code plus extra bits) in the low six.
enum SkipKind : std::uint16_t {
    Invalid = 0,
    Literal = 1,
    Distance = 1,
    Length = 2,
    EndOfBlock = 3
};
constexpr int kKindShift = 6;
constexpr std::uint16_t kBitsMask = (1 << kKindShift) - 1;

std::uint16_t litlenEntry(int symbol, int length) {
    static constexpr std::array<std::uint8_t, 29> lengthExtraBits = {
        0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
    if (symbol < 256)
        return std::uint16_t(Literal << kKindShift | length);
    if (symbol == 256)
        return std::uint16_t(EndOfBlock << kKindShift | length);
    if (symbol > 285)
        return Invalid;
    return std::uint16_t(Length << kKindShift |
                         (length + lengthExtraBits[std::size_t(symbol - 257)]));
}

std::uint16_t distEntry(int symbol, int length) {
    if (symbol > 29)
        return Invalid;
    const int extra = symbol < 4 ? 0 : symbol / 2 - 1;
    return std::uint16_t(Distance << kKindShift | (length + extra));
}

// Skips the symbols of one Huffman-coded block up to and including its end-of-block code.
// Several symbols come out of each word read: shifting is quicker than reloading.
bool skipSymbols(BitReader& in, const HuffmanTable& litlen, const HuffmanTable& dist) {
    constexpr int kLongestCode = kMaxCodeLength;
    constexpr int kLongestDistance = kMaxCodeLength + 13;
    for (;;) {
        std::uint64_t word = in.peekWord();
        int available = 56;
        int consumed = 0;
        while (available >= kLongestCode) {
            const std::uint16_t entry = litlen.lookup(word);
            const int bits = entry & kBitsMask;
            const int kind = entry >> kKindShift;
            if (kind == Literal) {
                word >>= bits;
                available -= bits;
                consumed += bits;
            } else if (kind == Length) {
                if (available < bits + kLongestDistance)
                    break; // read the match again from a fresh word
                const std::uint16_t distance = dist.lookup(word >> bits);
                if (distance == Invalid)
                    return false;
                const int total = bits + (distance & kBitsMask);
                word >>= total;
                available -= total;
                consumed += total;
            } else if (kind == EndOfBlock) {
                in.skip(consumed + bits);
                return !in.overrun();
            } else {
                return false;
            }
        }
        in.skip(consumed);
        if (in.overrun())
            return false;
    }
}

bool readDynamicTables(BitReader& in, HuffmanTable& litlen, HuffmanTable& dist) {
    const int litlenCount = int(in.read(5)) + 257;
    const int distCount = int(in.read(5)) + 1;
    const int codeLengthCount = int(in.read(4)) + 4;
    if (litlenCount > 286 || distCount > 30)
        return false;
    static constexpr std::array<std::uint8_t, 19> order = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                                           11, 4,  12, 3, 13, 2, 14, 1, 15};
    std::array<std::uint8_t, 19> codeLengthLengths{};
    for (int i = 0; i < codeLengthCount; ++i)
        codeLengthLengths[order[std::size_t(i)]] = std::uint8_t(in.read(3));
    HuffmanTable codeLengths;
    if (!codeLengths.build(codeLengthLengths.data(), 19, symbolEntry))
        return false;

    std::array<std::uint8_t, 286 + 30> lengths{};
    const int total = litlenCount + distCount;
    for (int i = 0; i < total;) {
        const int symbol = codeLengths.decode(in);
        if (symbol < 0 || in.overrun())
            return false;
        if (symbol < 16) {
            lengths[std::size_t(i++)] = std::uint8_t(symbol);
            continue;
        }
        std::uint8_t value = 0;
        int repeat = 0;
        if (symbol == 16) {
            if (i == 0)
                return false;
            value = lengths[std::size_t(i - 1)];
            repeat = 3 + int(in.read(2));
        } else if (symbol == 17) {
            repeat = 3 + int(in.read(3));
        } else {
            repeat = 11 + int(in.read(7));
        }
        if (i + repeat > total)
            return false;
        for (int r = 0; r < repeat; ++r)
            lengths[std::size_t(i++)] = value;
    }
    if (lengths[256] == 0) // a block without an end-of-block code never ends
        return false;
    return litlen.build(lengths.data(), litlenCount, litlenEntry) &&
           dist.build(lengths.data() + litlenCount, distCount, distEntry);
}

bool buildFixedTables(HuffmanTable& litlen, HuffmanTable& dist) {
    std::array<std::uint8_t, 288> lengths{};
    std::fill(lengths.begin(), lengths.begin() + 144, 8);
    std::fill(lengths.begin() + 144, lengths.begin() + 256, 9);
    std::fill(lengths.begin() + 256, lengths.begin() + 280, 7);
    std::fill(lengths.begin() + 280, lengths.end(), 8);
    std::array<std::uint8_t, 30> distLengths{};
    distLengths.fill(5);
    return litlen.build(lengths.data(), 288, litlenEntry) &&
           dist.build(distLengths.data(), 30, distEntry);
}

} // namespace

std::optional<FinalBlock> locateFinalBlock(std::span<const std::uint8_t> stream) {
    BitReader in(stream);
    HuffmanTable litlen;
    HuffmanTable dist;
    HuffmanTable fixedLitlen;
    HuffmanTable fixedDist;
    bool fixedBuilt = false;
    for (;;) {
        const std::size_t headerBit = in.position();
        const bool final = in.read(1) != 0;
        const std::uint32_t type = in.read(2);
        bool ok = false;
        if (type == 0) {
            in.alignToByte();
            const std::uint32_t length = in.read(16);
            const std::uint32_t inverse = in.read(16);
            ok = (length ^ inverse) == 0xffff;
            in.skip(int(length) * 8);
        } else if (type == 1) {
            if (!fixedBuilt)
                fixedBuilt = buildFixedTables(fixedLitlen, fixedDist);
            ok = fixedBuilt && skipSymbols(in, fixedLitlen, fixedDist);
        } else if (type == 2) {
            ok = readDynamicTables(in, litlen, dist) && skipSymbols(in, litlen, dist);
        }
        if (!ok || in.overrun())
            return std::nullopt;
        if (final)
            return FinalBlock{headerBit, in.position()};
    }
}

std::size_t makeNonFinal(std::span<std::uint8_t> buffer, const FinalBlock& final) {
    buffer[final.headerBit / 8] &= std::uint8_t(~(1u << (final.headerBit % 8)));
    // An empty stored block: three zero header bits right after the end-of-block code, zero
    // padding to the byte boundary, then LEN = 0 and NLEN = 0xffff.
    std::size_t size = (final.endBit + 7) / 8;
    const int usedBits = int(final.endBit % 8);
    if (usedBits != 0)
        buffer[size - 1] &= std::uint8_t((1u << usedBits) - 1);
    if (usedBits == 0 || usedBits > 5)
        buffer[size++] = 0;
    for (const std::uint8_t b : {0x00, 0x00, 0xff, 0xff})
        buffer[size++] = b;
    return size;
}

std::uint32_t adler32Combine(std::uint32_t first, std::uint32_t second, std::size_t secondLength) {
    constexpr std::uint32_t base = 65521;
    const auto remainder = std::uint32_t(secondLength % base);
    std::uint32_t sum1 = first & 0xffff;
    std::uint32_t sum2 = std::uint32_t((std::uint64_t(remainder) * sum1) % base);
    sum1 += (second & 0xffff) + base - 1;
    sum2 += ((first >> 16) & 0xffff) + ((second >> 16) & 0xffff) + base - remainder;
    if (sum1 >= base)
        sum1 -= base;
    if (sum1 >= base)
        sum1 -= base;
    if (sum2 >= (base << 1))
        sum2 -= (base << 1);
    if (sum2 >= base)
        sum2 -= base;
    return sum1 | (sum2 << 16);
}

} // namespace qm::png
