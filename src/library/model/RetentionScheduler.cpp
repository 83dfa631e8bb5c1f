#include "library/model/RetentionScheduler.h"

#include "base/Log.h"
#include "base/Preferences.h"

#include <QDateTime>
#include <QFutureWatcher>
#include <QThread>
#include <QTimer>
#include <QtConcurrent>

using namespace Qt::StringLiterals;

namespace qm::library {

struct RetentionScheduler::Private {
    Private(Preferences& p, Timing t)
        : preferences(p)
        , timing(std::move(t)) {}

    Preferences& preferences;
    Timing timing;
    std::unique_ptr<QTimer> repeat; // none until started
    QTimer first;
    QList<QFuture<int>> running;
};

RetentionScheduler::RetentionScheduler(Preferences& preferences, QObject* parent)
    : RetentionScheduler(preferences, Timing{}, parent) {}

RetentionScheduler::RetentionScheduler(Preferences& preferences, Timing timing, QObject* parent)
    : QObject(parent)
    , d(std::make_unique<Private>(preferences, std::move(timing))) {
    if (!d->timing.trash)
        d->timing.trash = moveToTrash;
    d->first.setSingleShot(true);
    connect(&d->first, &QTimer::timeout, this, &RetentionScheduler::sweepNow);
}

// A sweep under way is let finish: it only moves a handful of files, and it must not outlive
// the trash function it was handed.
RetentionScheduler::~RetentionScheduler() {
    for (QFuture<int>& sweep : d->running)
        sweep.waitForFinished();
}

void RetentionScheduler::start() {
    if (d->repeat)
        return;
    // The first sweep waits a little so starting the program never waits on the disk.
    d->first.start(d->timing.firstDelay);
    d->repeat = std::make_unique<QTimer>();
    d->repeat->setTimerType(Qt::CoarseTimer);
    connect(d->repeat.get(), &QTimer::timeout, this, &RetentionScheduler::sweepNow);
    d->repeat->start(d->timing.interval);
}

void RetentionScheduler::sweepNow() {
    const int days = d->preferences.retentionDays();
    if (days < 1)
        return;
    const QString folder = d->preferences.outputDirectory();
    const TrashFile trash = d->timing.trash;
    auto* watcher = new QFutureWatcher<int>(this);
    connect(watcher, &QFutureWatcher<int>::finished, this, [this, watcher] {
        watcher->deleteLater();
        d->running.removeIf([](const QFuture<int>& f) { return f.isFinished(); });
        Q_EMIT swept(watcher->result());
    });
    const QFuture<int> future = QtConcurrent::run([folder, days, trash] {
        QThread::currentThread()->setPriority(QThread::LowPriority);
        const int moved = sweep(folder, days, QDateTime::currentDateTimeUtc(), trash);
        if (moved >= 1)
            qCInfo(lcLibrary).noquote()
                << u"Quillmark retention: moved %1 old capture(s) to the Trash"_s.arg(moved);
        return moved;
    });
    d->running.append(future);
    watcher->setFuture(future);
}

} // namespace qm::library
