#include "library/catalog/TextSearch.h"

#include <cstring>

namespace qm::library {

namespace {

using Signature = SearchableTexts::Signature;

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

bool fitsInBytes(QStringView text) {
    for (const QChar c : text)
        if (c.unicode() > 0xFF)
            return false;
    return true;
}

} // namespace

SearchableTexts::Probe::Probe(const SearchNeedle& needle)
    : m_needle(needle) {
    m_isNarrow = fitsInBytes(m_needle.folded());
    if (m_isNarrow)
        m_narrow = m_needle.folded().toLatin1();
    Signature bits{};
    forEachPiece(QStringView(m_needle.folded()), [&](std::uint32_t h) { setBit(bits, h); });
    for (std::size_t i = 0; i < bits.size(); ++i)
        if (bits[i] != 0)
            m_words.emplace_back(std::uint16_t(i), bits[i]);
}

int SearchableTexts::put(const QString& key, const QString& text) {
    const auto found = m_slots.constFind(key);
    if (found != m_slots.cend()) {
        Text& kept = m_texts[std::size_t(*found)];
        if (kept.raw.size() == text.size() &&
            (kept.raw.constData() == text.constData() || kept.raw == text))
            return *found;
    }
    Text fresh;
    fresh.raw = text;
    QString folded = foldForSearch(text);
    forEachPiece(QStringView(folded), [&](std::uint32_t h) { setBit(fresh.bits, h); });
    fresh.isNarrow = fitsInBytes(folded);
    if (fresh.isNarrow)
        fresh.narrow = folded.toLatin1();
    else
        fresh.folded = std::move(folded);
    int slot;
    if (found != m_slots.cend()) {
        slot = *found;
    } else if (!m_free.empty()) {
        slot = m_free.back();
        m_free.pop_back();
    } else {
        slot = int(m_texts.size());
        m_texts.emplace_back();
    }
    m_texts[std::size_t(slot)] = std::move(fresh);
    m_slots.insert(key, slot);
    return slot;
}

void SearchableTexts::remove(const QString& key) {
    const auto found = m_slots.constFind(key);
    if (found == m_slots.cend())
        return;
    m_texts[std::size_t(*found)] = Text{};
    m_free.push_back(*found);
    m_slots.erase(found);
}

bool SearchableTexts::matches(const QString& key, const Probe& probe) const {
    const auto found = m_slots.constFind(key);
    return found != m_slots.cend() && matches(*found, probe);
}

bool SearchableTexts::matches(int slot, const Probe& probe) const {
    if (slot < 0 || std::size_t(slot) >= m_texts.size())
        return false;
    const Text& text = m_texts[std::size_t(slot)];
    for (const auto& [word, bits] : probe.m_words)
        if ((bits & ~text.bits[word]) != 0)
            return false;
    if (probe.m_needle.isEmpty())
        return true;
    if (text.isNarrow) {
        // A search with a letter beyond one byte can't be in a text without any.
        return probe.m_isNarrow &&
               memmem(text.narrow.constData(), std::size_t(text.narrow.size()),
                      probe.m_narrow.constData(), std::size_t(probe.m_narrow.size())) != nullptr;
    }
    return probe.m_needle.foundIn(text.folded);
}

} // namespace qm::library
