#pragma once

#include <QList>
#include <QObject>
#include <optional>

namespace qm {

// How the editor window shows the capture: the chosen zoom (or fit), the fit the viewport
// allows, and whether the hand tool is held. View state only; the document never sees it.
class ZoomState : public QObject {
    Q_OBJECT

public:
    // Zoom steps in percent, smallest first.
    static const QList<double>& zoomSteps();
    // The zoom to show an image at when `exactFit` percent would just fit it: full size when
    // it fits, else the largest whole fraction that fits (50, 33⅓, 25, 20 … 10 %), so every
    // screen pixel stands for a whole number of image pixels and nothing looks soft. Images
    // too large even for 10 % get the exact fit.
    static double crispFitPercent(double exactFit);

    using QObject::QObject;

    std::optional<double> zoomPercent() const { return m_zoomPercent; } // none = fit
    void setZoomPercent(const std::optional<double>& percent);
    double fitPercent() const { return m_fitPercent; }
    void setFitPercent(double percent);
    double currentZoomPercent() const { return m_zoomPercent.value_or(m_fitPercent); }
    // The next step above (below) the current zoom, stopping at the ends.
    void zoomIn();
    void zoomOut();
    bool handToolActive() const { return m_handToolActive; }
    void setHandToolActive(bool on);

Q_SIGNALS:
    void zoomPercentChanged();
    void fitPercentChanged();
    void handToolActiveChanged();

private:
    std::optional<double> m_zoomPercent;
    double m_fitPercent = 100;
    bool m_handToolActive = false;
};

} // namespace qm
