#include "cli/OAuthTerminal.h"

#include <QSocketNotifier>
#include <QTcpSocket>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr auto callbackPath = "/oauth/callback";
// A request line and headers of a browser fit well in this; more is not one.
constexpr qsizetype longestRequest = 64 * 1024;

QByteArray page(int status, const QByteArray& reason, const QString& text)
{
    const QByteArray body = "<!doctype html><meta charset=\"utf-8\"><title>Quillmoss</title>"
                            "<body style=\"font-family:sans-serif;margin:3em\"><p>" +
                            text.toHtmlEscaped().toUtf8() + "</p></body>";
    return "HTTP/1.1 " + QByteArray::number(status) + ' ' + reason +
           "\r\nContent-Type: text/html; charset=utf-8\r\nContent-Length: " +
           QByteArray::number(body.size()) +
           "\r\nCache-Control: no-store\r\nConnection: close\r\n\r\n" + body;
}

} // namespace

StdinLineReader::StdinLineReader(std::function<void(const QString&)> line,
                                 std::function<void()> ended, QObject* parent)
    : QObject(parent), m_line(std::move(line)), m_ended(std::move(ended)),
      m_notifier(std::make_unique<QSocketNotifier>(STDIN_FILENO, QSocketNotifier::Read))
{
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &StdinLineReader::readAvailable);
}

StdinLineReader::~StdinLineReader() = default;

void StdinLineReader::readAvailable()
{
    std::array<char, 4096> chunk{};
    const ssize_t count = ::read(STDIN_FILENO, chunk.data(), chunk.size());
    if (count <= 0) {
        // End of input (or an error, which ends it as well).
        m_notifier->setEnabled(false);
        if (!m_buffer.isEmpty())
            m_line(QString::fromUtf8(std::exchange(m_buffer, {})).trimmed());
        if (m_ended)
            m_ended();
        return;
    }
    m_buffer.append(chunk.data(), count);
    qsizetype end = 0;
    while ((end = m_buffer.indexOf('\n')) >= 0) {
        const QString line = QString::fromUtf8(m_buffer.left(end)).trimmed();
        m_buffer.remove(0, end + 1);
        m_line(line);
    }
}

LoopbackRedirectListener::LoopbackRedirectListener(std::function<void(const QUrl&)> received,
                                                   QObject* parent)
    : QObject(parent), m_received(std::move(received))
{
    connect(&m_server, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket* socket = m_server.nextPendingConnection()) {
            socket->setParent(this);
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { read(socket); });
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        }
    });
}

LoopbackRedirectListener::~LoopbackRedirectListener()
{
    m_server.close();
}

bool LoopbackRedirectListener::listen()
{
    return m_server.listen(QHostAddress::LocalHost, 0);
}

QString LoopbackRedirectListener::redirectUri() const
{
    return u"http://127.0.0.1:%1%2"_s.arg(m_server.serverPort())
        .arg(QLatin1StringView(callbackPath));
}

void LoopbackRedirectListener::read(QTcpSocket* socket)
{
    QByteArray received = socket->property("received").toByteArray() + socket->readAll();
    if (received.size() > longestRequest) {
        socket->write(page(431, "Request Header Fields Too Large", u"Not a sign-in."_s));
        socket->disconnectFromHost();
        return;
    }
    if (!received.contains("\r\n\r\n")) {
        socket->setProperty("received", received);
        return;
    }
    // "GET /oauth/callback?code=…&state=… HTTP/1.1"
    const QList<QByteArray> requestLine = received.left(received.indexOf("\r\n")).split(' ');
    const QByteArray target = requestLine.value(1);
    const QUrl callback(redirectUri().section(u'/', 0, 2) + QString::fromLatin1(target),
                        QUrl::StrictMode);
    if (requestLine.value(0) != "GET" || !callback.isValid() ||
        callback.path() != QLatin1StringView(callbackPath)) {
        socket->write(page(404, "Not Found", u"Not a sign-in."_s));
        socket->disconnectFromHost();
        return;
    }
    socket->write(page(200, "OK",
                       m_delivered ? u"This sign-in was already handed to Quillmoss."_s
                                   : u"Quillmoss got the answer of the sign-in. You can close "
                                     u"this window and go back to the terminal."_s));
    socket->disconnectFromHost();
    if (!std::exchange(m_delivered, true))
        m_received(callback);
}
