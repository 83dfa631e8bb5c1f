#pragma once

#include <QColor>
#include <QImage>
#include <QSizeF>
#include <QString>
#include <QStringView>

// Transitional: the program's icons used to be named after another system's symbol set
// ("doc.on.doc", "xmark", "arrow.up.right" …). Callers outside src/ui still pass those names;
// these wrappers take them and draw the icon of the matching freedesktop name (ui/Icons.h).
// They go once every caller names icons the freedesktop way.
namespace qm {

// The freedesktop name of an old symbol name; any other name comes back unchanged, so new
// names pass through too.
QString iconNameForSymbol(QStringView name);
// The old symbol name of an icon name, for checks still written against the old names.
QString symbolForIconName(QStringView iconName);

bool hasSymbol(QStringView name);
QImage renderSymbol(QStringView name, const QColor& tint, QSizeF size, qreal devicePixelRatio);

} // namespace qm
