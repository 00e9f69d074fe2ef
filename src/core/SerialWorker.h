// A thread of its own that runs posted work one item at a time, in the order
// posted: for blocking calls (D-Bus, the sound server, disk) kept off the GUI thread.
#pragma once

#include <QFuture>
#include <QMutex>
#include <QObject>
#include <QPromise>
#include <QString>
#include <QThread>

#include <functional>
#include <memory>

class SerialWorker
{
public:
    explicit SerialWorker(QString name);
    // Runs what is already queued, then joins the thread.
    ~SerialWorker();
    SerialWorker(const SerialWorker&) = delete;
    SerialWorker& operator=(const SerialWorker&) = delete;

    // Queues `work`; the thread starts on first use.
    void post(std::function<void()> work);

    // Queues `work` and hands its result over through a future. Unlike a thread
    // pool, waiting on the future never runs the work early on the waiting
    // thread, so results always come in posting order.
    template <typename T> QFuture<T> run(std::function<T()> work)
    {
        auto promise = std::make_shared<QPromise<T>>();
        QFuture<T> future = promise->future();
        promise->start();
        post([promise, work = std::move(work)] {
            promise->addResult(work());
            promise->finish();
        });
        return future;
    }

private:
    QObject* context();

    const QString m_name;
    QMutex m_mutex; // guards the two below
    std::unique_ptr<QThread> m_thread;
    std::unique_ptr<QObject> m_context; // lives on m_thread
};
