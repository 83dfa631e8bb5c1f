#pragma once

#include "base/AppId.h"

#include <QString>

namespace qm {

// Where the running program answers on the session bus.
inline const QString busServiceName = applicationId;
inline const QString busObjectPath = QStringLiteral("/com/quillworks/Quillmark");
inline const QString busInterface = applicationId;

} // namespace qm
