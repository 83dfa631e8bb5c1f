#pragma once

#include "base/Result.h"

#include <QImage>
#include <QString>
#include <functional>
#include <memory>

namespace qm::platform {

// A running camera. Pictures arrive on the camera's own thread as RGB32 images; the
// callback must return quickly. `onStopped` runs at most once if the camera goes away.
class CameraStream {
public:
    using FrameSink = std::function<void(const QImage&)>;
    using StopSink = std::function<void(const QString& reason)>;

    virtual ~CameraStream() = default;
    virtual Status start(FrameSink onFrame, StopSink onStopped) = 0;
    // Ends the stream and waits until no callback runs any more. Safe to call twice.
    virtual void stop() = 0;
};

// The cameras of this machine.
class CameraBackend {
public:
    virtual ~CameraBackend() = default;
    virtual QString name() const = 0; // "v4l2", "null"
    // Opens the default camera, or says why it cannot ("No camera is connected").
    virtual Result<std::unique_ptr<CameraStream>> openDefault() = 0;
};

} // namespace qm::platform
