#include "core/SerialWorker.h"

#include <QCoreApplication>
#include <QMutexLocker>

SerialWorker::SerialWorker(QString name) : m_name(std::move(name)) {}

SerialWorker::~SerialWorker()
{
    if (m_thread && !QCoreApplication::instance()) {
        // Destroyed after the application object (a static instance at exit):
        // queued events are no longer delivered, and nobody is left to wait
        // for what is still queued.
        m_thread->quit();
        m_thread->wait();
    } else if (m_thread) {
        // The quit is queued behind everything posted before it: quit() alone
        // ends the loop with posted items still unrun, and their futures would
        // never get a result.
        QThread* thread = m_thread.get();
        QMetaObject::invokeMethod(
            m_context.get(), [thread] { thread->quit(); }, Qt::QueuedConnection);
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
