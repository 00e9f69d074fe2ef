#include "session/SessionConnection.h"

#include "session/SessionPayload.h"

#include <QFutureWatcher>
#include <QPointer>

using namespace Qt::StringLiterals;
using SessionPayload::compact;
using SessionPayload::firstObject;
using SessionPayload::say;
using SessionPayload::warn;

namespace {

QString mapText(const QMap<QString, QString>& map)
{
    QStringList pairs;
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        pairs << u"\"%1\": \"%2\""_s.arg(it.key(), it.value());
    return u"["_s + pairs.join(u", "_s) + u"]"_s;
}

} // namespace

SessionConnection::SessionConnection(QUrl backendUrl, const QString& callId,
                                     Dependencies dependencies, Timing timing, QObject* parent)
    : QObject(parent), m_backendUrl(std::move(backendUrl)), m_dependencies(std::move(dependencies)),
      m_timing(std::move(timing))
{
    QMap<QString, QString> connectParams;
    if (!callId.isEmpty())
        connectParams.insert(u"callId"_s, callId);

    say(u"🔧 SocketController.init() - Configuration Debug:"_s);
    say(u"  📡 serverURL: "_s + m_backendUrl.toString());
    say(u"  🆔 callId: "_s + callId);
    say(u"  📋 Will initialize session after connection with config"_s);
    say(u"  🔑 Will fetch fresh auth token during connection"_s);
    say(u"  📡 Initializing SocketManager with connectParams: "_s + mapText(connectParams));

    m_connectionTimeoutTimer.setSingleShot(true);
    m_connectionTimeoutTimer.setInterval(m_timing.connectionTimeout);
    QObject::connect(&m_connectionTimeoutTimer, &QTimer::timeout, this,
                     [this] { runSessionErrorPath(u"Connection/Session timeout"_s); });

    // The session's own events; the other parts add theirs.
    addHandler(u"connected"_s, [this](const QJsonArray& items) { handleConnected(items); });
    addHandler(u"sessionInitialized"_s,
               [this](const QJsonArray& items) { handleSessionInitialized(items); });
    addHandler(u"sessionError"_s, [this](const QJsonArray& items) { handleSessionError(items); });
    // What the backend says of itself: only logged.
    addHandler(u"analysis"_s, [](const QJsonArray& items) {
        say(u"Received analysis: "_s + (items.isEmpty() ? QString() : compact(items.first())));
    });
    addHandler(u"status"_s, [](const QJsonArray& items) {
        if (const std::optional<QJsonObject> data = firstObject(items))
            say(u"Received status: "_s + data->value(u"status"_s).toString());
    });
    addHandler(u"error"_s, [](const QJsonArray& items) {
        if (const std::optional<QJsonObject> data = firstObject(items))
            warn(u"Received error: "_s + data->value(u"message"_s).toString());
    });
    addHandler(u"ack"_s, [](const QJsonArray& /*items*/) {});

    m_socket = makeSocket(connectParams);
}

SessionConnection::~SessionConnection()
{
    m_connectionTimeoutTimer.stop();
    if (m_socket) {
        QObject::disconnect(m_socket.get(), nullptr, this, nullptr);
        m_socket->disconnectFromServer();
    }
}

void SessionConnection::setSessionPayloadExtension(std::function<void(QJsonObject&)> extend)
{
    m_extendSessionPayload = std::move(extend);
}

void SessionConnection::addHandler(const QString& event, const EventHandler& handler)
{
    m_handlers.insert(event, handler);
}

// --- the socket ---------------------------------------------------------------------------

std::unique_ptr<SocketIoClient>
SessionConnection::makeSocket(const QMap<QString, QString>& connectParams)
{
    // Logging off (our own lines), compression asked for, the connect
    // parameters; the client's reconnection defaults apply.
    SocketIoClient::Options options = m_timing.socket;
    options.compression = true;
    auto socket = std::make_unique<SocketIoClient>(m_backendUrl, QString::fromLatin1(nameSpace),
                                                   connectParams, options);
    watchSocket(socket.get());
    return socket;
}

void SessionConnection::watchSocket(SocketIoClient* socket)
{
    // A replaced socket may still report its own end: only the current one counts.
    const QPointer<SocketIoClient> source(socket);
    auto current = [this, source] { return source && source.data() == m_socket.get(); };
    QObject::connect(socket, &SocketIoClient::connected, this, [this, current] {
        if (current())
            handleSocketConnected();
    });
    QObject::connect(socket, &SocketIoClient::disconnected, this,
                     [this, current](const QString& reason) {
                         if (current())
                             handleSocketDisconnected(reason);
                     });
    QObject::connect(socket, &SocketIoClient::errorOccurred, this,
                     [this, current](const QString& message) {
                         if (current())
                             handleSocketError(message);
                     });
    QObject::connect(socket, &SocketIoClient::reconnecting, this, [this, current] {
        if (current())
            handleSocketReconnecting();
    });
    QObject::connect(socket, &SocketIoClient::eventReceived, this,
                     [this, current](const QString& event, const QJsonArray& items) {
                         if (current())
                             handleEvent(event, items);
                     });
}

void SessionConnection::handleEvent(const QString& event, const QJsonArray& items)
{
    Q_EMIT eventReceived(event, items);
    const auto handler = m_handlers.constFind(event);
    if (handler != m_handlers.cend())
        handler.value()(items);
}

void SessionConnection::connect()
{
    say(u"🔌 SocketController.connect() called"_s);
    say(u"🔑 Fetching valid access token..."_s);
    if (!m_dependencies.accessToken) {
        warn(u"❌ No valid access token available - connection aborted"_s);
        setConnected(false);
        return;
    }
    const quint64 attempt = ++m_connectAttempt;
    auto* watcher = new QFutureWatcher<std::optional<QString>>(this);
    QObject::connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher, attempt] {
        watcher->deleteLater();
        if (attempt != m_connectAttempt)
            return; // a later connect() or a disconnect() took over
        const std::optional<QString> token =
            watcher->future().isCanceled() ? std::nullopt : watcher->future().result();
        if (!token) {
            warn(u"❌ No valid access token available - connection aborted"_s);
            setConnected(false);
            return;
        }
        say(u"✅ Valid access token obtained, establishing connection..."_s);
        if (m_socket && m_socket->status() == SocketIoClient::Status::Connected)
            m_socket->disconnectFromServer();
        // Only the token: the backend tells the call id in the session.
        std::unique_ptr<SocketIoClient> previous =
            std::exchange(m_socket, makeSocket({{u"token"_s, *token}}));
        if (previous) {
            QObject::disconnect(previous.get(), nullptr, this, nullptr);
            previous->disconnectFromServer();
            previous.release()->deleteLater();
        }
        say(u"🔌 Connecting to WebSocket with fresh token..."_s);
        m_socket->connectToServer();
    });
    watcher->setFuture(m_dependencies.accessToken());
}

void SessionConnection::disconnect()
{
    say(u"🔌 Disconnecting socket..."_s);
    ++m_connectAttempt; // a token fetch still under way must not connect afterwards
    if (clearConnectionTimeout())
        say(u"⏰ Clearing connection timeout timer"_s);
    if (m_socket)
        m_socket->disconnectFromServer();
    setConnected(false);
    setSessionReady(false);
    say(u"📱 Updated CallController with manual disconnect state"_s);
}

void SessionConnection::handleSocketConnected()
{
    say(u"✅ Socket connected to server"_s);
    setConnected(true);
    Q_EMIT reachabilityChanged(true);
    say(u"📱 Updated CallController with connection state"_s);
    initializeSession();
}

void SessionConnection::handleSocketDisconnected(const QString& reason)
{
    say(u"❌ Socket disconnected"_s + (reason.isEmpty() ? QString() : u" ("_s + reason + u")"_s));
    setConnected(false);
    setSessionReady(false);
    say(u"📱 Updated CallController with disconnection state"_s);
}

void SessionConnection::handleSocketReconnecting()
{
    say(u"🔄 Socket reconnected - reinitializing session"_s);
    armConnectionTimeout();
    initializeSession();
}

void SessionConnection::handleSocketError(const QString& message)
{
    warn(u"❌ Socket error: "_s + message);
    if (message.contains(u"JWT"_s) || message.contains(u"token"_s) ||
        message.contains(u"unauthorized"_s)) {
        warn(u"🔐 JWT Authentication error detected: "_s + message);
        if (m_dependencies.signOut)
            m_dependencies.signOut();
        say(u"🔐 Cleared expired tokens due to JWT error"_s);
        return;
    }
    // Anything else at this level means the backend is out of reach for now;
    // the socket keeps trying on its own.
    Q_EMIT reachabilityChanged(false);
}

// --- session ------------------------------------------------------------------------------

void SessionConnection::initializeSession()
{
    QJsonObject payload{
        {u"direction"_s, m_callDirection},
        {u"timestamp"_s, SessionPayload::timestampNow()},
    };
    if (m_extendSessionPayload)
        m_extendSessionPayload(payload);
    say(u"🚀 Emitting initializeSession with data keys: "_s + payload.keys().join(u", "_s));
    if (m_socket)
        m_socket->emitEvent(u"initializeSession"_s, QJsonArray{payload});
}

void SessionConnection::handleConnected(const QJsonArray& items)
{
    say(u"✅ Backend connection acknowledged"_s);
    say(u"📋 Connection data: "_s + (items.isEmpty() ? QString() : compact(items.first())));
}

void SessionConnection::handleSessionInitialized(const QJsonArray& items)
{
    say(u"🎯 Session initialized successfully!"_s);
    if (clearConnectionTimeout())
        say(u"⏰ Clearing connection timeout timer"_s);
    const std::optional<QJsonObject> data = firstObject(items);
    if (!data) {
        warn(u"❌ Invalid session data format"_s);
        runSessionErrorPath(u"Invalid session data format"_s);
        return;
    }
    say(u"📋 Session data: "_s + compact(*data));

    setConnected(true);
    setSessionReady(true);
    Q_EMIT sessionInitialized(*data);
    const QJsonValue callId = data->value(u"callId"_s);
    if (callId.isString()) {
        if (m_sessionCallId != callId.toString()) {
            m_sessionCallId = callId.toString();
            Q_EMIT sessionCallIdChanged(m_sessionCallId);
        }
        say(u"🆔 Updated call model with session call ID: "_s + callId.toString());
    }
    say(u"📱 Updated CallController with session state"_s);
    say(u"✅ Session ready - can now use socket features"_s);
    if (onConnectStatusChange)
        onConnectStatusChange(true);
    Q_EMIT sessionStarted();
}

void SessionConnection::handleSessionError(const QJsonArray& items)
{
    warn(u"❌ Session initialization failed"_s);
    clearConnectionTimeout();
    const QJsonObject data = firstObject(items).value_or(QJsonObject());
    say(u"📋 Session error details: "_s + compact(data));
    const QJsonValue message = data.value(u"message"_s);
    runSessionErrorPath(message.isString() ? message.toString()
                                           : u"Session initialization failed"_s);
}

void SessionConnection::runSessionErrorPath(const QString& message)
{
    warn(u"❌ Session error: "_s + message);
    setConnected(false);
    setSessionReady(false);
    if (onConnectStatusChange)
        onConnectStatusChange(false);
}

void SessionConnection::armConnectionTimeout()
{
    say(u"⏰ Starting connection timeout timer (%1 seconds)"_s.arg(
        QString::number(static_cast<double>(m_timing.connectionTimeout.count()) / 1000.0, 'f', 1)));
    m_connectionTimeoutTimer.start();
}

bool SessionConnection::clearConnectionTimeout()
{
    const bool pending = m_connectionTimeoutTimer.isActive();
    m_connectionTimeoutTimer.stop();
    return pending;
}

// --- sending ------------------------------------------------------------------------------

bool SessionConnection::emitWhenReady(const QString& event, const QJsonObject& payload,
                                      const QString& announcement, const QString& refusal)
{
    if (!m_sessionReady) {
        warn(refusal);
        return false;
    }
    say(announcement);
    return m_socket && m_socket->emitEvent(event, QJsonArray{payload});
}

// --- state --------------------------------------------------------------------------------

void SessionConnection::setConnected(bool connected)
{
    if (m_isConnected == connected)
        return;
    m_isConnected = connected;
    Q_EMIT isConnectedChanged();
}

void SessionConnection::setSessionReady(bool ready)
{
    if (m_sessionReady == ready)
        return;
    m_sessionReady = ready;
    Q_EMIT sessionReadyChanged();
}
