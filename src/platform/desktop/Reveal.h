#pragma once

#include <QString>

namespace qm {

// Shows the file selected in the desktop's file manager (FileManager1 on the session bus);
// without one, opens the folder that holds it.
void revealInFolder(const QString& path);

} // namespace qm
