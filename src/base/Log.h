#pragma once

#include <QLoggingCategory>

// One category per area; the message texts carry the full "Quillmark <area> …: " prefix so
// the log reads the same whatever message pattern is in force.
Q_DECLARE_LOGGING_CATEGORY(lcSave)
Q_DECLARE_LOGGING_CATEGORY(lcCapture)
Q_DECLARE_LOGGING_CATEGORY(lcHotkey)
Q_DECLARE_LOGGING_CATEGORY(lcApp)
Q_DECLARE_LOGGING_CATEGORY(lcRecording)
Q_DECLARE_LOGGING_CATEGORY(lcOcr)
Q_DECLARE_LOGGING_CATEGORY(lcLibrary)
Q_DECLARE_LOGGING_CATEGORY(lcAi)

namespace qm {
// The message pattern the program installs: the bare message, as the system log shows it.
void installLogPattern();
} // namespace qm
