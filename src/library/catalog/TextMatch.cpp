#include "library/catalog/TextMatch.h"

namespace qm::library {

QString foldForSearch(QStringView text) {
    // Plain ASCII needs no decomposition: the common case of names and recognised text.
    bool ascii = true;
    for (const QChar c : text)
        if (c.unicode() >= 0x80) {
            ascii = false;
            break;
        }
    if (ascii)
        return text.toString().toCaseFolded();

    const QString decomposed = text.toString().normalized(QString::NormalizationForm_KD);
    QString folded;
    folded.reserve(decomposed.size());
    for (const QChar c : decomposed)
        if (c.category() != QChar::Mark_NonSpacing)
            folded.append(c);
    folded = folded.toCaseFolded();
    // Simple case folding keeps "ß" (and turns "ẞ" into it); German writes it "ss" in capitals,
    // so "STRASSE" should find "Straße".
    folded.replace(QChar(0x00DF), QLatin1String("ss"));
    return folded;
}

SearchNeedle::SearchNeedle(const QString& typed)
    : m_typed(typed)
    , m_folded(foldForSearch(typed)) {}

bool SearchNeedle::foundIn(QStringView foldedText) const {
    return foldedText.contains(m_folded);
}

} // namespace qm::library
