#pragma once

#include <QColor>
#include <QIcon>
#include <QImage>
#include <QSizeF>
#include <QString>

class QPainter;
class QRectF;

// Icons by their freedesktop names ("edit-copy", "document-save", "draw-arrow", …): the
// desktop's icon theme first, the bundled line art of the same name otherwise. Every name the
// program uses has a bundled drawing, so an icon never goes missing on a bare desktop.
namespace qm {

bool hasBundledIcon(const QString& name);
// Whether renderIcon() can draw it: a bundled icon or a symbolic one in the theme.
bool hasIcon(const QString& name);

// For ordinary widgets: the theme's icon, else the bundled drawing in the palette's text
// colour (faded when disabled).
QIcon themedIcon(const QString& name);

// For surfaces of a fixed colour (the dark floating panels, the editor's zoom bar): one colour
// only, taken from the theme's symbolic variant ("edit-copy-symbolic") or the bundled drawing.
QIcon tintedIcon(const QString& name, const QColor& color);
// The same drawn at a size in points for a screen of the given pixel ratio; a null image for
// names neither the theme nor the bundle knows.
QImage renderIcon(const QString& name, const QColor& tint, QSizeF size, qreal devicePixelRatio);
void paintIcon(QPainter& painter, const QString& name, const QRectF& box, const QColor& tint);

} // namespace qm
