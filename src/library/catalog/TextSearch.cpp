#include "library/catalog/TextSearch.h"

namespace qm::library {

namespace {

using Signature = std::array<std::uint64_t, 128>; // 8192 bits

// Every letter, pair and triple of the text sets one bit. A few hundred words set about a
// sixth of the bits, so a search of several letters rarely passes a text that lacks it.
template <class Visit> void forEachPiece(QStringView text, Visit&& visit) {
    const qsizetype n = text.size();
    for (qsizetype i = 0; i < n; ++i) {
        const std::uint32_t a = text[i].unicode();
        visit(a * 0x9E3779B1u);
        if (i + 1 < n) {
            const std::uint32_t b = text[i + 1].unicode();
            visit((a * 0x85EBCA77u) ^ (b * 0xC2B2AE3Du) ^ 0x27D4EB2Fu);
            if (i + 2 < n) {
                const std::uint32_t c = text[i + 2].unicode();
                visit((a * 0x165667B1u) ^ (b * 0xD3A2646Cu) ^ (c * 0xFD7046C5u) ^ 0xB55A4F09u);
            }
        }
    }
}

void setBit(Signature& bits, std::uint32_t hash) {
    hash ^= hash >> 15;
    hash *= 0x2C1B3C6Du;
    hash ^= hash >> 12;
    const std::uint32_t bit = hash & 8191u;
    bits[bit >> 6] |= std::uint64_t(1) << (bit & 63);
}

Signature signatureOf(QStringView text) {
    Signature bits{};
    forEachPiece(text, [&](std::uint32_t h) { setBit(bits, h); });
    return bits;
}

} // namespace

SearchableTexts::Probe::Probe(const SearchNeedle& needle)
    : m_needle(needle) {
    forEachPiece(QStringView(m_needle.folded()), [&](std::uint32_t h) { setBit(m_bits, h); });
}

void SearchableTexts::put(const QString& key, const QString& text) {
    const auto it = m_texts.constFind(key);
    if (it != m_texts.cend() && (it->raw.constData() == text.constData() || it->raw == text) &&
        it->raw.size() == text.size())
        return;
    Text kept{text, foldForSearch(text), {}};
    kept.bits = signatureOf(kept.folded);
    m_texts.insert(key, std::move(kept));
}

void SearchableTexts::remove(const QString& key) {
    m_texts.remove(key);
}

bool SearchableTexts::matches(const QString& key, const Probe& probe) const {
    const auto it = m_texts.constFind(key);
    if (it == m_texts.cend())
        return false;
    for (std::size_t i = 0; i < probe.m_bits.size(); ++i)
        if ((probe.m_bits[i] & ~it->bits[i]) != 0)
            return false;
    return probe.m_needle.foundIn(it->folded);
}

} // namespace qm::library
