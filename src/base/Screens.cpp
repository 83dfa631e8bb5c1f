#include "base/Screens.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>

namespace qm {

QScreen* screenUnderPointer() {
    if (QScreen* screen = QGuiApplication::screenAt(QCursor::pos()))
        return screen;
    if (QScreen* primary = QGuiApplication::primaryScreen())
        return primary;
    const auto screens = QGuiApplication::screens();
    return screens.isEmpty() ? nullptr : screens.first();
}

} // namespace qm
