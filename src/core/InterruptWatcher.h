// Turns Ctrl-C (SIGINT) and SIGTERM into a Qt signal on the GUI thread, so a
// long-running command can end cleanly instead of being killed mid-write.
#pragma once

#include <QObject>
#include <QSocketNotifier>

#include <memory>

class InterruptWatcher : public QObject
{
    Q_OBJECT

public:
    // Installs the handlers; one watcher at a time.
    explicit InterruptWatcher(QObject* parent = nullptr);
    // Restores the default handlers.
    ~InterruptWatcher() override;

Q_SIGNALS:
    void interrupted(int signalNumber);

private:
    std::unique_ptr<QSocketNotifier> m_notifier;
};
