#include "platform/camera/v4l2/V4l2CameraBackend.h"

#include "platform/camera/v4l2/FfmpegCameraStream.h"

#include <QDir>
#include <QRegularExpression>
#include <algorithm>

namespace qm::platform {

V4l2CameraBackend::V4l2CameraBackend(QString deviceFolder)
    : m_folder(std::move(deviceFolder)) {}

Result<std::unique_ptr<CameraStream>> V4l2CameraBackend::openDefault() {
    static const QRegularExpression node(QStringLiteral("^video(\\d+)$"));
    std::vector<std::pair<int, QString>> devices;
    const QDir folder(m_folder);
    for (const QString& name :
         folder.entryList({QStringLiteral("video*")}, QDir::System | QDir::Files)) {
        if (const auto match = node.match(name); match.hasMatch())
            devices.emplace_back(match.captured(1).toInt(), folder.filePath(name));
    }
    if (devices.empty())
        return failure(QStringLiteral("No camera is connected"));
    std::sort(devices.begin(), devices.end());

    QString firstReason;
    for (const auto& [number, path] : devices) {
        auto opened = FfmpegCameraStream::open(
            QStringLiteral("video4linux2"), path,
            {{QStringLiteral("video_size"), QString::fromLatin1(videoSize)}});
        if (opened.ok())
            return opened;
        if (firstReason.isEmpty())
            firstReason = opened.error().reason;
    }
    return failure(firstReason);
}

} // namespace qm::platform
