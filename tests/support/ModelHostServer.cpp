#include "ModelHostServer.h"

#include <QMutexLocker>
#include <QTcpServer>
#include <QTcpSocket>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

// Small enough that a model file takes many writes, so the client sees its
// progress move in steps.
constexpr qsizetype chunkSize = 16 * 1024;

QByteArray reasonPhrase(int status)
{
    switch (status) {
    case 200:
        return "OK";
    case 302:
        return "Found";
    case 404:
        return "Not Found";
    case 500:
        return "Internal Server Error";
    case 503:
        return "Service Unavailable";
    default:
        return "Status";
    }
}

QByteArray head(int status, qsizetype length, const QByteArray& extra = {})
{
    return "HTTP/1.1 " + QByteArray::number(status) + ' ' + reasonPhrase(status) +
           "\r\nContent-Length: " + QByteArray::number(length) +
           "\r\nContent-Type: application/octet-stream\r\nConnection: close\r\n" + extra + "\r\n";
}

} // namespace

// Answers one request per connection; each connection's state is kept here
// until it closes.
class ModelHostWorker : public QTcpServer
{
public:
    explicit ModelHostWorker(ModelHostServer& owner) : m_owner(owner)
    {
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = nextPendingConnection()) {
                m_connections.insert(socket, {});
                connect(socket, &QTcpSocket::readyRead, this, [this, socket] { read(socket); });
                connect(socket, &QTcpSocket::bytesWritten, this,
                        [this, socket] { writeMore(socket); });
                connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
                    if (m_connections.value(socket).held) {
                        const QMutexLocker lock(&m_owner.m_mutex);
                        --m_owner.m_held;
                    }
                    m_connections.remove(socket);
                    socket->deleteLater();
                });
            }
        });
    }

    ~ModelHostWorker() override
    {
        // The sockets are children and go after this; they must not call back into
        // what is already gone.
        for (QTcpSocket* socket : m_connections.keys()) {
            socket->disconnect(this);
        }
    }

    void release()
    {
        QList<QTcpSocket*> released;
        for (auto it = m_connections.begin(); it != m_connections.end(); ++it) {
            if (it->held) {
                it->held = false;
                it->limit = it->body.size();
                released.append(it.key());
            }
        }
        {
            const QMutexLocker lock(&m_owner.m_mutex);
            m_owner.m_held -= static_cast<int>(released.size());
        }
        for (QTcpSocket* socket : released) {
            writeMore(socket);
        }
    }

private:
    enum class AtLimit
    {
        Close, // the whole body, or the cut
        Hold,  // wait for release()
    };

    struct Connection
    {
        QByteArray request;
        bool answered = false;
        QByteArray body;
        qsizetype sent = 0;
        qsizetype limit = 0;
        AtLimit atLimit = AtLimit::Close;
        bool held = false;
    };

    void read(QTcpSocket* socket)
    {
        Connection& connection = m_connections[socket];
        connection.request += socket->readAll();
        if (connection.answered || !connection.request.contains("\r\n\r\n")) {
            return;
        }
        connection.answered = true;
        const QList<QByteArray> requestLine =
            connection.request.left(connection.request.indexOf("\r\n")).split(' ');
        const QString path = QString::fromUtf8(requestLine.value(1));
        QByteArray file;
        bool found = false;
        {
            const QMutexLocker lock(&m_owner.m_mutex);
            m_owner.m_requests.append(path);
            const QString name = path.section(u'/', -1);
            found = m_owner.m_files.contains(name);
            file = m_owner.m_files.value(name);
        }
        const QStringList segments = path.split(u'/', Qt::SkipEmptyParts);
        const QString mode = segments.size() > 1 ? segments.first() : QString();

        if (mode == u"status"_s && segments.size() > 2) {
            const int status = segments.at(1).toInt();
            respond(socket, head(status, 6), "failed");
            return;
        }
        if (mode == u"redirect"_s) {
            const QByteArray location =
                "Location: http://127.0.0.1:" + QByteArray::number(serverPort()) + '/' +
                segments.mid(1).join(u'/').toUtf8() + "\r\n";
            respond(socket, head(302, 0, location), {});
            return;
        }
        if (!found) {
            respond(socket, head(404, 9), "not found");
            return;
        }
        connection.body = file;
        if (mode == u"cut"_s || mode == u"hold"_s) {
            connection.limit = file.size() / 2;
            connection.atLimit = mode == u"hold"_s ? AtLimit::Hold : AtLimit::Close;
        } else {
            connection.limit = file.size();
        }
        socket->write(head(200, file.size()));
    }

    void respond(QTcpSocket* socket, const QByteArray& head, const QByteArray& body)
    {
        Connection& connection = m_connections[socket];
        connection.body = body;
        connection.limit = body.size();
        socket->write(head);
    }

    // Writes the next chunk once the previous one has left, so the body goes
    // out in many writes.
    void writeMore(QTcpSocket* socket)
    {
        if (!m_connections.contains(socket) || socket->bytesToWrite() > 0) {
            return;
        }
        Connection& connection = m_connections[socket];
        if (!connection.answered || connection.held) {
            return;
        }
        if (connection.sent < connection.limit) {
            const qsizetype count = std::min(chunkSize, connection.limit - connection.sent);
            socket->write(connection.body.mid(connection.sent, count));
            connection.sent += count;
            return;
        }
        if (connection.atLimit == AtLimit::Hold && connection.sent < connection.body.size()) {
            connection.held = true;
            const QMutexLocker lock(&m_owner.m_mutex);
            ++m_owner.m_held;
            return;
        }
        socket->disconnectFromHost();
    }

    ModelHostServer& m_owner;
    QHash<QTcpSocket*, Connection> m_connections;
};

ModelHostServer::ModelHostServer()
{
    m_thread.start();
    m_worker = new ModelHostWorker(*this);
    m_worker->moveToThread(&m_thread);
    QMetaObject::invokeMethod(
        m_worker,
        [this] {
            if (m_worker->listen(QHostAddress::LocalHost, 0)) {
                m_port = m_worker->serverPort();
            }
        },
        Qt::BlockingQueuedConnection);
}

ModelHostServer::~ModelHostServer()
{
    QMetaObject::invokeMethod(
        m_worker, [this] { delete m_worker; }, Qt::BlockingQueuedConnection);
    m_thread.quit();
    m_thread.wait();
}

QUrl ModelHostServer::url(const QString& prefix) const
{
    return QUrl(u"http://127.0.0.1:%1%2"_s.arg(m_port).arg(prefix));
}

void ModelHostServer::serveData(const QString& fileName, const QByteArray& data)
{
    const QMutexLocker lock(&m_mutex);
    m_files.insert(fileName, data);
}

void ModelHostServer::release()
{
    QMetaObject::invokeMethod(m_worker, [this] { m_worker->release(); });
}

QStringList ModelHostServer::requests() const
{
    const QMutexLocker lock(&m_mutex);
    return m_requests;
}

int ModelHostServer::heldCount() const
{
    const QMutexLocker lock(&m_mutex);
    return m_held;
}
