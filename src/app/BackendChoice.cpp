#include "app/BackendChoice.h"

#include "platform/audio/pulse/PulseAudioCaptureBackend.h"
#include "platform/camera/v4l2/V4l2CameraBackend.h"
#include "platform/capture/null/NullCaptureBackend.h"
#include "platform/capture/x11/X11CaptureBackend.h"
#include "platform/input/null/NullClickSource.h"
#include "platform/input/x11/X11ClickSource.h"
#include "platform/secrets/libsecret/LibsecretStore.h"
#include "platform/secrets/null/NullSecretStore.h"
#include "platform/shortcuts/x11/X11GlobalShortcuts.h"
#include "platform/sound/canberra/CanberraSoundPlayer.h"
#include "platform/surface/null/NullSurfaceBackend.h"
#include "platform/surface/x11/X11SurfaceBackend.h"
#include "platform/video/null/NullScreenVideoBackend.h"
#include "platform/video/x11/X11ScreenVideoBackend.h"

#include <QGuiApplication>

namespace qm::platform {

namespace {
QString env(const char* name) {
    return qEnvironmentVariable(name);
}
} // namespace

CaptureSession CaptureSession::fromEnvironment() {
    return {env("XDG_SESSION_TYPE"), env("WAYLAND_DISPLAY"), env("DISPLAY"),
            env("QUILLMARK_CAPTURE_BACKEND")};
}

CaptureBackendChoice chooseCaptureBackend(const CaptureSession& session) {
    const QString forced = session.override.trimmed().toLower();
    if (forced == QLatin1String("null"))
        return {CaptureBackendKind::Null, QStringLiteral("Screen capture is turned off.")};
    if (forced == QLatin1String("x11"))
        return {CaptureBackendKind::X11, {}};

    // Under Wayland the X server only sees its own clients, so a grab would miss most of the
    // screen; the desktop portal is the way there.
    const bool wayland =
        session.sessionType.compare(QLatin1String("wayland"), Qt::CaseInsensitive) == 0 ||
        !session.waylandDisplay.isEmpty();
    if (wayland)
        return {CaptureBackendKind::Null,
                QStringLiteral("Screen capture on Wayland is not supported yet.")};
    if (!session.x11Display.isEmpty())
        return {CaptureBackendKind::X11, {}};
    return {CaptureBackendKind::Null, QStringLiteral("No display was found to capture.")};
}

std::unique_ptr<ScreenCaptureBackend> createScreenCaptureBackend(const CaptureSession& session) {
    const CaptureBackendChoice choice = chooseCaptureBackend(session);
    if (choice.kind == CaptureBackendKind::X11) {
        if (auto x11 = X11CaptureBackend::connect(session.x11Display.toLocal8Bit()))
            return x11;
        return std::make_unique<NullCaptureBackend>(
            QStringLiteral("The X display could not be opened for capture."));
    }
    return std::make_unique<NullCaptureBackend>(choice.reason);
}

std::unique_ptr<ScreenVideoBackend> createScreenVideoBackend(const CaptureSession& session) {
    const CaptureBackendChoice choice = chooseCaptureBackend(session);
    if (choice.kind == CaptureBackendKind::X11)
        return std::make_unique<X11ScreenVideoBackend>(session.x11Display.toLocal8Bit());
    return std::make_unique<NullScreenVideoBackend>(
        QString(choice.reason)
            .replace(QStringLiteral("Screen capture"), QStringLiteral("Screen recording")));
}

std::unique_ptr<ClickSourceBackend> createClickSourceBackend(const CaptureSession& session) {
    if (chooseCaptureBackend(session).kind == CaptureBackendKind::X11)
        return std::make_unique<X11ClickSource>(session.x11Display);
    return std::make_unique<NullClickSource>();
}

std::unique_ptr<AudioCaptureBackend> createAudioCaptureBackend() {
    return std::make_unique<PulseAudioCaptureBackend>();
}

std::unique_ptr<SecretStore> createSecretStore() {
    auto keyring = LibsecretStore::open();
    if (!keyring)
        return std::make_unique<NullSecretStore>(keyring.error().reason);
    return std::move(*keyring);
}

std::unique_ptr<CameraBackend> createCameraBackend() {
    return std::make_unique<V4l2CameraBackend>();
}

std::unique_ptr<SurfaceBackend> createSurfaceBackend() {
    if (auto x11 = X11SurfaceBackend::create())
        return x11;
    return std::make_unique<NullSurfaceBackend>(
        QStringLiteral("Floating panels stay opaque on this display server."));
}

} // namespace qm::platform

namespace qm {

std::unique_ptr<GlobalShortcutBackend> createGlobalShortcutBackend(QObject* parent) {
    const QByteArray forced = qgetenv("QUILLMARK_SHORTCUT_BACKEND");
    const bool x11Session = QGuiApplication::platformName() == QLatin1String("xcb");
    if (forced != "null" && (forced == "x11" || x11Session)) {
        if (auto x11 = X11GlobalShortcuts::connect(parent))
            return x11;
        return std::make_unique<NullGlobalShortcuts>(
            QStringLiteral("Global shortcuts are unavailable because the X display could not "
                           "be reached."),
            parent);
    }
    return std::make_unique<NullGlobalShortcuts>(
        QStringLiteral("This desktop does not let programs take global shortcuts; bind "
                       "\"quillmark capture region\" to a key in your desktop's keyboard "
                       "settings instead."),
        parent);
}

std::unique_ptr<SoundPlayer> makeSoundPlayer() {
    if (auto canberra = CanberraSoundPlayer::open())
        return canberra;
    return std::make_unique<NullSoundPlayer>();
}

} // namespace qm
