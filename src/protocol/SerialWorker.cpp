#include "protocol/SerialWorker.h"

#include <QMutexLocker>

SerialWorker::SerialWorker(QString name) : m_name(std::move(name)) {}

SerialWorker::~SerialWorker()
{
    if (m_thread) {
        // quit() is handled after the events already queued, so every posted
        // item runs and no caller waits on a future forever.
        m_thread->quit();
        m_thread->wait();
    }
}

QObject* SerialWorker::context()
{
    const QMutexLocker lock(&m_mutex);
    if (!m_thread) {
        m_thread = std::make_unique<QThread>();
        m_thread->setObjectName(m_name);
        m_context = std::make_unique<QObject>();
        m_context->moveToThread(m_thread.get());
        m_thread->start();
    }
    return m_context.get();
}

void SerialWorker::post(std::function<void()> work)
{
    QMetaObject::invokeMethod(context(), std::move(work), Qt::QueuedConnection);
}
