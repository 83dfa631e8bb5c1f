#pragma once

#include "base/Result.h"
#include "platform/input/api/ClickSource.h"
#include "recorder/ui/RippleView.h"

#include <QObject>
#include <QPointer>
#include <memory>

class QScreen;

namespace qm {

// Click highlights of a recording: a ripple on screen at every left and right click over the
// recorded screen, drawn where the recording sees it.
class ClickHighlightController final : public QObject {
    Q_OBJECT
public:
    // `clicks` must outlive this. Without a clock the steady clock times the ripples.
    explicit ClickHighlightController(platform::ClickSourceBackend& clicks,
                                      RippleView::Clock clock = {}, QObject* parent = nullptr);
    ~ClickHighlightController() override;

    // Covers `screen` and starts watching clicks; says why when clicks cannot be seen here.
    Status show(QScreen* screen);
    void close();

    // The ripple window, while shown.
    RippleView* window() const { return m_view; }

    // Where a desktop pixel lies on `screen`, in global logical coordinates. Qt keeps each
    // screen's top-left at its pixel position and scales from there.
    static QPointF logicalPoint(const QScreen* screen, QPoint devicePixel);

private:
    void addRipple(QPoint devicePixel);

    platform::ClickSourceBackend& m_clicks;
    RippleView::Clock m_clock;
    QPointer<QScreen> m_screen;
    QPointer<RippleView> m_view;
    std::unique_ptr<platform::ClickWatch> m_watch;
};

} // namespace qm
