#include "recorder/ui/ClickHighlightController.h"

#include <QScreen>
#include <QWindow>

namespace qm {

ClickHighlightController::ClickHighlightController(platform::ClickSourceBackend& clicks,
                                                   RippleView::Clock clock, QObject* parent)
    : QObject(parent)
    , m_clicks(clicks)
    , m_clock(std::move(clock)) {}

ClickHighlightController::~ClickHighlightController() {
    close();
}

QPointF ClickHighlightController::logicalPoint(const QScreen* screen, QPoint devicePixel) {
    const QPointF origin = screen->geometry().topLeft();
    return origin + (QPointF(devicePixel) - origin) / screen->devicePixelRatio();
}

Status ClickHighlightController::show(QScreen* screen) {
    close();
    if (!screen)
        return failure(QStringLiteral("Click highlights need a screen to draw on"));
    QPointer<ClickHighlightController> self(this);
    auto watch = m_clicks.watch([self](const platform::GlobalClick& click) {
        if (self)
            self->addRipple(click.position);
    });
    if (!watch.ok())
        return watch.error();
    m_watch = std::move(watch).value();
    m_screen = screen;

    auto* view = new RippleView(m_clock);
    view->winId();
    view->windowHandle()->setScreen(screen);
    view->setGeometry(screen->geometry());
    // A see-through window waits on screen; an opaque one appears with its first ripple.
    if (view->testAttribute(Qt::WA_TranslucentBackground)) {
        view->show();
        view->raise();
    }
    m_view = view;
    return {};
}

void ClickHighlightController::addRipple(QPoint devicePixel) {
    if (!m_view || !m_screen)
        return;
    const QPointF global = logicalPoint(m_screen, devicePixel);
    if (!QRectF(m_screen->geometry()).contains(global))
        return; // a click on another screen
    m_view->addRipple(global - QPointF(m_screen->geometry().topLeft()));
}

void ClickHighlightController::close() {
    m_watch.reset();
    delete m_view.data();
    m_view = nullptr;
    m_screen = nullptr;
}

} // namespace qm
