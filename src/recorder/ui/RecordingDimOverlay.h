#pragma once

#include <QObject>
#include <QPointer>
#include <QRect>
#include <QWidget>
#include <vector>

namespace qm {

// One screen's dimming: black at 35 % everywhere but the hole, and a 2-pixel outline just
// outside the hole, so the outline itself is not recorded. Lets every click through.
class DimView final : public QWidget {
    Q_OBJECT
public:
    static constexpr double dimAlpha = 0.35;
    static constexpr int outlineWidth = 2;

    // `hole` in the view's own coordinates.
    explicit DimView(const QRect& hole);
    QRect hole() const { return m_hole; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    QRect m_hole;
};

// While an area is recorded, darkens the rest of every screen the area touches and outlines
// the area. The windows take no input: the desktop beneath stays fully usable. Without a
// compositing manager nothing can be see-through, so only the outline is drawn.
class RecordingDimOverlay final : public QObject {
    Q_OBJECT
public:
    explicit RecordingDimOverlay(QObject* parent = nullptr);
    ~RecordingDimOverlay() override;

    // `area` in global logical coordinates.
    void show(const QRect& area);
    void close();

    // One per screen touched, while shown.
    std::vector<DimView*> windows() const;

private:
    std::vector<QPointer<DimView>> m_windows;
};

} // namespace qm
