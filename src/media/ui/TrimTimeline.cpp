#include "media/ui/TrimTimeline.h"

#include "media/player/Thumbnails.h"
#include "media/player/TrimSession.h"

#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

namespace qm::media::ui {

using player::DragTarget;

namespace {
constexpr int kSideMargin = 10; // room for the handles at the very ends
constexpr int kHandleWidth = 8;
} // namespace

TrimTimeline::TrimTimeline(player::TrimSession& session, QWidget* parent)
    : QWidget(parent)
    , m_session(session) {
    setFixedHeight(kStripHeight + 8);
    setMinimumWidth(200);
    setCursor(Qt::PointingHandCursor);
    for (auto signal :
         {&player::TrimSession::thumbnailsChanged, &player::TrimSession::currentChanged,
          &player::TrimSession::rangeChanged, &player::TrimSession::durationChanged})
        connect(&m_session, signal, this, qOverload<>(&QWidget::update));
}

QRect TrimTimeline::stripRect() const {
    return QRect(kSideMargin, 4, width() - 2 * kSideMargin, kStripHeight);
}

int TrimTimeline::xAt(double seconds) const {
    const QRect strip = stripRect();
    return strip.left() + static_cast<int>(std::lround(
                              player::xAtTime(seconds, strip.width(), m_session.duration())));
}

double TrimTimeline::timeAt(double x) const {
    const QRect strip = stripRect();
    return player::timeAtX(x - strip.left(), strip.width(), m_session.duration());
}

void TrimTimeline::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    const QRect strip = stripRect();
    painter.fillRect(strip, QColor(40, 40, 40));
    // Each frame fills its fourteenth of the strip, cut to fit, in the order they arrived.
    const auto& frames = m_session.thumbnails();
    const double slot = double(strip.width()) / player::kThumbnailCount;
    for (int i = 0; i < frames.size() && i < player::kThumbnailCount; ++i) {
        const QRectF target(strip.left() + i * slot, strip.top(), slot, strip.height());
        const QImage& image = frames[i];
        // Cut the frame's sides to the slot's shape rather than squeeze it.
        const double wanted = image.height() * target.width() / target.height();
        QRectF source(0, 0, image.width(), image.height());
        if (wanted < image.width())
            source = QRectF((image.width() - wanted) / 2, 0, wanted, image.height());
        painter.drawImage(target, image, source);
    }
    if (m_session.duration() <= 0)
        return;
    const int startX = xAt(m_session.trimStart());
    const int endX = xAt(m_session.trimEnd());
    const QColor dim(0, 0, 0, 150);
    painter.fillRect(QRect(strip.left(), strip.top(), startX - strip.left(), strip.height()), dim);
    painter.fillRect(QRect(endX, strip.top(), strip.right() + 1 - endX, strip.height()), dim);
    const QColor accent(255, 200, 40);
    painter.setPen(QPen(accent, 3));
    painter.drawRect(
        QRect(startX, strip.top(), endX - startX, strip.height()).adjusted(1, 1, -1, -1));
    painter.setPen(Qt::NoPen);
    painter.setBrush(accent);
    painter.drawRoundedRect(
        QRectF(startX - kHandleWidth, strip.top(), kHandleWidth, strip.height()), 3, 3);
    painter.drawRoundedRect(QRectF(endX, strip.top(), kHandleWidth, strip.height()), 3, 3);
    const int playX = xAt(m_session.current());
    painter.setBrush(Qt::white);
    painter.drawRect(QRect(playX - 1, 0, 2, height()));
}

void TrimTimeline::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton)
        return;
    m_pressed = true;
    m_pressX = event->position().x();
    m_target.reset();
}

void TrimTimeline::mouseMoveEvent(QMouseEvent* event) {
    if (!m_pressed)
        return;
    if (!m_target)
        m_target =
            player::dragTargetAt(m_pressX, xAt(m_session.trimStart()), xAt(m_session.trimEnd()));
    apply(*m_target, event->position().x());
}

void TrimTimeline::mouseReleaseEvent(QMouseEvent* event) {
    if (!m_pressed || event->button() != Qt::LeftButton)
        return;
    if (!m_target) // a click without a drag puts the playhead there
        apply(DragTarget::Scrub, event->position().x());
    m_pressed = false;
    m_target.reset();
}

void TrimTimeline::apply(DragTarget target, double x) {
    const double t = timeAt(x);
    switch (target) {
    case DragTarget::Start:
        m_session.moveStartTo(t);
        break;
    case DragTarget::End:
        m_session.moveEndTo(t);
        break;
    case DragTarget::Scrub:
        m_session.seek(t);
        break;
    }
}

} // namespace qm::media::ui
