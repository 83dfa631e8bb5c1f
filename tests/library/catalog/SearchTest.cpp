#include "TestSupport.h"
#include "library/catalog/TextMatch.h"
#include "library/catalog/TextSearch.h"

#include <QRandomGenerator>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace qm::library;

namespace {

bool finds(const QString& text, const QString& typed) {
    return SearchNeedle(typed).foundIn(foldForSearch(text));
}

} // namespace

TEST(Search, IgnoresCaseAndDiacriticsButUsesTheSearchAsTyped) {
    EXPECT_TRUE(finds(u"Café receipt"_s, u"cafe"_s));
    EXPECT_TRUE(finds(u"cafe"_s, u"CAFÉ"_s));
    EXPECT_TRUE(finds(u"TOTAL DUE: INVOICE 42"_s, u"invoice"_s));
    EXPECT_TRUE(finds(u"Ångström Über Crème brûlée"_s, u"angstrom uber creme"_s));
    EXPECT_TRUE(finds(u"Straße"_s, u"STRASSE"_s));
    EXPECT_TRUE(finds(u"STRASSE"_s, u"straße"_s));
    EXPECT_TRUE(finds(u"ﬁle"_s, u"file"_s));         // a ligature is its letters
    EXPECT_TRUE(finds(u"Ｑuillmark"_s, u"quill"_s)); // full-width letters

    // Not trimmed, not split into words.
    EXPECT_FALSE(finds(u"cafe"_s, u" cafe"_s));
    EXPECT_FALSE(finds(u"invoice total"_s, u"total invoice"_s));
    EXPECT_TRUE(finds(u"invoice total"_s, u"e t"_s));
    EXPECT_FALSE(finds(u"cafe"_s, u"café au lait"_s));
    // Letters that differ are still different.
    EXPECT_FALSE(finds(u"Cafe"_s, u"cafa"_s));
    EXPECT_FALSE(finds(u"Rückgabe"_s, u"ruckgabe x"_s));
}

// The signatures only ever skip texts that can't match: on a large random sample the answers
// equal a plain substring test of the folded text.
TEST(Search, KeptTextsAnswerExactlyAsAPlainSearch) {
    QRandomGenerator random(20261123);
    const QStringList words = {u"Invoice"_s, u"total"_s, u"café"_s,  u"Straße"_s, u"42"_s,
                               u"ÜBER"_s,    u"line"_s,  u"quill"_s, u"x"_s,      u"€"_s,
                               u"mark"_s,    u"naïve"_s, u"日本"_s,  u"résumé"_s, u"\n"_s};
    SearchableTexts texts;
    std::vector<QString> folded;
    for (int i = 0; i < 300; ++i) {
        QString text;
        const int n = int(random.bounded(0, 40));
        for (int w = 0; w < n; ++w)
            text += words[random.bounded(words.size())] + (random.bounded(3) ? u" "_s : u""_s);
        texts.put(QString::number(i), text);
        folded.push_back(foldForSearch(text));
    }
    QStringList needles = {u"e"_s,       u"ï"_s,         u"to"_s,     u"invoice t"_s, u"cafe"_s,
                           u"STRASSE"_s, u"ber l"_s,     u"日本 "_s,  u"€ 4"_s,       u"zz"_s,
                           u"markq"_s,   u"quillmark"_s, u"resume"_s, u"e\n"_s,       u" "_s};
    for (int i = 0; i < 40; ++i) // pieces cut from the texts themselves
        needles << folded[random.bounded(int(folded.size()))].mid(random.bounded(20),
                                                                  random.bounded(1, 12));
    int found = 0;
    for (const QString& typed : needles) {
        const SearchNeedle needle(typed);
        const SearchableTexts::Probe probe(needle);
        for (int i = 0; i < 300; ++i) {
            const bool expected = needle.foundIn(folded[std::size_t(i)]);
            ASSERT_EQ(texts.matches(QString::number(i), probe), expected)
                << typed.toStdString() << " in " << folded[std::size_t(i)].toStdString();
            found += expected;
        }
    }
    EXPECT_GT(found, 1000); // the sample exercises matches as well as misses
}

TEST(Search, AChangedTextIsSearchedAsItIsNow) {
    SearchableTexts texts;
    const SearchableTexts::Probe invoice{SearchNeedle(u"invoice"_s)};
    EXPECT_FALSE(texts.matches(u"a"_s, invoice));
    texts.put(u"a"_s, u"INVOICE"_s);
    EXPECT_TRUE(texts.matches(u"a"_s, invoice));
    texts.put(u"a"_s, u"receipt"_s);
    EXPECT_FALSE(texts.matches(u"a"_s, invoice));
    texts.put(u"a"_s, u"Invoice"_s);
    EXPECT_TRUE(texts.matches(u"a"_s, invoice));
    texts.remove(u"a"_s);
    EXPECT_FALSE(texts.matches(u"a"_s, invoice));
}
