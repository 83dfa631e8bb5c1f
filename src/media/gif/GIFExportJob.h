#pragma once

// One GIF export on a thread of its own, for windows: progress and the outcome arrive on the
// thread of `context` (the GUI thread), never after `context` is gone. Destroying the job (its
// window closed) cancels a running export and waits for it to stop, so the partial file is
// gone when the destructor returns. Own the job by `context` (a member), so it never outlives
// it.

#include "media/gif/GIFExporter.h"

#include <QPointer>
#include <atomic>
#include <functional>
#include <thread>

class QObject;

namespace qm::media {

class GIFExportJob {
public:
    using OnProgress = std::function<void(double fraction)>;
    using OnFinished = std::function<void(const Result<QString>& written)>;

    // Starts at once; the request's own progress and cancel fields are replaced.
    GIFExportJob(GIFExporter::Request request, QObject* context, OnProgress onProgress,
                 OnFinished onFinished);
    ~GIFExportJob();
    GIFExportJob(const GIFExportJob&) = delete;
    GIFExportJob& operator=(const GIFExportJob&) = delete;

    void cancel() { m_cancel = true; }

private:
    std::atomic<bool> m_cancel = false;
    std::thread m_thread;
};

} // namespace qm::media
