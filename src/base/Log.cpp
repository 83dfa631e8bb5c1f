#include "base/Log.h"

Q_LOGGING_CATEGORY(lcSave, "quillmark.save")
Q_LOGGING_CATEGORY(lcCapture, "quillmark.capture")
Q_LOGGING_CATEGORY(lcHotkey, "quillmark.hotkey")
Q_LOGGING_CATEGORY(lcApp, "quillmark.app")
Q_LOGGING_CATEGORY(lcRecording, "quillmark.recording")
Q_LOGGING_CATEGORY(lcOcr, "quillmark.ocr")
Q_LOGGING_CATEGORY(lcLibrary, "quillmark.library")
Q_LOGGING_CATEGORY(lcAi, "quillmark.ai")

namespace qm {
void installLogPattern() {
    qSetMessagePattern(QStringLiteral("%{message}"));
}
} // namespace qm
