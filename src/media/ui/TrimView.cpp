#include "media/ui/TrimView.h"

#include "media/player/PlaybackEngine.h"
#include "media/player/TrimSession.h"
#include "media/ui/TrimTimeline.h"
#include "media/ui/VideoSurface.h"

#include <QBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <cmath>

namespace qm::media::ui {

using player::TrimSession;

QString formatMovieTime(double seconds) {
    const auto hundredths = static_cast<long long>(std::floor(std::max(0.0, seconds) * 100 + 0.5));
    return QStringLiteral("%1:%2.%3")
        .arg(hundredths / 6000)
        .arg(hundredths / 100 % 60, 2, 10, QLatin1Char('0'))
        .arg(hundredths % 100, 2, 10, QLatin1Char('0'));
}

namespace {
QPushButton* button(const QString& text, QWidget* parent) {
    auto* b = new QPushButton(text, parent);
    b->setFocusPolicy(Qt::NoFocus); // Space belongs to play/pause, never to a button
    return b;
}
} // namespace

TrimView::TrimView(TrimSession& session, player::PlaybackEngine* engine, bool showsDone,
                   QWidget* parent)
    : QWidget(parent)
    , m_session(session) {
    setFocusPolicy(Qt::StrongFocus);
    m_surface = new VideoSurface(this);
    m_timeline = new TrimTimeline(session, this);
    m_play = button(tr("Play"), this);
    m_trim = button(tr("Trim"), this);
    m_gif = button(tr("Export GIF"), this);
    m_time = new QLabel(this);
    m_range = new QLabel(this);
    m_status = new QLabel(this);
    m_time->setObjectName(QStringLiteral("time"));
    m_range->setObjectName(QStringLiteral("range"));
    m_status->setObjectName(QStringLiteral("status"));
    m_play->setObjectName(QStringLiteral("play"));
    m_trim->setObjectName(QStringLiteral("trim"));
    m_gif->setObjectName(QStringLiteral("gif"));

    auto* controls = new QHBoxLayout;
    controls->addWidget(m_play);
    controls->addWidget(m_time);
    controls->addStretch();
    controls->addWidget(m_range);
    controls->addSpacing(12);
    controls->addWidget(m_trim);
    controls->addWidget(m_gif);
    if (showsDone) {
        auto* done = button(tr("Done"), this);
        done->setObjectName(QStringLiteral("done"));
        controls->addWidget(done);
        connect(done, &QPushButton::clicked, this, [this] {
            if (onDone)
                onDone();
        });
    }
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_surface, 1);
    layout->addWidget(m_timeline);
    layout->addLayout(controls);
    layout->addWidget(m_status);

    connect(m_play, &QPushButton::clicked, this, [this] { m_session.togglePlay(); });
    connect(m_trim, &QPushButton::clicked, this, [this] {
        if (onTrim && m_session.hasTrim() && !m_session.isExporting())
            onTrim(m_session.trimStart(), m_session.trimEnd());
    });
    connect(m_gif, &QPushButton::clicked, this, [this] {
        if (onExportGif && m_session.duration() > 0 && !m_session.isExporting())
            onExportGif(m_session.trimStart(), m_session.trimEnd());
    });
    if (engine)
        connect(engine, &player::PlaybackEngine::pictureChanged, m_surface,
                &VideoSurface::setPicture);
    for (auto signal : {&TrimSession::currentChanged, &TrimSession::rangeChanged,
                        &TrimSession::playingChanged, &TrimSession::durationChanged,
                        &TrimSession::exportingChanged, &TrimSession::statusChanged})
        connect(&m_session, signal, this, &TrimView::refresh);
    refresh();
}

void TrimView::refresh() {
    m_play->setText(m_session.isPlaying() ? tr("Pause") : tr("Play"));
    m_time->setText(formatMovieTime(m_session.current()) + QStringLiteral(" / ") +
                    formatMovieTime(m_session.duration()));
    m_range->setText(formatMovieTime(m_session.trimStart()) + QStringLiteral(" – ") +
                     formatMovieTime(m_session.trimEnd()));
    m_trim->setEnabled(m_session.hasTrim() && !m_session.isExporting());
    m_gif->setEnabled(m_session.duration() > 0 && !m_session.isExporting());
    m_status->setText(m_session.status());
}

void TrimView::keyPressEvent(QKeyEvent* event) {
    const bool shift = event->modifiers() & Qt::ShiftModifier;
    switch (event->key()) {
    case Qt::Key_Space:
        m_session.togglePlay();
        break;
    case Qt::Key_Left:
        shift ? m_session.stepSeconds(-1) : m_session.stepFrames(-1);
        break;
    case Qt::Key_Right:
        shift ? m_session.stepSeconds(1) : m_session.stepFrames(1);
        break;
    case Qt::Key_I:
        m_session.moveStartTo(m_session.current());
        break;
    case Qt::Key_O:
        m_session.moveEndTo(m_session.current());
        break;
    case Qt::Key_Home:
        m_session.seek(m_session.trimStart());
        break;
    case Qt::Key_End:
        m_session.seek(m_session.trimEnd());
        break;
    default:
        QWidget::keyPressEvent(event);
        return;
    }
    event->accept();
}

} // namespace qm::media::ui
