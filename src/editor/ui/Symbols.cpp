#include "editor/ui/Symbols.h"

#include "ui/Icons.h"
#include "ui/Symbols.h"

namespace qm {

void drawSymbol(QPainter& painter, const QString& name, const QRectF& box, const QColor& color) {
    paintIcon(painter, iconNameForSymbol(name), box, color);
}

QIcon symbolIcon(const QString& name, QColor color) {
    const QString icon = iconNameForSymbol(name);
    return color.isValid() ? tintedIcon(icon, color) : themedIcon(icon);
}

} // namespace qm
