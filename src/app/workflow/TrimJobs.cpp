#include "app/workflow/TrimJobs.h"

#include "base/Log.h"
#include "base/Preferences.h"
#include "media/gif/GIFExporter.h"
#include "media/player/TrimSession.h"
#include "media/trim/TrimInPlace.h"
#include "platform/desktop/Reveal.h"
#include "platform/sound/api/SoundPlayer.h"
#include "ui/ToastCenter.h"

#include <QFileInfo>
#include <QPointer>
#include <algorithm>

namespace qm {

TrimJobs::TrimJobs(Preferences& preferences, SoundPlayer& sounds, ToastCenter& toasts,
                   Report report, QObject* parent)
    : QObject(parent)
    , m_preferences(preferences)
    , m_sounds(sounds)
    , m_toasts(toasts)
    , m_report(std::move(report)) {}

TrimJobs::~TrimJobs() {
    for (const auto& weak : m_cancels)
        if (const auto cancel = weak.lock())
            cancel->store(true);
}

std::shared_ptr<std::atomic_bool> TrimJobs::cancelWith(media::player::TrimSession& session) {
    auto cancel = std::make_shared<std::atomic_bool>(false);
    connect(&session, &QObject::destroyed, this, [cancel] { cancel->store(true); });
    std::erase_if(m_cancels, [](const auto& weak) { return weak.expired(); });
    m_cancels.push_back(cancel);
    return cancel;
}

void TrimJobs::trim(media::player::TrimSession& session, double start, double end,
                    std::function<void()> trimmed) {
    if (session.isExporting())
        return;
    session.setExporting(true);
    session.setStatus(QStringLiteral("Trimming…"));
    QPointer<TrimJobs> self(this);
    QPointer<media::player::TrimSession> live(&session);
    const QString movie = session.path();
    m_pool.start([self, live, movie, start, end, cancel = cancelWith(session),
                  trimmed = std::move(trimmed)] {
        auto cut = media::trim::trimInPlace(movie, start, end, {}, cancel.get());
        QMetaObject::invokeMethod(
            self.data(),
            [self, live, movie, cut = std::move(cut), trimmed] {
                if (!cut)
                    qCWarning(lcRecording).noquote()
                        << QStringLiteral("Quillmark trim export failed: ") + cut.error().reason;
                else
                    self->m_report.saved(movie);
                if (!live)
                    return;
                live->setExporting(false);
                if (!cut) {
                    live->setStatus(QStringLiteral("Trim failed: ") + cut.error().reason);
                    live->reload(); // the untouched movie stays playable
                    return;
                }
                self->m_sounds.play(SystemSound::Complete);
                self->m_toasts.present(QStringLiteral("Video trimmed"),
                                       QStringLiteral("transform-crop"));
                if (trimmed)
                    trimmed();
            },
            Qt::QueuedConnection);
    });
}

void TrimJobs::exportGif(media::player::TrimSession& session, double start, double end) {
    if (session.isExporting())
        return;
    session.setExporting(true);
    session.setStatus(QStringLiteral("Exporting GIF…"));
    const auto cancel = cancelWith(session);
    media::GIFExporter::Request job;
    job.movie = session.path();
    job.range.start = start;
    job.range.duration = end - start;
    job.settings.fps = m_preferences.gifFPS();
    job.settings.maxDimension = m_preferences.gifMaxDimension();
    job.output = media::GIFExporter::IntoFolder{m_preferences.outputDirectory()};
    job.cancel = cancel.get();
    QPointer<media::player::TrimSession> live(&session);
    job.progress = [live](double fraction) {
        QMetaObject::invokeMethod(
            live.data(),
            [live, fraction] {
                if (live)
                    live->setStatus(QStringLiteral("Exporting GIF… %1%").arg(int(fraction * 100)));
            },
            Qt::QueuedConnection);
    };
    QPointer<TrimJobs> self(this);
    m_pool.start([self, live, job, cancel] {
        auto written = media::GIFExporter::exportRange(job);
        QMetaObject::invokeMethod(
            self.data(),
            [self, live, written = std::move(written)] {
                if (!written)
                    qCWarning(lcRecording).noquote()
                        << QStringLiteral("Quillmark GIF export failed: ") + written.error().reason;
                else
                    self->m_report.saved(*written);
                if (!live)
                    return;
                live->setExporting(false);
                if (!written) {
                    live->setStatus(QStringLiteral("GIF export failed: ") + written.error().reason);
                    return;
                }
                live->setStatus(QStringLiteral("GIF saved → ") + QFileInfo(*written).fileName());
                self->m_sounds.play(SystemSound::Complete);
                self->m_toasts.present(QStringLiteral("GIF exported"),
                                       QStringLiteral("image-x-generic"));
                revealInFolder(*written);
            },
            Qt::QueuedConnection);
    });
}

} // namespace qm
