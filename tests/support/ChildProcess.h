// Test support: ending a server the test started, politely first.
#pragma once

#include <QProcess>

#include <memory>

// SIGTERM and up to 10 s for the process to go, then SIGKILL; the process
// object goes too. Nothing happens when there is none.
inline void stopChildProcess(std::unique_ptr<QProcess>& process)
{
    if (!process)
        return;
    if (process->state() != QProcess::NotRunning) {
        process->terminate();
        if (!process->waitForFinished(10'000)) {
            process->kill();
            process->waitForFinished(5'000);
        }
    }
    process.reset();
}
