#include "HttpStub.h"

#include <QTcpSocket>

HttpStub::HttpStub()
{
    connect(&m_server, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket* socket = m_server.nextPendingConnection()) {
            m_received.insert(socket, {});
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { read(socket); });
            connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
                m_received.remove(socket);
                socket->deleteLater();
            });
        }
    });
    m_server.listen(QHostAddress::LocalHost);
}

HttpStub::~HttpStub()
{
    // The sockets are children of the server and go with it; they must not
    // call back into what is already gone.
    for (QTcpSocket* socket : m_received.keys()) {
        socket->disconnect(this);
    }
}

QUrl HttpStub::url() const
{
    return QUrl(QStringLiteral("http://127.0.0.1:%1").arg(m_server.serverPort()));
}

QUrl HttpStub::unreachableUrl()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost);
    const quint16 port = probe.serverPort();
    probe.close();
    return QUrl(QStringLiteral("http://127.0.0.1:%1").arg(port));
}

void HttpStub::setAnswer(const QByteArray& path, const Answer& answer)
{
    m_answers.insert(path, answer);
}

void HttpStub::setAnswerHeaders(const QByteArray& path,
                                const QList<std::pair<QByteArray, QByteArray>>& headers)
{
    m_headers.insert(path, headers);
}

void HttpStub::read(QTcpSocket* socket)
{
    QByteArray& received = m_received[socket];
    received += socket->readAll();
    // A TLS hello, say: answered the way a plain HTTP server answers it.
    if (!received.isEmpty() && (received.front() < 'A' || received.front() > 'Z')) {
        socket->write("HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
        socket->disconnectFromHost();
        return;
    }
    const qsizetype headEnd = received.indexOf("\r\n\r\n");
    if (headEnd < 0) {
        return;
    }
    Request request;
    const QList<QByteArray> lines = received.left(headEnd).split('\n');
    const QList<QByteArray> requestLine = lines.first().trimmed().split(' ');
    request.method = requestLine.value(0);
    request.path = requestLine.value(1);
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const qsizetype colon = lines[i].indexOf(':');
        if (colon > 0) {
            request.headers.insert(lines[i].left(colon).trimmed().toLower(),
                                   lines[i].mid(colon + 1).trimmed());
        }
    }
    const qsizetype length = request.headers.value("content-length").toLongLong();
    if (received.size() < headEnd + 4 + length) {
        return;
    }
    request.body = received.mid(headEnd + 4, length);
    received.clear();
    m_requests.append(request);

    QByteArray answered = request.path;
    if (!m_answers.contains(answered))
        answered = answered.left(answered.indexOf('?'));
    const std::optional<Answer> worked = m_responder ? m_responder(request) : std::nullopt;
    const Answer answer =
        worked ? *worked : m_answers.value(answered, Answer{404, "{}", {}, false});
    QByteArray extraHeaders;
    for (const auto& [name, value] : m_headers.value(answered))
        extraHeaders += name + ": " + value + "\r\n";
    if (answer.hold) {
        return;
    }
    if (!answer.raw.isEmpty()) {
        socket->write(answer.raw);
    } else {
        socket->write("HTTP/1.1 " + QByteArray::number(answer.status) +
                      " Stub\r\nContent-Type: application/json\r\nContent-Length: " +
                      QByteArray::number(answer.body.size()) + "\r\n" + extraHeaders +
                      "Connection: close\r\n\r\n" + answer.body);
    }
    socket->disconnectFromHost();
}
