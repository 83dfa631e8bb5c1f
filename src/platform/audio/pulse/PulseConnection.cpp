#include "platform/audio/pulse/PulseConnection.h"

#include "base/AppId.h"

#include <pulse/context.h>
#include <pulse/error.h>
#include <pulse/operation.h>
#include <pulse/proplist.h>
#include <pulse/rtclock.h>
#include <pulse/thread-mainloop.h>

namespace qm::platform {

void PulseConnection::LoopDeleter::operator()(pa_threaded_mainloop* loop) const {
    pa_threaded_mainloop_stop(loop);
    pa_threaded_mainloop_free(loop);
}

void PulseConnection::ContextDeleter::operator()(pa_context* context) const {
    // Disconnecting reports the state change at once; nobody is listening any more.
    pa_context_set_state_callback(context, nullptr, nullptr);
    pa_context_disconnect(context);
    pa_context_unref(context);
}

Result<std::unique_ptr<PulseConnection>> PulseConnection::connect() {
    std::unique_ptr<PulseConnection> self(new PulseConnection);
    self->m_loop.reset(pa_threaded_mainloop_new());
    if (!self->m_loop)
        return failure(QStringLiteral("Could not start talking to the sound server"));
    pa_threaded_mainloop_set_name(self->m_loop.get(), "quillmark-pulse");

    pa_proplist* props = pa_proplist_new();
    pa_proplist_sets(props, PA_PROP_APPLICATION_NAME, "Quillmark");
    pa_proplist_sets(props, PA_PROP_APPLICATION_ID, applicationId.toUtf8().constData());
    self->m_context.reset(pa_context_new_with_proplist(
        pa_threaded_mainloop_get_api(self->m_loop.get()), "Quillmark", props));
    pa_proplist_free(props);
    if (!self->m_context)
        return failure(QStringLiteral("Could not start talking to the sound server"));
    pa_context_set_state_callback(self->m_context.get(), &PulseConnection::onState, self.get());

    const QString noServer = QStringLiteral("No sound server is running");
    // Never start a server of our own: recording what nobody plays would be pointless, and a
    // stray server would outlive us.
    if (pa_context_connect(self->m_context.get(), nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0)
        return failure(noServer);
    if (pa_threaded_mainloop_start(self->m_loop.get()) < 0)
        return failure(QStringLiteral("Could not start talking to the sound server"));

    bool ready = false;
    {
        Lock lock(*self);
        ready = self->waitFor(
            [&] { return pa_context_get_state(self->m_context.get()) == PA_CONTEXT_READY; });
    }
    if (!ready)
        return failure(noServer);
    return self;
}

PulseConnection::~PulseConnection() {
    stopEventThread();
}

void PulseConnection::stopEventThread() {
    if (m_loop)
        pa_threaded_mainloop_stop(m_loop.get());
}

PulseConnection::Lock::Lock(PulseConnection& connection)
    : m_loop(connection.m_loop.get()) {
    pa_threaded_mainloop_lock(m_loop);
}

PulseConnection::Lock::~Lock() {
    pa_threaded_mainloop_unlock(m_loop);
}

void PulseConnection::onState(pa_context* context, void* self) {
    auto* connection = static_cast<PulseConnection*>(self);
    connection->wake();
    const pa_context_state_t state = pa_context_get_state(context);
    if ((state == PA_CONTEXT_FAILED || state == PA_CONTEXT_TERMINATED) && connection->m_onLost)
        connection->m_onLost();
}

bool PulseConnection::alive() const {
    const pa_context_state_t state = pa_context_get_state(m_context.get());
    return state != PA_CONTEXT_FAILED && state != PA_CONTEXT_TERMINATED;
}

bool PulseConnection::inEventThread() const {
    return m_loop && pa_threaded_mainloop_in_thread(m_loop.get());
}

void PulseConnection::wake() {
    pa_threaded_mainloop_signal(m_loop.get(), 0);
}

bool PulseConnection::waitFor(const std::function<bool()>& done,
                              std::chrono::milliseconds deadline) {
    struct Timer {
        PulseConnection* connection;
        bool expired = false;
    } timer{this};
    const auto usec = pa_usec_t(std::chrono::microseconds(deadline).count());
    pa_time_event* event = pa_context_rttime_new(
        m_context.get(), pa_rtclock_now() + usec,
        [](pa_mainloop_api*, pa_time_event*, const struct timeval*, void* data) {
            auto* t = static_cast<Timer*>(data);
            t->expired = true;
            t->connection->wake();
        },
        &timer);
    while (!done() && !timer.expired && alive())
        pa_threaded_mainloop_wait(m_loop.get());
    if (event)
        pa_threaded_mainloop_get_api(m_loop.get())->time_free(event);
    return done();
}

bool PulseConnection::complete(pa_operation* operation, const std::function<bool()>& done) {
    if (!operation)
        return false;
    // The answer's own callback only records it; the operation ending is what wakes us.
    pa_operation_set_state_callback(
        operation, [](pa_operation*, void* self) { static_cast<PulseConnection*>(self)->wake(); },
        this);
    const bool answered =
        waitFor(
            [&] { return done() || pa_operation_get_state(operation) != PA_OPERATION_RUNNING; }) &&
        done();
    if (pa_operation_get_state(operation) == PA_OPERATION_RUNNING)
        pa_operation_cancel(operation);
    pa_operation_set_state_callback(operation, nullptr, nullptr);
    pa_operation_unref(operation);
    return answered;
}

} // namespace qm::platform
