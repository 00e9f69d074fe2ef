// One client connection to the PulseAudio sound server (also pipewire-pulse):
// a threaded main loop with its context, and blocking waits on it with timeouts.
#pragma once

#include <QString>

#include <chrono>
#include <functional>
#include <optional>

struct pa_context;
struct pa_operation;
struct pa_threaded_mainloop;

class PulseConnection
{
public:
    static constexpr std::chrono::milliseconds defaultTimeout{5000};

    // Starts the main loop thread; connects nothing yet. `clientName` is what
    // the server (and its volume controls) show for us.
    explicit PulseConnection(QString clientName);
    // Disconnects and stops the main loop thread.
    ~PulseConnection();
    PulseConnection(const PulseConnection&) = delete;
    PulseConnection& operator=(const PulseConnection&) = delete;

    // Connects (a fresh context when an earlier one failed) and waits until it is
    // ready. Returns an error text when the server cannot be reached in time.
    // Never spawns a server. Not from the main loop thread; without the lock.
    std::optional<QString> connect(std::chrono::milliseconds timeout = defaultTimeout);
    // Closes the context; the main loop keeps running for a later connect().
    void disconnect();
    bool isConnected() const;

    // Called on the main loop thread, with the lock held, when a context that was
    // ready fails or ends (the server went away). Set it before connect().
    void setDisconnectedHandler(std::function<void()> handler);

    pa_threaded_mainloop* mainloop() const { return m_mainloop; }
    // The current context; null before connect(). Use it under the lock.
    pa_context* context() const { return m_context; }

    // Holds the main loop lock for its scope. Taken on the main loop thread
    // itself (in a callback) it does nothing: the lock is already held there.
    class Lock
    {
    public:
        explicit Lock(const PulseConnection& connection);
        ~Lock();
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        pa_threaded_mainloop* m_mainloop = nullptr;
    };

    // With the lock held, off the main loop thread: waits until `done()` is true.
    // Returns false when the context fails or ends, or the timeout passes first.
    // The callbacks that make `done()` true must call signal().
    bool waitUntil(const std::function<bool()>& done,
                   std::chrono::milliseconds timeout = defaultTimeout) const;
    // With the lock held: waits for `operation` to finish and releases it. A null
    // operation (the request could not be made) and a timeout return false.
    bool waitForOperation(pa_operation* operation,
                          std::chrono::milliseconds timeout = defaultTimeout) const;
    // Wakes waitUntil(); for the callbacks of a waited request.
    void signal() const;

    // The server's text for the context's last error ("Connection refused", ...).
    // Under the lock.
    QString lastErrorText() const;

private:
    static void onContextState(pa_context* context, void* userdata);
    void releaseContext();

    const QString m_clientName;
    pa_threaded_mainloop* m_mainloop = nullptr;
    pa_context* m_context = nullptr;
    bool m_wasReady = false; // the current context reached READY (loop lock)
    std::function<void()> m_disconnectedHandler;
};
