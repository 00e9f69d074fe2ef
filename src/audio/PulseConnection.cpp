#include "audio/PulseConnection.h"

#include "core/Logging.h"

#include <pulse/context.h>
#include <pulse/error.h>
#include <pulse/operation.h>
#include <pulse/proplist.h>
#include <pulse/rtclock.h>
#include <pulse/subscribe.h>
#include <pulse/thread-mainloop.h>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

struct Deadline
{
    pa_threaded_mainloop* mainloop = nullptr;
    bool passed = false;
};

void onDeadline(pa_mainloop_api* /*api*/, pa_time_event* /*event*/, const timeval* /*when*/,
                void* userdata)
{
    auto* deadline = static_cast<Deadline*>(userdata);
    deadline->passed = true;
    pa_threaded_mainloop_signal(deadline->mainloop, 0);
}

} // namespace

PulseConnection::PulseConnection(QString clientName)
    : m_clientName(std::move(clientName)), m_mainloop(pa_threaded_mainloop_new())
{
    if (m_mainloop != nullptr && pa_threaded_mainloop_start(m_mainloop) < 0) {
        pa_threaded_mainloop_free(m_mainloop);
        m_mainloop = nullptr;
    }
    if (m_mainloop == nullptr) {
        qCWarning(lcCapture).noquote() << u"❌ [PulseAudio] Could not start the main loop"_s;
    }
}

PulseConnection::~PulseConnection()
{
    if (m_mainloop == nullptr) {
        return;
    }
    disconnect();
    pa_threaded_mainloop_stop(m_mainloop);
    pa_threaded_mainloop_free(m_mainloop);
}

std::optional<QString> PulseConnection::connect(std::chrono::milliseconds timeout)
{
    if (m_mainloop == nullptr) {
        return u"Cannot reach the sound server: the client main loop did not start"_s;
    }
    if (pa_threaded_mainloop_in_thread(m_mainloop) != 0) {
        return u"Cannot connect to the sound server from its own callbacks"_s;
    }
    const Lock lock(*this);
    if (m_context != nullptr && pa_context_get_state(m_context) == PA_CONTEXT_READY) {
        return std::nullopt;
    }
    // A context that failed cannot be connected again: start over with a new one.
    releaseContext();
    pa_proplist* properties = pa_proplist_new();
    pa_proplist_sets(properties, PA_PROP_APPLICATION_NAME, m_clientName.toUtf8().constData());
    pa_proplist_sets(properties, PA_PROP_APPLICATION_ID, "com.quillmoss");
    m_context = pa_context_new_with_proplist(pa_threaded_mainloop_get_api(m_mainloop),
                                             m_clientName.toUtf8().constData(), properties);
    pa_proplist_free(properties);
    if (m_context == nullptr) {
        return u"Cannot reach the sound server: could not create a client context"_s;
    }
    m_wasReady = false;
    pa_context_set_state_callback(m_context, &PulseConnection::onContextState, this);
    // No autospawn: starting a sound server is the desktop's business, and a
    // server we started would outlive us.
    if (pa_context_connect(m_context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        const QString error = lastErrorText();
        releaseContext();
        return u"Cannot reach the sound server: %1"_s.arg(error);
    }
    const bool ready =
        waitUntil([this] { return pa_context_get_state(m_context) == PA_CONTEXT_READY; }, timeout);
    if (ready) {
        return std::nullopt;
    }
    const bool failed = !PA_CONTEXT_IS_GOOD(pa_context_get_state(m_context));
    const QString error = failed ? u"Cannot reach the sound server: %1"_s.arg(lastErrorText())
                                 : u"The sound server did not answer within %1 ms"_s.arg(
                                       QString::number(timeout.count()));
    releaseContext();
    return error;
}

void PulseConnection::disconnect()
{
    if (m_mainloop == nullptr) {
        return;
    }
    const Lock lock(*this);
    releaseContext();
}

bool PulseConnection::isConnected() const
{
    if (m_mainloop == nullptr) {
        return false;
    }
    const Lock lock(*this);
    return m_context != nullptr && pa_context_get_state(m_context) == PA_CONTEXT_READY;
}

void PulseConnection::setDisconnectedHandler(std::function<void()> handler)
{
    if (m_mainloop == nullptr) {
        m_disconnectedHandler = std::move(handler);
        return;
    }
    const Lock lock(*this);
    m_disconnectedHandler = std::move(handler);
}

bool PulseConnection::waitUntil(const std::function<bool()>& done,
                                std::chrono::milliseconds timeout) const
{
    if (done()) {
        return true;
    }
    // Waiting on the loop thread would wait for ourselves.
    if (m_context == nullptr || pa_threaded_mainloop_in_thread(m_mainloop) != 0) {
        return false;
    }
    Deadline deadline{m_mainloop};
    const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(timeout);
    pa_time_event* timer = pa_context_rttime_new(
        m_context, pa_rtclock_now() + static_cast<pa_usec_t>(microseconds.count()), &onDeadline,
        &deadline);
    bool result = false;
    for (;;) {
        if (done()) {
            result = true;
            break;
        }
        if (deadline.passed || !PA_CONTEXT_IS_GOOD(pa_context_get_state(m_context))) {
            break;
        }
        pa_threaded_mainloop_wait(m_mainloop);
    }
    if (timer != nullptr) {
        pa_mainloop_api* api = pa_threaded_mainloop_get_api(m_mainloop);
        api->time_free(timer);
    }
    return result;
}

bool PulseConnection::waitForOperation(pa_operation* operation,
                                       std::chrono::milliseconds timeout) const
{
    if (operation == nullptr) {
        return false;
    }
    // Wakes us whatever the request's own callback does (some have none).
    pa_operation_set_state_callback(
        operation,
        [](pa_operation* /*operation*/, void* userdata) {
            pa_threaded_mainloop_signal(static_cast<pa_threaded_mainloop*>(userdata), 0);
        },
        m_mainloop);
    const bool finished = waitUntil(
        [operation] { return pa_operation_get_state(operation) != PA_OPERATION_RUNNING; }, timeout);
    if (!finished) {
        // Cancelled, its callback is never called: the caller's state it points
        // to may go away once we return.
        pa_operation_cancel(operation);
    }
    pa_operation_set_state_callback(operation, nullptr, nullptr);
    const bool done = pa_operation_get_state(operation) == PA_OPERATION_DONE;
    pa_operation_unref(operation);
    return finished && done;
}

void PulseConnection::signal() const
{
    pa_threaded_mainloop_signal(m_mainloop, 0);
}

QString PulseConnection::lastErrorText() const
{
    if (m_context == nullptr) {
        return u"not connected"_s;
    }
    return QString::fromUtf8(pa_strerror(pa_context_errno(m_context)));
}

void PulseConnection::onContextState(pa_context* context, void* userdata)
{
    auto* self = static_cast<PulseConnection*>(userdata);
    const pa_context_state_t state = pa_context_get_state(context);
    if (state == PA_CONTEXT_READY) {
        self->m_wasReady = true;
    } else if (!PA_CONTEXT_IS_GOOD(state) && self->m_wasReady) {
        self->m_wasReady = false;
        if (self->m_disconnectedHandler) {
            self->m_disconnectedHandler();
        }
    }
    self->signal();
}

void PulseConnection::releaseContext()
{
    if (m_context == nullptr) {
        return;
    }
    // Our own disconnect is not "the server went away": no handler for it.
    pa_context_set_state_callback(m_context, nullptr, nullptr);
    pa_context_set_subscribe_callback(m_context, nullptr, nullptr);
    pa_context_disconnect(m_context);
    pa_context_unref(m_context);
    m_context = nullptr;
    m_wasReady = false;
}

PulseConnection::Lock::Lock(const PulseConnection& connection)
{
    if (connection.m_mainloop != nullptr &&
        pa_threaded_mainloop_in_thread(connection.m_mainloop) == 0) {
        m_mainloop = connection.m_mainloop;
        pa_threaded_mainloop_lock(m_mainloop);
    }
}

PulseConnection::Lock::~Lock()
{
    if (m_mainloop != nullptr) {
        pa_threaded_mainloop_unlock(m_mainloop);
    }
}
