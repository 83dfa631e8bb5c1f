#pragma once

#include "app/CommandLine.h"

#include <QString>
#include <chrono>

namespace qm {

// What the quillmark command prints and how it exits, once the running program has answered.
struct ForwardResult {
    int exitCode = 0;
    QString out; // for stdout: the saved file
    QString err; // for stderr: why nothing was saved
};

// Prints what the instance answered and returns the command's exit status.
int printResult(const ForwardResult& result);

// Whether a Quillmark already runs in this session (owns the bus name).
bool instanceRunning();

// Hands the command to the running instance and waits until it ends: for a capture, until its
// file is written, it failed or the user cancelled. An instance that does not take the request
// within `patience` is named with its process id; the request carries that deadline, so the
// instance never carries it out later when it wakes up.
ForwardResult
forwardToRunningInstance(const Command& command,
                         std::chrono::milliseconds patience = std::chrono::seconds(5));

} // namespace qm
