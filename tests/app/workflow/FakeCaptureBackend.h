#pragma once

#include "platform/capture/api/ScreenCaptureBackend.h"

#include <QGuiApplication>
#include <QObject>
#include <QScreen>
#include <QStringList>
#include <QTimer>

namespace qm::test {

// A display server that paints every screen with a known pattern and notes each call, so the
// workflow can be tested without grabbing the real screen. Answers later, on the main thread,
// as a real backend does.
class FakeCaptureBackend final : public platform::ScreenCaptureBackend {
public:
    QStringList calls;
    std::vector<platform::ServerWindow> windows;

    // The colour of a desktop pixel.
    static QRgb pixelAt(int x, int y) { return qRgb(x % 251, y % 241, (x + y) % 239); }

    QString name() const override { return QStringLiteral("fake"); }

    void fetchContent(platform::BackendCompletion<platform::ShareableContent> done) override {
        calls << QStringLiteral("fetchContent");
        platform::ShareableContent content;
        for (QScreen* screen : QGuiApplication::screens()) {
            const QRect g = screen->geometry();
            const double scale = screen->devicePixelRatio();
            content.displays.push_back(
                {screen->name(), QRect(g.topLeft(), (QSizeF(g.size()) * scale).toSize())});
        }
        later([done, content] { done(content); });
    }
    std::vector<platform::ServerWindow> windowList() override {
        calls << QStringLiteral("windowList");
        return windows;
    }
    void grabDisplay(const QRect& rect, platform::BackendCompletion<QImage> done) override {
        calls << QStringLiteral("grabDisplay %1,%2 %3x%4")
                     .arg(rect.x())
                     .arg(rect.y())
                     .arg(rect.width())
                     .arg(rect.height());
        QImage image(rect.size(), QImage::Format_RGB32);
        for (int y = 0; y < image.height(); ++y) {
            auto* line = reinterpret_cast<QRgb*>(image.scanLine(y));
            for (int x = 0; x < image.width(); ++x)
                line[x] = pixelAt(rect.x() + x, rect.y() + y);
        }
        later([done, image] { done(image); });
    }
    void grabWindow(std::uint32_t id,
                    platform::BackendCompletion<platform::WindowImage> done) override {
        calls << QStringLiteral("grabWindow %1").arg(id);
        later([done] { done(CaptureFailure{CaptureError::NoWindow, {}}); });
    }
    std::optional<std::uint32_t> activeWindow() override {
        calls << QStringLiteral("activeWindow");
        return std::nullopt;
    }

    int count(const QString& prefix) const {
        int n = 0;
        for (const QString& call : calls)
            n += call.startsWith(prefix);
        return n;
    }

private:
    void later(std::function<void()> answer) { QTimer::singleShot(0, &m_context, answer); }
    QObject m_context;
};

} // namespace qm::test
