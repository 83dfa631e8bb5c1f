#pragma once

class QScreen;

namespace qm {

// The screen under the pointer, else the primary screen, else any screen; none only when the
// display has no screens at all.
QScreen* screenUnderPointer();

} // namespace qm
