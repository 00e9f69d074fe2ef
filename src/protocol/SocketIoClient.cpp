#include "protocol/SocketIoClient.h"

#include "core/Logging.h"
#include "protocol/SocketIoPacket.h"

#include <QNetworkRequest>
#include <QPointer>
#include <QRandomGenerator>
#include <QWebSocket>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

// Where a URL goes in a log line: never its query, which carries the bearer token.
QString loggable(const QUrl& url)
{
    return url.adjusted(QUrl::RemoveQuery | QUrl::RemoveUserInfo | QUrl::RemoveFragment)
        .toDisplayString();
}

QString normalizedNameSpace(const QString& nameSpace)
{
    if (nameSpace.isEmpty())
        return u"/"_s;
    return nameSpace.startsWith(u'/') ? nameSpace : u'/' + nameSpace;
}

QString statusName(SocketIoClient::Status status)
{
    switch (status) {
    case SocketIoClient::Status::NotConnected:
        return u"not connected"_s;
    case SocketIoClient::Status::Connecting:
        return u"connecting"_s;
    case SocketIoClient::Status::Connected:
        return u"connected"_s;
    case SocketIoClient::Status::Disconnected:
        return u"disconnected"_s;
    }
    return u"?"_s;
}

} // namespace

SocketIoClient::SocketIoClient(QUrl baseUrl, QString nameSpace,
                               QMap<QString, QString> connectParams, Options options,
                               QObject* parent)
    : QObject(parent), m_baseUrl(std::move(baseUrl)), m_nameSpace(normalizedNameSpace(nameSpace)),
      m_connectParams(std::move(connectParams)), m_options(std::move(options))
{
    if (m_nameSpace.contains(u','))
        qCWarning(lcSocket) << "a namespace with a comma cannot be written on the wire:"
                            << m_nameSpace;
    for (const QString& reserved : {u"EIO"_s, u"transport"_s}) {
        if (m_connectParams.remove(reserved) > 0)
            qCWarning(lcSocket) << "ignoring the connect parameter" << reserved;
    }
    for (QTimer* timer : {&m_connectTimer, &m_pingTimer, &m_backoffTimer})
        timer->setSingleShot(true);
    connect(&m_connectTimer, &QTimer::timeout, this,
            [this] { lose(u"transport error"_s, u"Connection timed out"_s); });
    connect(&m_pingTimer, &QTimer::timeout, this, [this] {
        lose(u"ping timeout"_s,
             u"No ping from the server within %1 ms"_s.arg(m_pingDeadline.count()));
    });
    connect(&m_backoffTimer, &QTimer::timeout, this, &SocketIoClient::attempt);
}

SocketIoClient::~SocketIoClient()
{
    const QSignalBlocker quiet(this);
    if (m_phase == Phase::Connected)
        sendPacket(SocketIoPacket::disconnect(m_nameSpace));
    closeTransport(true);
    m_connectTimer.stop();
    m_pingTimer.stop();
    m_backoffTimer.stop();
}

SocketIoClient::Status SocketIoClient::status() const
{
    switch (m_phase) {
    case Phase::Idle:
        return Status::NotConnected;
    case Phase::Opening:
    case Phase::Joining:
    case Phase::Waiting:
        return Status::Connecting;
    case Phase::Connected:
        return Status::Connected;
    case Phase::Stopped:
        return Status::Disconnected;
    }
    return Status::Disconnected;
}

QUrl SocketIoClient::baseUrl() const
{
    return m_baseUrl;
}

void SocketIoClient::connectToServer()
{
    if (status() == Status::Connecting || status() == Status::Connected)
        return;
    ++m_generation;
    m_reconnecting = false;
    m_attempts = 0;
    openTransport();
}

void SocketIoClient::disconnectFromServer()
{
    if (m_phase == Phase::Idle || m_phase == Phase::Stopped)
        return;
    ++m_generation;
    const bool wasConnected = m_phase == Phase::Connected;
    if (wasConnected)
        sendPacket(SocketIoPacket::disconnect(m_nameSpace));
    qCInfo(lcSocket) << "disconnecting from" << m_nameSpace;
    stop();
    if (!setPhase(Phase::Stopped))
        return;
    if (wasConnected)
        notify([this] { Q_EMIT disconnected(u"io client disconnect"_s); });
}

bool SocketIoClient::emitEvent(const QString& event, const QJsonArray& items)
{
    if (m_phase != Phase::Connected) {
        qCDebug(lcSocket) << "dropping the event" << event << "while" << statusName(status());
        return false;
    }
    const QString frame = EngineIoPacket{EngineIoPacket::Type::Message,
                                         SocketIoPacket::event(m_nameSpace, event, items).encode()}
                              .encode();
    const qint64 bytes = frame.toUtf8().size();
    if (m_maxPayload > 0 && bytes > m_maxPayload) {
        qCWarning(lcSocket) << "not sending the event" << event << "of" << bytes
                            << "bytes: the server takes at most" << m_maxPayload;
        return false;
    }
    m_socket->sendTextMessage(frame);
    return true;
}

std::chrono::milliseconds SocketIoClient::backoffDelay(const Options& options, int attempt,
                                                       double unitRandom)
{
    const double ceiling =
        static_cast<double>(std::max<qint64>(0, options.reconnectionDelayMax.count()));
    // Past 2^30 every sane delay has long hit the ceiling; the cap keeps the power finite.
    const double doubled =
        static_cast<double>(std::max<qint64>(0, options.reconnectionDelay.count())) *
        std::exp2(std::clamp(attempt - 1, 0, 30));
    const double factor = std::clamp(options.randomizationFactor, 0.0, 1.0);
    const double spread = factor * (2.0 * std::clamp(unitRandom, 0.0, 1.0) - 1.0);
    const double wait = std::clamp(std::min(doubled, ceiling) * (1.0 + spread), 0.0, ceiling);
    return std::chrono::milliseconds(std::llround(wait));
}

QUrl SocketIoClient::handshakeUrl() const
{
    QUrl url = m_baseUrl;
    const QString scheme = url.scheme().toLower();
    url.setScheme(scheme == u"https"_s || scheme == u"wss"_s ? u"wss"_s : u"ws"_s);

    QString prefix = url.path();
    while (prefix.endsWith(u'/'))
        prefix.chop(1);
    QString path = m_options.path.isEmpty() ? u"/socket.io/"_s : m_options.path;
    if (!path.startsWith(u'/'))
        path.prepend(u'/');
    // The server serves everything below "<path>/"; without the slash some
    // proxies in front of it redirect.
    if (!path.endsWith(u'/'))
        path.append(u'/');
    url.setPath(prefix + path);

    // Encoded by hand: QUrlQuery leaves '+' alone, which the server's query
    // parser reads as a space.
    QString query = u"EIO=4&transport=websocket"_s;
    for (auto it = m_connectParams.cbegin(); it != m_connectParams.cend(); ++it) {
        query += u'&' + QString::fromLatin1(QUrl::toPercentEncoding(it.key())) + u'=' +
                 QString::fromLatin1(QUrl::toPercentEncoding(it.value()));
    }
    url.setQuery(query, QUrl::StrictMode);
    return url;
}

void SocketIoClient::openTransport()
{
    closeTransport(false);
    m_transportError.clear();
    m_transportFailed = false;

    m_socket = new QWebSocket(QString(), QWebSocketProtocol::VersionLatest, this);
    connect(m_socket, &QWebSocket::textMessageReceived, this, &SocketIoClient::receiveFrame);
    connect(m_socket, &QWebSocket::binaryMessageReceived, this, [](const QByteArray& frame) {
        // Only the attachments of binary packets come this way, and those are refused.
        qCDebug(lcSocket) << "ignoring a binary frame of" << frame.size() << "bytes";
    });
    connect(m_socket, &QWebSocket::connected, this,
            [] { qCDebug(lcSocket) << "WebSocket open, waiting for the handshake"; });
    connect(m_socket, qOverload<QAbstractSocket::SocketError>(&QWebSocket::error), this,
            [this](QAbstractSocket::SocketError error) {
                m_transportError = m_socket->errorString();
                // The server going away is how a transport closes, not a fault of it.
                m_transportFailed = error != QAbstractSocket::RemoteHostClosedError;
                qCDebug(lcSocket) << "transport error:" << error << m_transportError;
                // QWebSocket does not always follow an error with disconnected() (a refused
                // handshake, for one); a socket left without a connection has ended either way.
                QMetaObject::invokeMethod(
                    this,
                    [this, socket = QPointer<QWebSocket>(m_socket)] {
                        if (socket && socket == m_socket &&
                            socket->state() == QAbstractSocket::UnconnectedState)
                            transportEnded();
                    },
                    Qt::QueuedConnection);
            });
    connect(m_socket, &QWebSocket::disconnected, this, &SocketIoClient::transportEnded);

    const QUrl url = handshakeUrl();
    qCInfo(lcSocket) << "connecting to" << loggable(url) << "namespace" << m_nameSpace;
    if (!setPhase(Phase::Opening))
        return;
    if (m_options.connectTimeout.count() > 0)
        m_connectTimer.start(m_options.connectTimeout);
    m_socket->open(QNetworkRequest(url));
}

void SocketIoClient::closeTransport(bool graceful)
{
    m_pingTimer.stop();
    if (m_socket == nullptr)
        return;
    QWebSocket* socket = std::exchange(m_socket, nullptr);
    disconnect(socket, nullptr, this, nullptr);
    if (graceful && socket->state() == QAbstractSocket::ConnectedState) {
        socket->close(QWebSocketProtocol::CloseCodeNormal);
        // Written now: the socket is gone before the event loop would write it.
        socket->flush();
    } else {
        socket->abort();
    }
    socket->deleteLater();
}

void SocketIoClient::sendPacket(const SocketIoPacket& packet)
{
    if (m_socket == nullptr)
        return;
    const EngineIoPacket message{EngineIoPacket::Type::Message, packet.encode()};
    m_socket->sendTextMessage(message.encode());
}

void SocketIoClient::receiveFrame(const QString& frame)
{
    const auto decoded = EngineIoPacket::decode(frame);
    if (!decoded.ok()) {
        qCWarning(lcSocket) << "unreadable packet from the server:" << decoded.error;
        lose(u"transport error"_s, u"Unreadable packet from the server: "_s + decoded.error);
        return;
    }
    const EngineIoPacket& packet = *decoded.value;
    switch (packet.type) {
    case EngineIoPacket::Type::Open:
        receiveOpen(packet.data);
        return;
    case EngineIoPacket::Type::Close:
        lose(u"transport close"_s, u"The server closed the connection"_s);
        return;
    case EngineIoPacket::Type::Ping:
        if (m_socket != nullptr)
            m_socket->sendTextMessage(
                EngineIoPacket{EngineIoPacket::Type::Pong, packet.data}.encode());
        if (m_pingDeadline.count() > 0)
            m_pingTimer.start(m_pingDeadline);
        return;
    case EngineIoPacket::Type::Message:
        receiveSocketIo(packet.data);
        return;
    case EngineIoPacket::Type::Pong:
    case EngineIoPacket::Type::Upgrade:
    case EngineIoPacket::Type::Noop:
        return;
    }
}

void SocketIoClient::receiveOpen(const QString& data)
{
    if (m_phase != Phase::Opening) {
        qCDebug(lcSocket) << "ignoring a second handshake";
        return;
    }
    const auto handshake = EngineIoHandshake::decode(data);
    if (!handshake.ok()) {
        qCWarning(lcSocket) << "unusable handshake:" << handshake.error;
        lose(u"transport error"_s, u"Unusable handshake from the server: "_s + handshake.error);
        return;
    }
    // The server pings every pingInterval; a ping later than pingTimeout after
    // that means the connection is dead, even when TCP has not noticed.
    m_pingDeadline = handshake.value->pingInterval + handshake.value->pingTimeout;
    m_maxPayload = handshake.value->maxPayload;
    m_pingTimer.start(m_pingDeadline);
    qCDebug(lcSocket) << "handshake: ping every" << handshake.value->pingInterval.count()
                      << "ms, timeout" << handshake.value->pingTimeout.count() << "ms";
    sendPacket(SocketIoPacket::connect(m_nameSpace));
    setPhase(Phase::Joining);
}

void SocketIoClient::receiveSocketIo(const QString& text)
{
    if (text.startsWith(u'5') || text.startsWith(u'6')) {
        qCWarning(lcSocket) << "ignoring a binary packet";
        return;
    }
    const auto decoded = SocketIoPacket::decode(text);
    if (!decoded.ok()) {
        qCWarning(lcSocket) << "unreadable Socket.IO packet:" << decoded.error;
        lose(u"transport error"_s, u"Unreadable packet from the server: "_s + decoded.error);
        return;
    }
    const SocketIoPacket& packet = *decoded.value;
    if (packet.nameSpace != m_nameSpace) {
        qCDebug(lcSocket) << "ignoring a packet for the namespace" << packet.nameSpace;
        return;
    }
    switch (packet.type) {
    case SocketIoPacket::Type::Connect:
        if (m_phase != Phase::Joining)
            return;
        m_connectTimer.stop();
        m_reconnecting = false;
        m_attempts = 0;
        qCInfo(lcSocket) << "connected to" << m_nameSpace;
        if (setPhase(Phase::Connected))
            notify([this] { Q_EMIT connected(); });
        return;
    case SocketIoPacket::Type::ConnectError: {
        // The server refused us: trying again would only be refused again, so
        // the owner decides (new credentials, another server, giving up).
        const QString message =
            packet.errorMessage().isEmpty() ? u"Connection refused"_s : packet.errorMessage();
        qCWarning(lcSocket) << "the server refused the namespace:" << message;
        stop();
        if (setPhase(Phase::Stopped))
            notify([this, message] { Q_EMIT errorOccurred(message); });
        return;
    }
    case SocketIoPacket::Type::Disconnect: {
        qCInfo(lcSocket) << "the server disconnected us from" << m_nameSpace;
        const bool wasConnected = m_phase == Phase::Connected;
        stop();
        if (!setPhase(Phase::Stopped))
            return;
        if (wasConnected)
            notify([this] { Q_EMIT disconnected(u"io server disconnect"_s); });
        else
            notify([this] { Q_EMIT errorOccurred(u"The server disconnected the namespace"_s); });
        return;
    }
    case SocketIoPacket::Type::Event:
        if (m_phase != Phase::Connected)
            return;
        // An ack id asks for an answer we have none for; the event itself counts.
        notify([this, &packet] { Q_EMIT eventReceived(packet.eventName(), packet.eventItems()); });
        return;
    case SocketIoPacket::Type::Ack:
        qCDebug(lcSocket) << "ignoring an acknowledgement nothing asked for:" << *packet.ackId;
        return;
    }
}

void SocketIoClient::transportEnded()
{
    if (m_socket == nullptr)
        return;
    const QString detail =
        m_transportError.isEmpty() ? u"The connection closed"_s : m_transportError;
    lose(m_transportFailed ? u"transport error"_s : u"transport close"_s, detail);
}

void SocketIoClient::lose(const QString& reason, const QString& detail)
{
    const Phase phase = m_phase;
    if (phase != Phase::Opening && phase != Phase::Joining && phase != Phase::Connected)
        return;
    closeTransport(false);
    m_connectTimer.stop();

    if (phase == Phase::Connected) {
        qCInfo(lcSocket) << "connection lost:" << reason << detail;
        if (setPhase(m_options.reconnection ? Phase::Waiting : Phase::Stopped) &&
            notify([this, reason] { Q_EMIT disconnected(reason); }))
            beginReconnection();
        return;
    }

    if (m_reconnecting) {
        qCInfo(lcSocket) << "reconnection attempt" << m_attempts << "failed:" << detail;
        scheduleAttempt();
        return;
    }
    qCWarning(lcSocket) << "cannot connect:" << detail;
    if (setPhase(m_options.reconnection ? Phase::Waiting : Phase::Stopped) &&
        notify([this, detail] { Q_EMIT errorOccurred(detail); }))
        beginReconnection();
}

void SocketIoClient::beginReconnection()
{
    if (!m_options.reconnection)
        return;
    m_reconnecting = true;
    m_attempts = 0;
    if (notify([this] { Q_EMIT reconnecting(); }))
        scheduleAttempt();
}

void SocketIoClient::scheduleAttempt()
{
    if (m_options.reconnectionAttempts >= 0 && m_attempts >= m_options.reconnectionAttempts) {
        qCWarning(lcSocket) << "giving up after" << m_attempts << "reconnection attempts";
        stop();
        if (setPhase(Phase::Stopped))
            notify([this] { Q_EMIT errorOccurred(u"Reconnection failed"_s); });
        return;
    }
    const auto wait =
        backoffDelay(m_options, m_attempts + 1, QRandomGenerator::global()->generateDouble());
    qCDebug(lcSocket) << "next reconnection attempt in" << wait.count() << "ms";
    if (setPhase(Phase::Waiting))
        m_backoffTimer.start(wait);
}

void SocketIoClient::attempt()
{
    ++m_attempts;
    if (notify([this] { Q_EMIT reconnectAttempt(m_attempts); }))
        openTransport();
}

void SocketIoClient::stop()
{
    closeTransport(true);
    m_connectTimer.stop();
    m_backoffTimer.stop();
    m_reconnecting = false;
}

bool SocketIoClient::setPhase(Phase phase)
{
    const Status before = status();
    m_phase = phase;
    const Status after = status();
    if (after == before)
        return true;
    return notify([this, after] { Q_EMIT statusChanged(after); });
}

bool SocketIoClient::notify(const std::function<void()>& emitSignal)
{
    const QPointer<SocketIoClient> self(this);
    const quint64 generation = m_generation;
    emitSignal();
    return !self.isNull() && m_generation == generation;
}
