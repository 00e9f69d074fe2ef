#include "app/SingleInstance.h"

#include "core/Logging.h"

#include <QCryptographicHash>
#include <QLocalServer>
#include <QLocalSocket>
#include <QPointer>

#include <memory>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// Far more than a redirect URL needs; a peer that sends more is cut off.
constexpr qint64 maxMessageBytes = 64 * 1024;
constexpr auto acknowledgement = "ok\n";
// A line that starts so is a command, not a URL.
constexpr auto commandPrefix = "--";

} // namespace

SingleInstance::SingleInstance(QString name, QObject* parent)
    : QObject(parent), m_name(std::move(name)), m_server(new QLocalServer(this))
{
    // Only this user may hand the app a sign-in link.
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    connect(m_server, &QLocalServer::newConnection, this, &SingleInstance::acceptConnection);
}

SingleInstance::~SingleInstance()
{
    m_server->close();
}

QString SingleInstance::defaultName()
{
    return u"quillmoss-app-%1"_s.arg(getuid());
}

bool SingleInstance::forward(const QString& name, const QList<QUrl>& urls, int timeoutMs)
{
    return forward(name, urls, {}, timeoutMs);
}

bool SingleInstance::forward(const QString& name, const QList<QUrl>& urls,
                             const QStringList& commands, int timeoutMs)
{
    QLocalSocket socket;
    socket.connectToServer(name);
    if (!socket.waitForConnected(timeoutMs))
        return false;
    QByteArray message;
    for (const QUrl& url : urls)
        message += url.toEncoded() + '\n';
    for (const QString& command : commands) {
        if (command.startsWith(QLatin1StringView(commandPrefix)) && !command.contains(u'\n'))
            message += command.toUtf8() + '\n';
    }
    message += '\n'; // end of the list
    socket.write(message);
    if (!socket.waitForBytesWritten(timeoutMs))
        return false;
    while (!socket.canReadLine()) {
        if (!socket.waitForReadyRead(timeoutMs))
            return false;
    }
    return socket.readLine() == acknowledgement;
}

bool SingleInstance::listen()
{
    if (m_server->isListening())
        return true;
    // Asked first: with access options, listening binds elsewhere and renames
    // the socket into place, which would silently take it from a running app.
    QLocalSocket probe;
    probe.connectToServer(m_name);
    if (probe.waitForConnected(500))
        return false;
    if (m_server->listen(m_name))
        return true;
    if (m_server->serverError() == QAbstractSocket::AddressInUseError) {
        // A crashed instance left its socket behind.
        QLocalServer::removeServer(m_name);
        if (m_server->listen(m_name))
            return true;
    }
    qCWarning(lcApp).noquote() << u"⚠️ Cannot listen for links from other launches: %1"_s.arg(
        m_server->errorString());
    return false;
}

bool SingleInstance::isListening() const
{
    return m_server->isListening();
}

void SingleInstance::acceptConnection()
{
    while (QLocalSocket* socket = m_server->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        QPointer<QLocalSocket> guard(socket);
        auto commanded = std::make_shared<bool>(false);
        connect(socket, &QLocalSocket::readyRead, this, [this, guard, commanded] {
            if (!guard)
                return;
            if (guard->bytesAvailable() > maxMessageBytes) {
                guard->abort();
                return;
            }
            while (guard->canReadLine()) {
                const QByteArray line = guard->readLine().trimmed();
                if (line.isEmpty()) {
                    guard->write(acknowledgement);
                    guard->disconnectFromServer();
                    if (!*commanded)
                        Q_EMIT activated();
                    return;
                }
                if (line.startsWith(commandPrefix)) {
                    *commanded = true;
                    Q_EMIT commandReceived(QString::fromUtf8(line));
                    continue;
                }
                const QUrl url = QUrl::fromEncoded(line, QUrl::StrictMode);
                if (url.isValid())
                    Q_EMIT urlReceived(url);
            }
        });
    }
}
