#include "app/workflow/TrimWindows.h"

#include "app/workflow/TrimJobs.h"
#include "media/player/TrimSession.h"
#include "media/ui/TrimView.h"
#include "media/ui/TrimWindowController.h"

#include <QFileInfo>
#include <QPointer>

namespace qm {

TrimWindows::TrimWindows(TrimJobs& jobs, QObject* parent)
    : QObject(parent)
    , m_jobs(jobs) {}

TrimWindows::~TrimWindows() = default;

media::ui::TrimWindowController* TrimWindows::window(int index) const {
    return m_windows.at(size_t(index)).get();
}

void TrimWindows::open(const QString& movie) {
    const QString path = QFileInfo(movie).absoluteFilePath();
    for (const auto& controller : m_windows)
        if (controller->session().path() == path)
            return controller->show();
    auto owned = std::make_unique<media::ui::TrimWindowController>(path);
    media::ui::TrimWindowController* controller = owned.get();
    controller->onClosed = [this, controller] {
        // Its session goes with it, which cancels a GIF still being made.
        std::erase_if(m_windows, [controller](const auto& c) { return c.get() == controller; });
    };
    m_windows.push_back(std::move(owned));
    controller->show();
    if (media::ui::TrimView* view = controller->view()) {
        QPointer<TrimWindows> self(this);
        view->onTrim = [this, controller, self](double start, double end) {
            // The trim is done with this window once the cut is made.
            m_jobs.trim(controller->session(), start, end, [self, controller] {
                if (self &&
                    std::any_of(self->m_windows.begin(), self->m_windows.end(),
                                [controller](const auto& c) { return c.get() == controller; }))
                    controller->close();
            });
        };
        view->onExportGif = [this, controller](double start, double end) {
            m_jobs.exportGif(controller->session(), start, end);
        };
        view->onDone = [controller] { controller->close(); };
    }
}

} // namespace qm
