#pragma once

#include <QColor>
#include <QImage>
#include <QSizeF>
#include <QStringView>

namespace qm {

// Whether the bundled symbol set has a symbol of that name ("doc.on.doc", "xmark" …).
bool hasSymbol(QStringView name);

// The named symbol drawn in one colour at a size in points, for a screen of the given pixel
// ratio; a null image for unknown names.
QImage renderSymbol(QStringView name, const QColor& tint, QSizeF size, qreal devicePixelRatio);

} // namespace qm
