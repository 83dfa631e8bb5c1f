#include "app/workflow/TrimWindows.h"

#include "base/Log.h"
#include "base/Preferences.h"
#include "media/gif/GIFExporter.h"
#include "media/player/TrimSession.h"
#include "media/trim/TrimInPlace.h"
#include "media/ui/TrimView.h"
#include "media/ui/TrimWindowController.h"
#include "platform/desktop/Reveal.h"
#include "platform/sound/api/SoundPlayer.h"
#include "ui/ToastCenter.h"

#include <QFileInfo>
#include <QPointer>
#include <QThreadPool>

namespace qm {

struct TrimWindows::Entry {
    QString movie;
    std::unique_ptr<media::ui::TrimWindowController> controller;
    // Shared with the running job, which may outlive the window.
    std::shared_ptr<std::atomic_bool> cancel = std::make_shared<std::atomic_bool>(false);
    QThreadPool jobs; // one job at a time per window, off the GUI thread
};

TrimWindows::TrimWindows(Preferences& preferences, SoundPlayer& sounds, ToastCenter& toasts,
                         Report report, QObject* parent)
    : QObject(parent)
    , m_preferences(preferences)
    , m_sounds(sounds)
    , m_toasts(toasts)
    , m_report(std::move(report)) {}

TrimWindows::~TrimWindows() {
    for (auto& entry : m_windows)
        entry->cancel->store(true);
}

media::ui::TrimWindowController* TrimWindows::window(int index) const {
    return m_windows.at(size_t(index))->controller.get();
}

TrimWindows::Entry* TrimWindows::find(const media::ui::TrimWindowController* controller) const {
    for (const auto& entry : m_windows)
        if (entry->controller.get() == controller)
            return entry.get();
    return nullptr;
}

void TrimWindows::open(const QString& movie) {
    const QString path = QFileInfo(movie).absoluteFilePath();
    for (const auto& entry : m_windows)
        if (entry->movie == path)
            return entry->controller->show();
    auto entry = std::make_unique<Entry>();
    entry->movie = path;
    entry->jobs.setMaxThreadCount(1);
    entry->controller = std::make_unique<media::ui::TrimWindowController>(path);
    media::ui::TrimWindowController* controller = entry->controller.get();
    controller->onClosed = [this, controller] {
        // A GIF still being made stops, and its partial file goes.
        auto it = std::find_if(m_windows.begin(), m_windows.end(), [controller](const auto& e) {
            return e->controller.get() == controller;
        });
        if (it == m_windows.end())
            return;
        (*it)->cancel->store(true);
        m_windows.erase(it);
    };
    m_windows.push_back(std::move(entry));
    controller->show();
    if (media::ui::TrimView* view = controller->view()) {
        view->onTrim = [this, controller](double start, double end) {
            if (Entry* e = find(controller))
                trim(*e, start, end);
        };
        view->onExportGif = [this, controller](double start, double end) {
            if (Entry* e = find(controller))
                exportGif(*e, start, end);
        };
        view->onDone = [controller] { controller->close(); };
    }
}

void TrimWindows::trim(Entry& entry, double start, double end) {
    media::player::TrimSession& session = entry.controller->session();
    if (session.isExporting())
        return;
    session.setExporting(true);
    session.setStatus(QStringLiteral("Trimming…"));
    QPointer<TrimWindows> self(this);
    const media::ui::TrimWindowController* controller = entry.controller.get();
    const QString movie = entry.movie;
    entry.jobs.start([self, controller, movie, start, end, cancel = entry.cancel] {
        auto trimmed = media::trim::trimInPlace(movie, start, end, {}, cancel.get());
        QMetaObject::invokeMethod(
            self.data(),
            [self, controller, movie, trimmed = std::move(trimmed)] {
                Entry* open = self ? self->find(controller) : nullptr;
                if (!trimmed)
                    qCWarning(lcRecording).noquote()
                        << QStringLiteral("Quillmark trim export failed: ") +
                               trimmed.error().reason;
                if (!open)
                    return;
                media::player::TrimSession& live = open->controller->session();
                live.setExporting(false);
                if (!trimmed) {
                    live.setStatus(QStringLiteral("Trim failed: ") + trimmed.error().reason);
                    live.reload(); // the untouched movie stays playable
                    return;
                }
                self->m_sounds.play(SystemSound::Complete);
                self->m_toasts.present(QStringLiteral("Video trimmed"),
                                       QStringLiteral("transform-crop"));
                self->m_report.saved(movie);
                open->controller->close(); // the trim is done with this window
            },
            Qt::QueuedConnection);
    });
}

void TrimWindows::exportGif(Entry& entry, double start, double end) {
    media::player::TrimSession& session = entry.controller->session();
    if (session.isExporting())
        return;
    session.setExporting(true);
    session.setStatus(QStringLiteral("Exporting GIF…"));
    media::GIFExporter::Request job;
    job.movie = entry.movie;
    job.range.start = start;
    job.range.duration = end - start;
    job.settings.fps = m_preferences.gifFPS();
    job.settings.maxDimension = m_preferences.gifMaxDimension();
    job.output = media::GIFExporter::IntoFolder{m_preferences.outputDirectory()};
    job.cancel = entry.cancel.get();
    QPointer<TrimWindows> self(this);
    const media::ui::TrimWindowController* controller = entry.controller.get();
    job.progress = [self, controller](double fraction) {
        QMetaObject::invokeMethod(
            self.data(),
            [self, controller, fraction] {
                if (Entry* open = self ? self->find(controller) : nullptr)
                    open->controller->session().setStatus(
                        QStringLiteral("Exporting GIF… %1%").arg(int(fraction * 100)));
            },
            Qt::QueuedConnection);
    };
    entry.jobs.start([self, controller, job, cancel = entry.cancel] {
        auto written = media::GIFExporter::exportRange(job);
        QMetaObject::invokeMethod(
            self.data(),
            [self, controller, written = std::move(written)] {
                if (!written)
                    qCWarning(lcRecording).noquote()
                        << QStringLiteral("Quillmark GIF export failed: ") + written.error().reason;
                if (!self)
                    return;
                if (written)
                    self->m_report.saved(*written);
                Entry* open = self->find(controller);
                if (!open)
                    return;
                media::player::TrimSession& live = open->controller->session();
                live.setExporting(false);
                if (!written) {
                    live.setStatus(QStringLiteral("GIF export failed: ") + written.error().reason);
                    return;
                }
                live.setStatus(QStringLiteral("GIF saved → ") + QFileInfo(*written).fileName());
                self->m_sounds.play(SystemSound::Complete);
                self->m_toasts.present(QStringLiteral("GIF exported"),
                                       QStringLiteral("image-x-generic"));
                revealInFolder(*written);
            },
            Qt::QueuedConnection);
    });
}

} // namespace qm
