#pragma once

#include "platform/video/api/ScreenVideoSource.h"

#include <QByteArray>

namespace qm::platform {

// Screen streams of an X11 session (X11ScreenVideoSource). Whether the display can be
// recorded at all is asked once, when the backend is made.
class X11ScreenVideoBackend final : public ScreenVideoBackend {
public:
    explicit X11ScreenVideoBackend(QByteArray displayName = {});

    QString name() const override { return QStringLiteral("x11"); }
    QString unavailableReason() const override { return m_unavailable; }
    std::unique_ptr<ScreenVideoSource> createSource() override;

private:
    QByteArray m_displayName;
    QString m_unavailable;
};

} // namespace qm::platform
