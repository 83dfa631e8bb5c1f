#pragma once

#include "library/catalog/TextMatch.h"

#include <QByteArray>
#include <QHash>
#include <QString>
#include <array>
#include <cstdint>
#include <vector>

namespace qm::library {

// Recognised text kept ready for searching at every keystroke. Each text is folded once and
// carries a signature of the letters, pairs and triples it holds, so a search skips, without
// reading it, any text that lacks a piece of what was typed; only the rest are read in full.
// The answers are exactly those of SearchNeedle::foundIn on the folded text.
class SearchableTexts {
public:
    using Signature = std::array<std::uint64_t, 128>; // 8,192 bits

    // What a search looks for, worked out once per search instead of once per text.
    class Probe {
    public:
        explicit Probe(const SearchNeedle& needle);
        const SearchNeedle& needle() const { return m_needle; }

    private:
        friend class SearchableTexts;
        SearchNeedle m_needle;
        // The search in one byte a letter, when every letter of it fits in one.
        QByteArray m_narrow;
        bool m_isNarrow = false;
        // The words of the signature the search sets bits in, and those bits.
        std::vector<std::pair<std::uint16_t, std::uint64_t>> m_words;
    };

    // Keeps `text` (as read, unfolded) for `key` and returns its slot, valid until the key is
    // removed. Folds nothing when the same text is already kept, which is cheap to tell when it
    // shares its storage with the kept one.
    int put(const QString& key, const QString& text);
    void remove(const QString& key);
    // Forgets every text whose key `keep` refuses.
    template <class Keep> void keepOnly(Keep&& keep) {
        for (const QString& key : m_slots.keys())
            if (!keep(key))
                remove(key);
    }
    bool has(const QString& key) const { return m_slots.contains(key); }
    qsizetype size() const { return m_slots.size(); }

    // Whether the text kept for `key` (or in `slot`) contains the search; false when none is.
    bool matches(const QString& key, const Probe& probe) const;
    bool matches(int slot, const Probe& probe) const;

private:
    struct Text {
        QString raw; // as handed in, to notice changes
        // As searched: one byte a letter when every letter fits in one (nearly all recognised
        // text, once folded), which halves what a search reads and lets memmem read it.
        QByteArray narrow;
        QString folded; // only when it doesn't fit
        bool isNarrow = false;
        Signature bits{};
    };
    std::vector<Text> m_texts;
    std::vector<int> m_free;
    QHash<QString, int> m_slots;
};

} // namespace qm::library
