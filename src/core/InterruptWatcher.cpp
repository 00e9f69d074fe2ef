#include "core/InterruptWatcher.h"

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

// The handler may only do async-signal-safe work: it writes the signal's number
// into a pipe whose other end the event loop watches.
int pipeEnds[2] = {-1, -1};

void onSignal(int signalNumber)
{
    const auto byte = static_cast<unsigned char>(signalNumber);
    (void)!write(pipeEnds[1], &byte, 1);
}

} // namespace

InterruptWatcher::InterruptWatcher(QObject* parent) : QObject(parent)
{
    if (pipe2(pipeEnds, O_CLOEXEC | O_NONBLOCK) != 0) {
        return;
    }
    m_notifier = std::make_unique<QSocketNotifier>(pipeEnds[0], QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, [this] {
        unsigned char byte = 0;
        while (read(pipeEnds[0], &byte, 1) == 1) {
            Q_EMIT interrupted(byte);
        }
    });
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

InterruptWatcher::~InterruptWatcher()
{
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    m_notifier.reset();
    for (int& end : pipeEnds) {
        if (end >= 0) {
            close(end);
            end = -1;
        }
    }
}
