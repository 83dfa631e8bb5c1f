#include "editor/model/ZoomState.h"

#include <algorithm>

namespace qm {

const QList<double>& ZoomState::zoomSteps() {
    static const QList<double> steps{10, 25, 50, 75, 100, 150, 200, 300, 400, 600, 800};
    return steps;
}

double ZoomState::crispFitPercent(double exactFit) {
    // A hair of tolerance: a viewport a fraction of a point short still shows 50 % whole.
    constexpr double slack = 0.01;
    for (int n = 1; n <= 10; ++n)
        if (100.0 / n <= exactFit + slack)
            return 100.0 / n;
    return exactFit;
}

void ZoomState::setZoomPercent(const std::optional<double>& percent) {
    if (m_zoomPercent == percent)
        return;
    m_zoomPercent = percent;
    Q_EMIT zoomPercentChanged();
}

void ZoomState::setFitPercent(double percent) {
    if (m_fitPercent == percent)
        return;
    m_fitPercent = percent;
    Q_EMIT fitPercentChanged();
}

void ZoomState::zoomIn() {
    const double current = currentZoomPercent();
    const auto& steps = zoomSteps();
    const auto it = std::find_if(steps.cbegin(), steps.cend(),
                                 [current](double s) { return s > current + 0.5; });
    setZoomPercent(it != steps.cend() ? *it : steps.last());
}

void ZoomState::zoomOut() {
    const double current = currentZoomPercent();
    const auto& steps = zoomSteps();
    const auto it = std::find_if(steps.crbegin(), steps.crend(),
                                 [current](double s) { return s < current - 0.5; });
    setZoomPercent(it != steps.crend() ? *it : steps.first());
}

void ZoomState::setHandToolActive(bool on) {
    if (m_handToolActive == on)
        return;
    m_handToolActive = on;
    Q_EMIT handToolActiveChanged();
}

} // namespace qm
