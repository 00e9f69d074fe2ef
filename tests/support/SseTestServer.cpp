#include "SseTestServer.h"

#include <QTcpSocket>

using namespace Qt::StringLiterals;

namespace {

QByteArray chunk(const QByteArray& bytes)
{
    return QByteArray::number(bytes.size(), 16) + "\r\n" + bytes + "\r\n";
}

QByteArray statusLine(int status)
{
    return "HTTP/1.1 " + QByteArray::number(status) + " Status\r\n";
}

} // namespace

SseTestServer::SseTestServer()
{
    m_server.listen(QHostAddress::LocalHost, 0);
    connect(&m_server, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket* socket = m_server.nextPendingConnection()) {
            socket->setParent(this);
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { read(socket); });
            connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
                m_received.remove(socket);
                socket->deleteLater();
            });
        }
    });
}

SseTestServer::~SseTestServer()
{
    dropStreams();
}

QUrl SseTestServer::url(const QString& path) const
{
    return QUrl(u"http://127.0.0.1:%1%2"_s.arg(m_server.serverPort()).arg(path));
}

QList<SseTestServer::Request> SseTestServer::requests(const QByteArray& method) const
{
    QList<Request> matching;
    for (const Request& request : m_requests) {
        if (request.method == method)
            matching.append(request);
    }
    return matching;
}

int SseTestServer::streamCount() const
{
    int count = 0;
    for (const auto& socket : m_streams)
        count += socket && socket->state() == QAbstractSocket::ConnectedState ? 1 : 0;
    return count;
}

void SseTestServer::read(QTcpSocket* socket)
{
    QByteArray& buffer = m_received[socket];
    buffer += socket->readAll();
    const qsizetype headEnd = buffer.indexOf("\r\n\r\n");
    if (headEnd < 0)
        return;
    Request request;
    const QList<QByteArray> lines = buffer.left(headEnd).split('\n');
    const QList<QByteArray> first = lines.value(0).trimmed().split(' ');
    request.method = first.value(0);
    request.path = first.value(1);
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const qsizetype colon = lines[i].indexOf(':');
        if (colon > 0)
            request.headers.insert(lines[i].left(colon).trimmed().toLower(),
                                   lines[i].mid(colon + 1).trimmed());
    }
    const qsizetype length = request.headers.value("content-length").toLongLong();
    if (buffer.size() < headEnd + 4 + length)
        return;
    request.body = buffer.mid(headEnd + 4, length);
    m_received.remove(socket);
    m_requests.append(request);
    answer(socket, request);
}

void SseTestServer::answer(QTcpSocket* socket, const Request& request)
{
    if (request.method == "GET") {
        if (stream.status != 200) {
            socket->write(statusLine(stream.status) +
                          "Content-Type: text/plain\r\nContent-Length: " +
                          QByteArray::number(stream.errorBody.size()) +
                          "\r\nConnection: close\r\n\r\n" + stream.errorBody);
            socket->disconnectFromHost();
            return;
        }
        if (stream.endAtOnce) {
            socket->write(statusLine(200) + "Content-Type: " + stream.contentType +
                          "\r\nConnection: close\r\n\r\n" + stream.first);
            socket->disconnectFromHost();
            return;
        }
        socket->write(statusLine(200) + "Content-Type: " + stream.contentType +
                      "\r\nCache-Control: no-cache\r\nTransfer-Encoding: chunked\r\n\r\n");
        if (!stream.first.isEmpty())
            socket->write(chunk(stream.first));
        m_streams.append(socket);
        return;
    }
    if (onPost)
        onPost(request);
    socket->write(statusLine(post.status) + "Content-Type: text/plain\r\nContent-Length: " +
                  QByteArray::number(post.body.size()) + "\r\nConnection: close\r\n\r\n" +
                  post.body);
    socket->disconnectFromHost();
}

void SseTestServer::push(const QByteArray& bytes)
{
    for (const auto& socket : std::as_const(m_streams)) {
        if (socket)
            socket->write(chunk(bytes));
    }
}

void SseTestServer::pushMessage(const QByteArray& json)
{
    push("event: message\ndata: " + json + "\n\n");
}

void SseTestServer::endStreams()
{
    for (const auto& socket : std::exchange(m_streams, {})) {
        if (socket) {
            socket->write("0\r\n\r\n");
            socket->disconnectFromHost();
        }
    }
}

void SseTestServer::dropStreams()
{
    for (const auto& socket : std::exchange(m_streams, {})) {
        if (socket)
            socket->abort();
    }
}
