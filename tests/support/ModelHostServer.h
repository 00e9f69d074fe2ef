// Test support: a small HTTP/1.1 server on 127.0.0.1 standing in for the speech-model host,
// with the failures a real host and network produce, chosen by the URL's first path segment.
#pragma once

#include <QHash>
#include <QMutex>
#include <QString>
#include <QStringList>
#include <QThread>
#include <QUrl>

class ModelHostWorker;

// Runs on its own thread, so a test may block (waiting for a process, say)
// while it answers. Under url(prefix) the files given to serveData() answer:
//   ""               200 with Content-Length, the body in several writes
//   "/status/CODE"   that status (404, 500, ...) with a short text body
//   "/cut"           200 announcing the whole length, then half the body and a closed connection
//   "/hold"          200 announcing the whole length, half the body, the rest after release()
//   "/redirect"      302 to the same file without the prefix
// A file that was not given to serveData() answers 404.
class ModelHostServer
{
public:
    ModelHostServer();
    ~ModelHostServer();
    ModelHostServer(const ModelHostServer&) = delete;
    ModelHostServer& operator=(const ModelHostServer&) = delete;

    bool isListening() const { return m_port != 0; }
    QUrl url(const QString& prefix = {}) const;

    void serveData(const QString& fileName, const QByteArray& data);
    // Sends the rest of every held response.
    void release();

    // Paths asked for so far, in order.
    QStringList requests() const;
    // Responses waiting for release() with half their body sent.
    int heldCount() const;

private:
    friend class ModelHostWorker;

    QThread m_thread;
    ModelHostWorker* m_worker = nullptr; // lives on m_thread
    quint16 m_port = 0;

    mutable QMutex m_mutex; // guards what follows: both threads use it
    QHash<QString, QByteArray> m_files;
    QStringList m_requests;
    int m_held = 0;
};
