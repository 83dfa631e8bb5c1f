#pragma once

#include <QString>
#include <QStringView>

namespace qm::library {

// Text made ready for searching: case-folded and stripped of diacritics (compatibility
// decomposition without the combining marks), so "Café", "CAFE" and "cafe" all read "cafe".
// Folded once when text enters the library, so a keystroke folds only what was typed.
QString foldForSearch(QStringView text);

// A search as the user typed it: not trimmed or split into words, folded once.
class SearchNeedle {
public:
    explicit SearchNeedle(const QString& typed = {});

    bool isEmpty() const { return m_folded.isEmpty(); }
    const QString& typed() const { return m_typed; }
    const QString& folded() const { return m_folded; }

    // Whether text that went through foldForSearch contains the search.
    bool foundIn(QStringView foldedText) const;

private:
    QString m_typed;
    QString m_folded;
};

} // namespace qm::library
