#pragma once

#include <QColor>
#include <QIcon>
#include <QString>

class QPainter;
class QRectF;

// Transitional: the editor names its icons after another system's symbol set ("rectangle",
// "arrow.up.right", "crop", …). These wrappers take those names and draw the icon of the
// matching freedesktop name through ui/Icons.h ("draw-rectangle", "draw-arrow",
// "transform-crop"); freedesktop names pass through unchanged. They go once the editor's call
// sites use ui/Icons.h directly.
namespace qm {

void drawSymbol(QPainter& painter, const QString& name, const QRectF& box, const QColor& color);
// The desktop theme's icon, else the bundled drawing in the palette's text colour; with a
// colour, the icon in that colour alone (for the zoom bar over the canvas).
QIcon symbolIcon(const QString& name, QColor color = QColor());

} // namespace qm
