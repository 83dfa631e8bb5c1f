#include "library/catalog/TextMatch.h"

namespace qm::library {

QString foldForSearch(QStringView text) {
    const QString decomposed = text.toString().normalized(QString::NormalizationForm_KD);
    QString folded;
    folded.reserve(decomposed.size());
    for (const QChar c : decomposed)
        if (c.category() != QChar::Mark_NonSpacing)
            folded.append(c);
    return folded.toCaseFolded();
}

SearchNeedle::SearchNeedle(const QString& typed)
    : m_typed(typed)
    , m_folded(foldForSearch(typed)) {}

bool SearchNeedle::foundIn(QStringView foldedText) const {
    return foldedText.contains(m_folded);
}

} // namespace qm::library
