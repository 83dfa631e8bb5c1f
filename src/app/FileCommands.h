#pragma once

#include "app/CommandLine.h"

namespace qm {

// The commands that work on movie files alone, run in this process with no display and no
// running instance: progress on stderr, the written file on stdout. Returns the exit status
// (0 done, 1 with the reason on stderr). Needs a QCoreApplication.
int runFileCommand(const Command& command);

} // namespace qm
