#pragma once

#include "platform/api/ScreenCaptureBackend.h"

#include <QString>
#include <memory>

namespace qm::platform {

// What the session offers, read from its environment.
struct CaptureSession {
    QString sessionType;    // XDG_SESSION_TYPE
    QString waylandDisplay; // WAYLAND_DISPLAY
    QString x11Display;     // DISPLAY
    QString override;       // QUILLMARK_CAPTURE_BACKEND: "x11" or "null", for tests
    static CaptureSession fromEnvironment();
};

enum class CaptureBackendKind { X11, Null };

struct CaptureBackendChoice {
    CaptureBackendKind kind = CaptureBackendKind::Null;
    QString reason; // for Null: the sentence the user is shown
};

// Which backend suits the session; pure, so the rules are tested without a display.
CaptureBackendChoice chooseCaptureBackend(const CaptureSession& session);

// The backend for this session. Never null: when the chosen one cannot start, the Null backend
// says why.
std::unique_ptr<ScreenCaptureBackend>
createScreenCaptureBackend(const CaptureSession& session = CaptureSession::fromEnvironment());

} // namespace qm::platform
