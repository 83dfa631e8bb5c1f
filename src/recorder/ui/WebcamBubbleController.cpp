#include "recorder/ui/WebcamBubbleController.h"

#include "base/Log.h"
#include "ui/FloatingWindow.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>
#include <QScreen>
#include <QThreadPool>
#include <QWindow>
#include <algorithm>
#include <mutex>

namespace qm {

BubbleView::BubbleView() {
    setObjectName(QStringLiteral("WebcamBubble"));
    setWindowTitle(QStringLiteral("Quillmark Webcam"));
    makeFloatingWindow(this, PointerInput::PassThrough);
    setFixedSize(diameter, diameter);
}

void BubbleView::setFrame(const QImage& frame) {
    m_frame = frame;
    update();
}

void BubbleView::resizeEvent(QResizeEvent*) {
    shapeRounded(this, width() / 2.0);
}

void BubbleView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    const QRectF bounds(rect());
    if (testAttribute(Qt::WA_TranslucentBackground)) {
        painter.setCompositionMode(QPainter::CompositionMode_Source);
        painter.fillRect(bounds, Qt::transparent);
        painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    }
    QPainterPath circle;
    circle.addEllipse(bounds);
    painter.fillPath(circle, QColor(24, 24, 27));
    if (!m_frame.isNull()) {
        painter.save();
        painter.setClipPath(circle);
        // Fill the circle, cropping the longer side; mirrored around the vertical axis.
        const QSizeF size =
            QSizeF(m_frame.size()).scaled(bounds.size(), Qt::KeepAspectRatioByExpanding);
        const QRectF target(bounds.center() - QPointF(size.width(), size.height()) / 2, size);
        painter.translate(bounds.width(), 0);
        painter.scale(-1, 1);
        painter.drawImage(target, m_frame);
        painter.restore();
    }
    painter.setPen(QPen(QColor(255, 255, 255, 230), borderWidth));
    painter.setBrush(Qt::NoBrush);
    const double inset = borderWidth / 2;
    painter.drawEllipse(bounds.adjusted(inset, inset, -inset, -inset));
}

// What the camera's thread and the GUI thread share for one showing of the bubble.
struct WebcamBubbleController::Session {
    std::mutex lock;
    bool closed = false;
    std::unique_ptr<platform::CameraStream> stream;
    QImage latest;
    bool repaintPosted = false;
    QPointer<BubbleView> view; // GUI thread only
};

namespace {
void stopInBackground(std::unique_ptr<platform::CameraStream> stream) {
    if (!stream)
        return;
    std::shared_ptr<platform::CameraStream> owned(std::move(stream));
    QThreadPool::globalInstance()->start([owned] { owned->stop(); });
}
} // namespace

WebcamBubbleController::WebcamBubbleController(platform::CameraBackend& cameras, QObject* parent)
    : QObject(parent)
    , m_cameras(cameras) {}

WebcamBubbleController::~WebcamBubbleController() {
    close();
}

QRect WebcamBubbleController::placement(const QRect& area, const QRect& screen) {
    const int d = BubbleView::diameter;
    int x = area.right() + 1 - d - margin;
    int y = area.bottom() + 1 - d - margin;
    x = std::clamp(x, screen.left(), std::max(screen.left(), screen.right() + 1 - d));
    y = std::clamp(y, screen.top(), std::max(screen.top(), screen.bottom() + 1 - d));
    return {x, y, d, d};
}

void WebcamBubbleController::show(QScreen* screen, std::optional<QRect> area) {
    close();
    if (!screen)
        return;
    const QRect geometry =
        placement(area.value_or(screen->availableGeometry()), screen->geometry());
    auto session = std::make_shared<Session>();
    m_session = session;
    QPointer<WebcamBubbleController> self(this);
    QPointer<QScreen> target(screen);
    platform::CameraBackend* cameras = &m_cameras;

    QThreadPool::globalInstance()->start([session, cameras, self, target, geometry] {
        auto opened = cameras->openDefault();
        QString reason;
        if (opened.ok()) {
            std::lock_guard guard(session->lock);
            if (session->closed) {
                opened.value()->stop();
                return;
            }
            session->stream = std::move(opened).value();
            std::weak_ptr<Session> weak = session;
            const auto started = session->stream->start(
                [weak](const QImage& frame) {
                    const auto live = weak.lock();
                    if (!live)
                        return;
                    std::lock_guard frameGuard(live->lock);
                    live->latest = frame;
                    if (live->repaintPosted)
                        return; // the GUI has not taken the last one yet: keep only the newest
                    live->repaintPosted = true;
                    QMetaObject::invokeMethod(
                        qApp,
                        [weak] {
                            const auto gui = weak.lock();
                            if (!gui)
                                return;
                            QImage newest; // shared, not copied: the camera's next frame
                            {              // is a new image
                                std::lock_guard take(gui->lock);
                                newest = gui->latest;
                                gui->repaintPosted = false;
                            }
                            if (gui->view)
                                gui->view->setFrame(newest);
                        },
                        Qt::QueuedConnection);
                },
                [](const QString&) {});
            if (!started.ok()) {
                reason = started.error().reason;
                session->stream.reset();
            }
        } else {
            reason = opened.error().reason;
        }
        QMetaObject::invokeMethod(
            qApp,
            [session, self, target, geometry, reason] {
                if (!self || self->m_session != session)
                    return; // closed or shown again meanwhile
                if (!reason.isEmpty()) {
                    self->m_session.reset();
                    if (!self->m_reportedMissing) {
                        self->m_reportedMissing = true;
                        qCWarning(lcRecording).noquote()
                            << "Quillmark: no camera available, recording without webcam";
                    }
                    Q_EMIT self->unavailable(reason);
                    return;
                }
                self->opened(session, geometry, target);
            },
            Qt::QueuedConnection);
    });
}

void WebcamBubbleController::opened(const std::shared_ptr<Session>& session, QRect geometry,
                                    QScreen* screen) {
    auto* view = new BubbleView;
    view->winId();
    if (screen)
        view->windowHandle()->setScreen(screen);
    view->setGeometry(geometry);
    {
        std::lock_guard guard(session->lock);
        if (!session->latest.isNull())
            view->setFrame(session->latest);
    }
    session->view = view;
    m_view = view;
    view->show();
    view->raise();
    Q_EMIT shown();
}

void WebcamBubbleController::close() {
    delete m_view.data();
    m_view = nullptr;
    if (!m_session)
        return;
    std::unique_ptr<platform::CameraStream> stream;
    {
        std::lock_guard guard(m_session->lock);
        m_session->closed = true;
        stream = std::move(m_session->stream);
    }
    m_session.reset();
    stopInBackground(std::move(stream));
}

} // namespace qm
