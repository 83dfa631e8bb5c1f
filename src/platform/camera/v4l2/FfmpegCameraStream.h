#pragma once

#include "platform/camera/api/CameraSource.h"

#include <QMap>

namespace qm::platform {

// A live picture source opened through one of libavdevice's inputs: "video4linux2" for a
// camera, or any other input that yields video ("lavfi" test patterns). Decodes and converts
// on a thread of its own.
class FfmpegCameraStream {
public:
    // Opens the input and its decoder; takes as long as the device needs to answer, so call
    // it off the GUI thread. `options` are the input's own ("video_size" → "640x480").
    static Result<std::unique_ptr<CameraStream>> open(const QString& inputFormat,
                                                      const QString& url,
                                                      const QMap<QString, QString>& options = {});
};

} // namespace qm::platform
