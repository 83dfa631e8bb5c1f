#pragma once

#include "base/Preferences.h"

namespace qm {

// Light and Dark set the application's palette; System hands colours back to the desktop's
// theme. Does nothing without a GUI application.
void applyApplicationTheme(AppTheme theme);

} // namespace qm
