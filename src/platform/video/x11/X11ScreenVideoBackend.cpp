#include "platform/video/x11/X11ScreenVideoBackend.h"

#include "platform/video/x11/X11ScreenVideoSource.h"
#include "platform/video/x11/X11VideoDisplay.h"

namespace qm::platform {

X11ScreenVideoBackend::X11ScreenVideoBackend(QByteArray displayName)
    : m_displayName(std::move(displayName)) {
    auto display = x11::X11VideoDisplay::open(m_displayName);
    if (!display)
        m_unavailable = display.error().reason;
}

std::unique_ptr<ScreenVideoSource> X11ScreenVideoBackend::createSource() {
    return std::make_unique<X11ScreenVideoSource>(m_displayName);
}

} // namespace qm::platform
