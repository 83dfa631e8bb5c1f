#pragma once

#include <QColor>
#include <QIcon>
#include <QString>

class QPainter;
class QRectF;

namespace qm {

// The editor's icons, drawn as line art and named like the icon set the rest of the program
// uses ("rectangle", "arrow.up.right", "crop", …). Unknown names draw a small dot.
void drawSymbol(QPainter& painter, const QString& name, const QRectF& box, const QColor& color);
// The symbol as an icon, crisp on any screen scale; `color` invalid means the palette's text.
QIcon symbolIcon(const QString& name, QColor color = QColor());

} // namespace qm
