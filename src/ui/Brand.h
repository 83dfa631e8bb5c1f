#pragma once

#include <QColor>

namespace qm::Brand {

// The accent colour of the program's own surfaces.
inline QColor yellow() {
    return QColor(255, 214, 10);
}

} // namespace qm::Brand
