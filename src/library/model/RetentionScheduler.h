#pragma once

#include <QObject>
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
    explicit RetentionScheduler(Preferences& preferences, QObject* parent = nullptr);
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
