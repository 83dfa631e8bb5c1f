#include "CodedMovie.h"

#include "TestSupport.h"

#include <cmath>

namespace qm::test {

bool makeCodedMovie(const QString& path, double seconds, bool sound) {
    const QString length = QString::number(seconds);
    QStringList args{QStringLiteral("-v"),
                     QStringLiteral("error"),
                     QStringLiteral("-y"),
                     QStringLiteral("-f"),
                     QStringLiteral("lavfi"),
                     QStringLiteral("-i"),
                     QStringLiteral("nullsrc=s=64x48:r=30:d=%1,format=gray,"
                                    "geq=lum='40+2*N'")
                         .arg(length)};
    if (sound) {
        for (const char* hz : {"440", "880"})
            args << QStringLiteral("-f") << QStringLiteral("lavfi") << QStringLiteral("-i")
                 << QStringLiteral("sine=frequency=%1:sample_rate=48000:duration=%2")
                        .arg(QLatin1String(hz), length);
        args << QStringLiteral("-map") << QStringLiteral("0:v") << QStringLiteral("-map")
             << QStringLiteral("1:a") << QStringLiteral("-map") << QStringLiteral("2:a")
             << QStringLiteral("-c:a") << QStringLiteral("aac");
    }
    args << QStringLiteral("-c:v") << QStringLiteral("libx264") << QStringLiteral("-pix_fmt")
         << QStringLiteral("yuv420p") << QStringLiteral("-crf") << QStringLiteral("4")
         << QStringLiteral("-g") << QStringLiteral("60") << QStringLiteral("-keyint_min")
         << QStringLiteral("60") << QStringLiteral("-sc_threshold") << QStringLiteral("0")
         << QStringLiteral("-bf") << QStringLiteral("2") << QStringLiteral("-movflags")
         << QStringLiteral("+faststart") << path;
    return run(QStringLiteral("ffmpeg"), args).exitCode == 0;
}

int codedFrameNumber(const QImage& image) {
    if (image.isNull())
        return -1;
    const double grey = qGray(image.pixel(image.width() / 2, image.height() / 2));
    return static_cast<int>(std::lround((grey - 39.5) / 2));
}

} // namespace qm::test
