#pragma once

#include "base/Result.h"

#include <chrono>
#include <functional>
#include <memory>

struct pa_context;
struct pa_operation;
struct pa_threaded_mainloop;

namespace qm::platform {

// One private connection to the sound server, with an event thread of its own. Every call on
// the context or its streams is made with the lock held; the server's callbacks run on the
// event thread with the lock held too, so they never overlap such a call.
class PulseConnection {
public:
    // Connects to the session's sound server (PULSE_SERVER, or the usual socket), never
    // starting one; fails with "No sound server is running" when there is none.
    static Result<std::unique_ptr<PulseConnection>> connect();
    ~PulseConnection();
    PulseConnection(const PulseConnection&) = delete;
    PulseConnection& operator=(const PulseConnection&) = delete;

    pa_context* context() const { return m_context.get(); }

    class Lock {
    public:
        explicit Lock(PulseConnection& connection);
        ~Lock();
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        pa_threaded_mainloop* m_loop;
    };

    // With the lock held: sleeps until `done()` holds, the connection is lost or the deadline
    // passes; true when `done()` held. Callbacks that change what `done` reads call wake().
    bool waitFor(const std::function<bool()>& done, std::chrono::milliseconds deadline = kDeadline);
    // With the lock held: waits for an operation the server answers through a callback that
    // makes `done()` true. False when the request could not be made or had no answer.
    bool complete(pa_operation* operation, const std::function<bool()>& done);
    void wake();
    bool alive() const;
    bool inEventThread() const;

    // Called on the event thread when the connection fails or the server goes away.
    void setOnLost(std::function<void()> onLost) { m_onLost = std::move(onLost); }

    // Ends the event thread: afterwards no callback runs. Not with the lock held, not from a
    // callback. Safe to call twice.
    void stopEventThread();

    static constexpr std::chrono::milliseconds kDeadline = std::chrono::seconds(5);

private:
    struct LoopDeleter {
        void operator()(pa_threaded_mainloop* loop) const;
    };
    struct ContextDeleter {
        void operator()(pa_context* context) const;
    };
    PulseConnection() = default;
    static void onState(pa_context* context, void* self);

    // Declared first, destroyed last: the context belongs to the loop.
    std::unique_ptr<pa_threaded_mainloop, LoopDeleter> m_loop;
    std::unique_ptr<pa_context, ContextDeleter> m_context;
    std::function<void()> m_onLost;
};

} // namespace qm::platform
