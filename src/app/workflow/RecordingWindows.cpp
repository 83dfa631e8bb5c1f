#include "app/workflow/RecordingWindows.h"

#include "base/Log.h"
#include "recorder/controls/RecordingState.h"
#include "recorder/ui/ClickHighlightController.h"
#include "recorder/ui/RecordingControlsController.h"
#include "recorder/ui/RecordingControlsView.h"
#include "recorder/ui/RecordingDimOverlay.h"
#include "recorder/ui/WebcamBubbleController.h"

#include <QGuiApplication>

namespace qm {

RecordingWindows::RecordingWindows(platform::CameraBackend& camera,
                                   platform::ClickSourceBackend& clicks, QObject* parent)
    : QObject(parent)
    , m_camera(camera)
    , m_clickSource(clicks)
    , m_controls(std::make_unique<RecordingControlsController>())
    , m_dim(std::make_unique<RecordingDimOverlay>()) {}

RecordingWindows::~RecordingWindows() {
    closeAll();
}

RecordingState* RecordingWindows::state() const {
    return m_controls->state();
}

void RecordingWindows::showDecorations(QScreen* screen, const QRect& area, bool webcam,
                                       bool clicks) {
    if (!screen)
        return;
    if (webcam) {
        m_bubble = std::make_unique<WebcamBubbleController>(m_camera);
        // A whole screen puts the bubble in the corner of its visible frame.
        m_bubble->show(screen,
                       area == screen->geometry() ? std::nullopt : std::optional<QRect>(area));
    }
    if (clicks) {
        m_clicks = std::make_unique<ClickHighlightController>(m_clickSource);
        if (Status shown = m_clicks->show(screen); !shown) {
            qCWarning(lcRecording).noquote()
                << QStringLiteral("Recording without click highlights: ") + shown.error().reason;
            m_clicks.reset();
        }
    }
}

void RecordingWindows::showControls(QScreen* screen, const QRect& area) {
    // The recorded screen is preferred for the bar; any other monitor will do.
    QList<QScreen*> screens;
    if (screen)
        screens << screen;
    for (QScreen* other : QGuiApplication::screens())
        if (other != screen)
            screens << other;
    m_barShown = m_controls->show(
        area, screens,
        [this] {
            if (onStop)
                onStop();
        },
        [this](bool paused) {
            if (onPauseToggle)
                onPauseToggle(paused);
        });
    if (RecordingState* state = m_controls->state()) {
        connect(state, &RecordingState::elapsedChanged, this,
                [this, state](double) { Q_EMIT elapsedChanged(state->display()); });
        Q_EMIT elapsedChanged(state->display());
    }
    // Only a part of a screen is dimmed around; a whole screen has nothing to dim.
    if (screen && area != screen->geometry())
        m_dim->show(area);
}

void RecordingWindows::setPaused(bool paused) {
    m_controls->setPaused(paused);
}

void RecordingWindows::closeAll() {
    m_controls->close();
    m_dim->close();
    m_barShown = false;
    if (m_clicks) {
        m_clicks->close();
        m_clicks.reset();
    }
    if (m_bubble) {
        m_bubble->close();
        m_bubble.reset();
    }
}

} // namespace qm
