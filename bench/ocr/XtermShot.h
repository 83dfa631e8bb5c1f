#pragma once

#include "TextCorpus.h"

#include <QStringList>
#include <optional>

namespace qm::bench {

// A real screenshot of xterm showing the lines in the given Xft face and point size, taken on
// a private Xvfb; none when Xvfb, xterm or ImageMagick's import is missing.
std::optional<TextSample> xtermScreenshot(const QString& name, const QStringList& lines,
                                          const QString& face, int points);

} // namespace qm::bench
