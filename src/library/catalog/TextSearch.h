#pragma once

#include "library/catalog/TextMatch.h"

#include <QHash>
#include <QString>
#include <array>
#include <cstdint>

namespace qm::library {

// Recognised text kept ready for searching at every keystroke. Each text is folded once and
// carries a signature of the letters, pairs and triples it holds, so a search skips, without
// reading it, any text that lacks a piece of what was typed; only the rest are read in full.
// The answers are exactly those of SearchNeedle::foundIn on the folded text.
class SearchableTexts {
public:
    // What a search looks for, worked out once per search instead of once per text.
    class Probe {
    public:
        explicit Probe(const SearchNeedle& needle);
        const SearchNeedle& needle() const { return m_needle; }

    private:
        friend class SearchableTexts;
        SearchNeedle m_needle;
        std::array<std::uint64_t, 128> m_bits{}; // same layout as a text's signature
    };

    // Keeps `text` (as read, unfolded) for `key`. Does nothing when the same text is already
    // kept, which is cheap when it shares its storage with the kept one.
    void put(const QString& key, const QString& text);
    void remove(const QString& key);
    bool has(const QString& key) const { return m_texts.contains(key); }
    qsizetype size() const { return m_texts.size(); }
    void clear() { m_texts.clear(); }

    // Whether the text kept for `key` contains the search; false when none is kept.
    bool matches(const QString& key, const Probe& probe) const;

private:
    struct Text {
        QString raw;    // as handed in, to notice changes
        QString folded; // as searched
        std::array<std::uint64_t, 128> bits{};
    };
    QHash<QString, Text> m_texts;
};

} // namespace qm::library
