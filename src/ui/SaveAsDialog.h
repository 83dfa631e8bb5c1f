#pragma once

#include <QString>

namespace qm {

// Asks where to save a capture elsewhere, with the desktop's file dialog: starts in Pictures
// with a new capture's name, and has asked before an existing file is replaced. Empty when
// the user cancels. Adds ".png" to a name typed without it.
QString askWhereToSaveCapture();

} // namespace qm
