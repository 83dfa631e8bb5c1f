#pragma once

#include "library/catalog/Retention.h"

#include <QObject>
#include <chrono>
#include <memory>

namespace qm {
class Preferences;
}

namespace qm::library {

// Sweeps old captures to the Trash ("library.retentionDays"; below 1 day, never): first a few
// seconds after start, so starting is never slowed, then every six hours. The file work runs on
// a worker; a change of the setting takes effect at the next sweep.
class RetentionScheduler : public QObject {
    Q_OBJECT
public:
    struct Timing {
        std::chrono::milliseconds firstDelay{3000};
        std::chrono::milliseconds interval{std::chrono::hours(6)};
        TrashFile trash; // empty: moveToTrash
    };

    explicit RetentionScheduler(Preferences& preferences, QObject* parent = nullptr);
    RetentionScheduler(Preferences& preferences, Timing timing, QObject* parent = nullptr);
    ~RetentionScheduler() override;

    // Once at start; a second call does nothing.
    void start();
    // One sweep with the current settings, in the background.
    void sweepNow();

Q_SIGNALS:
    // A sweep finished, having moved `moved` captures.
    void swept(int moved);

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace qm::library
