#pragma once

// The composition root's choice of concrete backends for this session: the only place that
// names them.

#include "platform/audio/api/AudioCapture.h"
#include "platform/camera/api/CameraSource.h"
#include "platform/capture/api/ScreenCaptureBackend.h"
#include "platform/input/api/ClickSource.h"
#include "platform/shortcuts/api/GlobalShortcutBackend.h"
#include "platform/sound/api/SoundPlayer.h"
#include "platform/surface/api/SurfaceBackend.h"
#include "platform/video/api/ScreenVideoSource.h"

#include <QString>
#include <memory>

namespace qm::platform {
class SecretStore;

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

// Recording: the screen stream, sound, the camera and global clicks of this session. The
// screen and the clicks follow the capture choice (X11 or nothing, with its reason); sound
// and the camera are the same on every display server.
std::unique_ptr<ScreenVideoBackend>
createScreenVideoBackend(const CaptureSession& session = CaptureSession::fromEnvironment());
std::unique_ptr<ClickSourceBackend>
createClickSourceBackend(const CaptureSession& session = CaptureSession::fromEnvironment());
std::unique_ptr<AudioCaptureBackend> createAudioCaptureBackend();
std::unique_ptr<CameraBackend> createCameraBackend();

// The desktop keyring (Secret Service through libsecret), or the Null store with the reason
// when none answers on the session bus.
std::unique_ptr<SecretStore> createSecretStore();

// What floating windows may ask the display server: the X11 one when the application runs on
// X11, else one that asks nothing. Needs the QGuiApplication.
std::unique_ptr<SurfaceBackend> createSurfaceBackend();

} // namespace qm::platform

namespace qm {

// The shortcut backend for this session: X11 key grabs on an X display; elsewhere a Null
// backend that says why (the command line still reaches every action).
std::unique_ptr<GlobalShortcutBackend> createGlobalShortcutBackend(QObject* parent = nullptr);

// The best player this session offers: libcanberra when it can reach a sound server, else the
// silent one.
std::unique_ptr<SoundPlayer> makeSoundPlayer();

} // namespace qm
