#pragma once

#include "app/CommandLine.h"

namespace qm {

// The commands that work on files alone (trimming, GIFs, searching the save folder), run in
// this process with no display and no running instance: progress on stderr, the result on
// stdout. Returns the exit status (0 done, 1 with the reason on stderr, or nothing found by a
// search). Needs a QCoreApplication.
int runFileCommand(const Command& command);

} // namespace qm
