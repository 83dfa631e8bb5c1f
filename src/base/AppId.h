#pragma once

#include <QString>

namespace qm {

// The one name the desktop knows the program by: the desktop file, the session-bus name, the
// portals and the sound events all use it.
inline const QString applicationId = QStringLiteral("com.quillworks.Quillmark");

} // namespace qm
