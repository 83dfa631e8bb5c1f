#include "recorder/ui/RecordingControlsView.h"

#include "recorder/controls/RecordingState.h"
#include "recorder/ui/ControlButton.h"
#include "recorder/ui/RecordingDot.h"
#include "ui/FloatingWindow.h"

#include <QFontDatabase>
#include <QHBoxLayout>
#include <QPainter>

namespace qm {

namespace {
constexpr double kRadius = 14.0;
} // namespace

RecordingControlsView::RecordingControlsView(RecordingState& state,
                                             std::function<void()> onPauseToggle,
                                             std::function<void()> onStop)
    : m_state(state)
    , m_dot(new RecordingDot(this))
    , m_time(new QLabel(this))
    , m_pause(
          new ControlButton(QStringLiteral("media-playback-pause"), tr("Pause"), Qt::white, this))
    , m_stop(new ControlButton(QStringLiteral("media-playback-stop"), tr("Stop Recording"),
                               RecordingDot::red(), this)) {
    setObjectName(QStringLiteral("RecordingControls"));
    setWindowTitle(QStringLiteral("Quillmark Recording Controls"));
    makeFloatingWindow(this, PointerInput::Accept);

    // Digits of one width, so the bar does not twitch as the seconds change.
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setPixelSize(14);
    font.setWeight(QFont::DemiBold);
    m_time->setFont(font);
    m_time->setStyleSheet(QStringLiteral("color: white;"));
    m_time->setMinimumWidth(QFontMetrics(font).horizontalAdvance(QStringLiteral("00:00")));

    auto* row = new QHBoxLayout(this);
    row->setSizeConstraint(QLayout::SetFixedSize);
    row->setContentsMargins(14, 7, 8, 7);
    row->setSpacing(10);
    row->addWidget(m_dot);
    row->addWidget(m_time);
    row->addSpacing(2);
    row->addWidget(m_pause);
    row->addWidget(m_stop);

    connect(m_pause, &QAbstractButton::clicked, this, [cb = std::move(onPauseToggle)] {
        if (cb)
            cb();
    });
    connect(m_stop, &QAbstractButton::clicked, this, [cb = std::move(onStop)] {
        if (cb)
            cb();
    });
    connect(&m_state, &RecordingState::elapsedChanged, this,
            [this] { m_time->setText(m_state.display()); });
    connect(&m_state, &RecordingState::pausedChanged, this, &RecordingControlsView::showPaused);
    m_time->setText(m_state.display());
    showPaused(m_state.isPaused());
}

void RecordingControlsView::showPaused(bool paused) {
    m_dot->setPaused(paused);
    if (paused)
        m_pause->setSymbol(QStringLiteral("media-playback-start"), tr("Resume"));
    else
        m_pause->setSymbol(QStringLiteral("media-playback-pause"), tr("Pause"));
}

void RecordingControlsView::resizeEvent(QResizeEvent*) {
    shapeRounded(this, kRadius);
}

void RecordingControlsView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    paintPanelFace(painter, this, kRadius);
}

} // namespace qm
