#include "session/SocketController.h"

#include "call/CallController.h"
#include "call/TranscriptionViewModel.h"
#include "core/Logging.h"
#include "session/SummaryModel.h"

#include <QDateTime>
#include <QFutureWatcher>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace {

void say(const QString& line)
{
    qCInfo(lcSession).noquote() << line;
}

void warn(const QString& line)
{
    qCWarning(lcSession).noquote() << line;
}

// A payload as a log line shows it: compact JSON, cut short, since payloads
// carry whole transcripts and a hostile one can be huge.
QString compact(const QJsonValue& value)
{
    constexpr qsizetype logLimit = 2000;
    QString text;
    if (value.isString())
        text = value.toString();
    else
        text = QString::fromUtf8(QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact))
                   .mid(1)
                   .chopped(1);
    if (text.size() > logLimit)
        text = text.left(logLimit) + u"… (%1 characters)"_s.arg(text.size());
    return text;
}

// What the handlers read: the first item, when it is an object.
std::optional<QJsonObject> firstObject(const QJsonArray& items)
{
    if (items.isEmpty() || !items.first().isObject())
        return std::nullopt;
    return items.first().toObject();
}

QStringList stringList(const QJsonValue& value)
{
    QStringList list;
    for (const auto& item : value.toArray()) {
        if (item.isString())
            list << item.toString();
    }
    return list;
}

// ISO 8601 in UTC with a "Z", to the second.
QString timestampNow()
{
    return QDateTime::currentDateTimeUtc().toString(Qt::ISODate);
}

QString mapText(const QMap<QString, QString>& map)
{
    QStringList pairs;
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        pairs << u"\"%1\": \"%2\""_s.arg(it.key(), it.value());
    return u"["_s + pairs.join(u", "_s) + u"]"_s;
}

} // namespace

SocketController::SocketController(QUrl backendUrl, const QString& callId,
                                   TranscriptionViewModel* transcription,
                                   std::optional<QString> initialConfigJson,
                                   Dependencies dependencies, Timing timing, QObject* parent)
    : QObject(parent), m_backendUrl(std::move(backendUrl)), m_transcription(transcription),
      m_initialConfigJson(std::move(initialConfigJson)), m_dependencies(std::move(dependencies)),
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
    m_agentStatusTimer.setSingleShot(true);
    m_agentStatusTimer.setInterval(m_timing.agentStatusDelay);
    QObject::connect(&m_agentStatusTimer, &QTimer::timeout, this, [this] { getAgentModeStatus(); });

    m_socket = makeSocket(connectParams);
}

SocketController::SocketController(QUrl backendUrl, const QString& callId,
                                   TranscriptionViewModel* transcription,
                                   std::optional<QString> initialConfigJson,
                                   Dependencies dependencies, QObject* parent)
    : SocketController(std::move(backendUrl), callId, transcription, std::move(initialConfigJson),
                       std::move(dependencies), Timing{}, parent)
{}

SocketController::~SocketController()
{
    // Closed quietly: whoever owned the call is going away too.
    m_connectionTimeoutTimer.stop();
    m_agentStatusTimer.stop();
    if (m_socket) {
        QObject::disconnect(m_socket.get(), nullptr, this, nullptr);
        m_socket->disconnectFromServer();
    }
}

void SocketController::setSummaryModel(SummaryModel* model)
{
    m_summaryModel = model;
    if (model) {
        model->setSummarySender([guard = QPointer(this)](const QJsonObject& payload) {
            return guard && guard->sendTranscriptionSummary(payload);
        });
    }
}

void SocketController::setCallController(CallController* controller)
{
    m_callController = controller;
}

// --- the socket ---------------------------------------------------------------------------

std::unique_ptr<SocketIoClient>
SocketController::makeSocket(const QMap<QString, QString>& connectParams)
{
    // Logging off (our own lines), compression asked for, the connect
    // parameters; the client's reconnection defaults apply.
    SocketIoClient::Options options = m_timing.socket;
    options.compression = true;
    auto socket = std::make_unique<SocketIoClient>(m_backendUrl, QString::fromLatin1(nameSpace),
                                                   connectParams, options);
    registerHandlers(socket.get());
    return socket;
}

void SocketController::registerHandlers(SocketIoClient* socket)
{
    // In the order the events are documented; the socket's own events first
    // where they interleave.
    m_handlers = {
        {u"connected"_s, &SocketController::handleConnected},
        {u"sessionInitialized"_s, &SocketController::handleSessionInitialized},
        {u"sessionError"_s, &SocketController::handleSessionError},
        {u"transcription"_s, &SocketController::handleTranscription},
        {u"transcriptionReceived"_s, &SocketController::handleTranscriptionReceived},
        {u"transcriptionSummary"_s, &SocketController::handleSummary},
        {u"accumulated_summary"_s, &SocketController::handleSummary},
        {u"chatResponse"_s, &SocketController::handleChatResponse},
        {u"chatHistory"_s, &SocketController::handleChatHistory},
        {u"chatCleared"_s, &SocketController::handleChatCleared},
        {u"chatError"_s, &SocketController::handleChatError},
        {u"agentSuggestions"_s, &SocketController::handleAgentSuggestions},
        {u"agentModeUpdated"_s, &SocketController::handleAgentModeUpdated},
        {u"agentModeStatus"_s, &SocketController::handleAgentModeStatus},
        {u"analysis"_s, &SocketController::handleAnalysis},
        {u"status"_s, &SocketController::handleStatus},
        {u"error"_s, &SocketController::handleError},
        {u"ack"_s, &SocketController::handleAck},
        {u"clientTranscriptionProcessed"_s, &SocketController::handleTranscription},
    };

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

void SocketController::handleEvent(const QString& event, const QJsonArray& items)
{
    Q_EMIT eventReceived(event, items);
    const auto handler = m_handlers.constFind(event);
    if (handler != m_handlers.cend())
        (this->*handler.value())(items);
}

void SocketController::connect()
{
    say(u"🔌 SocketController.connect() called"_s);
    say(u"🔑 Fetching valid access token..."_s);
    if (!m_dependencies.accessToken) {
        warn(u"❌ No valid access token available - connection aborted"_s);
        setConnected(false);
        pushStateToCallController();
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
            pushStateToCallController();
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

void SocketController::disconnect()
{
    say(u"🔌 Disconnecting socket..."_s);
    ++m_connectAttempt; // a token fetch still under way must not connect afterwards
    clearConnectionTimeout();
    m_agentStatusTimer.stop();
    if (m_socket)
        m_socket->disconnectFromServer();
    setConnected(false);
    setSessionReady(false);
    pushStateToCallController();
    say(u"📱 Updated CallController with manual disconnect state"_s);
}

void SocketController::handleSocketConnected()
{
    say(u"✅ Socket connected to server"_s);
    setConnected(true);
    if (m_callController)
        m_callController->setBackendReachable(true);
    Q_EMIT reachabilityChanged(true);
    pushStateToCallController();
    say(u"📱 Updated CallController with connection state"_s);
    initializeSession();
}

void SocketController::handleSocketDisconnected(const QString& reason)
{
    say(u"❌ Socket disconnected"_s + (reason.isEmpty() ? QString() : u" ("_s + reason + u")"_s));
    m_agentStatusTimer.stop();
    setConnected(false);
    setSessionReady(false);
    pushStateToCallController();
    say(u"📱 Updated CallController with disconnection state"_s);
}

void SocketController::handleSocketReconnecting()
{
    say(u"🔄 Socket reconnected - reinitializing session"_s);
    armConnectionTimeout();
    initializeSession();
}

void SocketController::handleSocketError(const QString& message)
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
    if (m_callController)
        m_callController->setBackendReachable(false);
    Q_EMIT reachabilityChanged(false);
}

// --- session ------------------------------------------------------------------------------

void SocketController::initializeSession()
{
    QJsonObject payload{
        {u"direction"_s, m_callDirection},
        {u"timestamp"_s, timestampNow()},
    };
    if (m_initialConfigJson) {
        payload.insert(u"localTools"_s, *m_initialConfigJson);
        say(u"📡 Using initial localTools config for session initialization"_s);
    } else {
        say(u"📡 Initializing session without localTools config (backend will use defaults)"_s);
    }
    say(u"🚀 Emitting initializeSession with data keys: "_s + payload.keys().join(u", "_s));
    emitPayload(u"initializeSession"_s, payload);
}

void SocketController::handleConnected(const QJsonArray& items)
{
    say(u"✅ Backend connection acknowledged"_s);
    say(u"📋 Connection data: "_s + (items.isEmpty() ? QString() : compact(items.first())));
}

void SocketController::handleSessionInitialized(const QJsonArray& items)
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
    bool toolsChanged = false;
    if (data->value(u"enabledTools"_s).isArray()) {
        m_enabledTools = stringList(data->value(u"enabledTools"_s));
        toolsChanged = true;
    }
    if (data->value(u"availableTools"_s).isArray()) {
        m_availableTools = stringList(data->value(u"availableTools"_s));
        toolsChanged = true;
    }
    if (toolsChanged)
        Q_EMIT this->toolsChanged();
    const QJsonValue callId = data->value(u"callId"_s);
    if (callId.isString() && m_callController) {
        m_callController->setSessionCallId(callId.toString());
        say(u"🆔 Updated call model with session call ID: "_s + callId.toString());
    }
    pushStateToCallController();
    say(u"📱 Updated CallController with session state"_s);
    say(u"✅ Session ready - can now use socket features"_s);
    if (onConnectStatusChange)
        onConnectStatusChange(true);
    m_agentStatusTimer.start();
}

void SocketController::handleSessionError(const QJsonArray& items)
{
    warn(u"❌ Session initialization failed"_s);
    clearConnectionTimeout();
    const QJsonObject data = firstObject(items).value_or(QJsonObject());
    say(u"📋 Session error details: "_s + compact(data));
    const QJsonValue message = data.value(u"message"_s);
    runSessionErrorPath(message.isString() ? message.toString()
                                           : u"Session initialization failed"_s);
}

void SocketController::runSessionErrorPath(const QString& message)
{
    warn(u"❌ Session error: "_s + message);
    m_agentStatusTimer.stop();
    setConnected(false);
    setSessionReady(false);
    pushStateToCallController();
    if (onConnectStatusChange)
        onConnectStatusChange(false);
}

void SocketController::armConnectionTimeout()
{
    say(u"⏰ Starting connection timeout timer (%1 seconds)"_s.arg(
        QString::number(static_cast<double>(m_timing.connectionTimeout.count()) / 1000.0, 'f', 1)));
    m_connectionTimeoutTimer.start();
}

bool SocketController::clearConnectionTimeout()
{
    const bool pending = m_connectionTimeoutTimer.isActive();
    m_connectionTimeoutTimer.stop();
    return pending;
}

// --- incoming events ----------------------------------------------------------------------

std::optional<QJsonObject> SocketController::transcriptionPayload(const QJsonArray& items) const
{
    if (!m_sessionReady) {
        warn(u"⚠️ Received transcription before session ready - ignoring"_s);
        return std::nullopt;
    }
    return firstObject(items);
}

void SocketController::handleTranscription(const QJsonArray& items)
{
    const std::optional<QJsonObject> data = transcriptionPayload(items);
    if (!data)
        return;
    if (m_transcription)
        m_transcription->addServerSegments(*data);
    if (m_summaryModel)
        m_summaryModel->handleProcessedTranscription(*data);
}

void SocketController::handleTranscriptionReceived(const QJsonArray& items)
{
    const std::optional<QJsonObject> data = transcriptionPayload(items);
    if (data && m_summaryModel)
        m_summaryModel->handleReceivedTranscription(*data);
}

void SocketController::handleSummary(const QJsonArray& items)
{
    const std::optional<QJsonObject> data = transcriptionPayload(items);
    if (data && m_summaryModel)
        m_summaryModel->handleSummary(*data);
}

void SocketController::handleChatResponse(const QJsonArray& items)
{
    const std::optional<QJsonObject> data = firstObject(items);
    if (!data)
        return;
    say(u"📬 Received chat response: "_s + compact(*data));
    if (onChatMessage)
        onChatMessage(*data);
}

void SocketController::handleChatHistory(const QJsonArray& items)
{
    const std::optional<QJsonObject> data = firstObject(items);
    if (!data)
        return;
    say(u"📚 Received chat history: "_s + compact(*data));
    if (onChatHistory)
        onChatHistory(data->value(u"messages"_s).toArray());
}

void SocketController::handleChatCleared(const QJsonArray& /*items*/)
{
    say(u"🧹 Chat history cleared"_s);
    if (onChatCleared)
        onChatCleared();
}

void SocketController::handleChatError(const QJsonArray& items)
{
    const std::optional<QJsonObject> data = firstObject(items);
    if (!data)
        return;
    warn(u"💬❌ Chat error: "_s + data->value(u"message"_s).toString());
}

void SocketController::handleAgentSuggestions(const QJsonArray& items)
{
    const std::optional<QJsonObject> data = firstObject(items);
    if (!data)
        return;
    say(u"🤖 Received agent suggestions: "_s + compact(*data));
    if (onAgentSuggestions)
        onAgentSuggestions(*data);
}

void SocketController::handleAgentModeUpdated(const QJsonArray& items)
{
    const QJsonObject data = firstObject(items).value_or(QJsonObject());
    say(u"🤖 Agent mode update response: "_s + compact(data));
    parseAgentModeResponse(data);
}

void SocketController::handleAgentModeStatus(const QJsonArray& items)
{
    const QJsonObject data = firstObject(items).value_or(QJsonObject());
    say(u"🤖 Agent mode status response: "_s + compact(data));
    parseAgentModeResponse(data);
}

void SocketController::parseAgentModeResponse(const QJsonObject& payload)
{
    const QJsonValue success = payload.value(u"success"_s);
    if (!success.isBool()) {
        warn(u"Invalid agent mode response format"_s);
        return;
    }
    if (!success.toBool()) {
        const QJsonValue message = payload.value(u"message"_s);
        warn(u"❌ Agent mode operation failed: "_s +
             (message.isString() ? message.toString() : u"Unknown error"_s));
        return;
    }
    const QJsonValue enabled = payload.value(u"enabled"_s);
    const QJsonValue interval = payload.value(u"suggestionIntervalMs"_s);
    // Without both values there is nothing to store.
    if (!enabled.isBool() || !interval.isDouble()) {
        warn(u"Invalid agent mode response format"_s);
        return;
    }
    const int intervalMs = interval.toInt();
    say(u"✅ Agent mode response: enabled=%1, interval=%2"_s.arg(
        enabled.toBool() ? u"true"_s : u"false"_s, QString::number(intervalMs)));
    if (payload.value(u"message"_s).isString())
        say(u"📝 Agent mode message: "_s + payload.value(u"message"_s).toString());
    if (m_callController) {
        m_callController->setAgentMode(enabled.toBool(), intervalMs);
        say(u"📱 Updated CallController with agent mode state from backend"_s);
    }
}

void SocketController::handleAnalysis(const QJsonArray& items)
{
    say(u"Received analysis: "_s + (items.isEmpty() ? QString() : compact(items.first())));
}

void SocketController::handleStatus(const QJsonArray& items)
{
    const std::optional<QJsonObject> data = firstObject(items);
    if (data)
        say(u"Received status: "_s + data->value(u"status"_s).toString());
}

void SocketController::handleError(const QJsonArray& items)
{
    const std::optional<QJsonObject> data = firstObject(items);
    if (data)
        warn(u"Received error: "_s + data->value(u"message"_s).toString());
}

void SocketController::handleAck(const QJsonArray& /*items*/) {}

// --- sending ------------------------------------------------------------------------------

bool SocketController::sendClientTranscription(const QString& text, bool isPartial,
                                               const std::optional<QString>& speaker,
                                               std::optional<double> confidence,
                                               const std::optional<QJsonArray>& segments)
{
    if (!m_sessionReady) {
        warn(u"⚠️ Cannot send transcription - session not ready"_s);
        return false;
    }
    QJsonObject payload{
        {u"text"_s, text},
        {u"timestamp"_s, timestampNow()},
        {u"isPartial"_s, isPartial},
    };
    if (speaker)
        payload.insert(u"speaker"_s, *speaker);
    if (confidence)
        payload.insert(u"confidence"_s, *confidence);
    if (segments)
        payload.insert(u"segments"_s, *segments);
    say(u"📝 Sending client transcription (%1 chars): "_s.arg(text.size()) + text);
    return emitPayload(u"clientTranscription"_s, payload);
}

void SocketController::sendClientTranscription(const QString& text,
                                               const std::optional<QString>& speaker,
                                               double confidence,
                                               const std::optional<QJsonArray>& segments)
{
    sendClientTranscription(text, false, speaker, confidence, segments);
}

bool SocketController::sendTranscriptionSummary(const QJsonObject& payload)
{
    if (!m_sessionReady) {
        warn(u"⚠️ Cannot send transcription summary - session not ready"_s);
        return false;
    }
    say(u"📡 Emitting transcription summary via websocket"_s);
    return emitPayload(u"transcriptionSummary"_s, payload);
}

bool SocketController::updateLocalToolsConfiguration(const QJsonObject& payload)
{
    if (!m_sessionReady) {
        warn(u"⚠️ Cannot update WebSocket configuration: Session not ready"_s);
        return false;
    }
    say(u"🔧 Sending local tools configuration update event 'update_local_tools'"_s);
    return emitPayload(u"update_local_tools"_s, payload);
}

bool SocketController::sendChatMessage(const QString& message, const std::optional<QString>& userId,
                                       const std::optional<QJsonObject>& metadata)
{
    if (!m_sessionReady) {
        warn(u"⚠️ Cannot send chat message - session not ready"_s);
        return false;
    }
    QJsonObject payload{
        {u"message"_s, message},
        {u"timestamp"_s, timestampNow()},
        {u"type"_s, u"user"_s},
    };
    if (userId)
        payload.insert(u"userId"_s, *userId);
    if (metadata)
        payload.insert(u"metadata"_s, *metadata);
    say(u"💬 Sending chat message: "_s + message);
    return emitPayload(u"chatMessage"_s, payload);
}

bool SocketController::getChatHistory(std::optional<int> limit, std::optional<int> offset)
{
    if (!m_sessionReady) {
        warn(u"⚠️ Cannot get chat history - session not ready"_s);
        return false;
    }
    QJsonObject payload{{u"timestamp"_s, timestampNow()}};
    if (limit)
        payload.insert(u"limit"_s, *limit);
    if (offset)
        payload.insert(u"offset"_s, *offset);
    say(u"📚 Requesting chat history..."_s);
    return emitPayload(u"getChatHistory"_s, payload);
}

bool SocketController::clearChatHistory()
{
    if (!m_sessionReady) {
        warn(u"⚠️ Cannot clear chat history - session not ready"_s);
        return false;
    }
    say(u"🧹 Clearing chat history..."_s);
    return emitPayload(u"clearChatHistory"_s, QJsonObject{{u"timestamp"_s, timestampNow()}});
}

bool SocketController::updateAgentMode(bool enabled, int suggestionIntervalMs)
{
    if (!m_sessionReady) {
        warn(u"⚠️ Cannot update agent mode - session not ready"_s);
        return false;
    }
    say(u"🤖 Updating agent mode: %1 (interval: %2ms)"_s.arg(
        enabled ? u"enabled"_s : u"disabled"_s, QString::number(suggestionIntervalMs)));
    const QJsonObject payload{
        {u"enabled"_s, enabled},
        {u"suggestionIntervalMs"_s, suggestionIntervalMs},
        {u"timestamp"_s, timestampNow()},
    };
    return emitPayload(u"updateAgentMode"_s, payload);
}

bool SocketController::getAgentModeStatus()
{
    if (!m_sessionReady) {
        warn(u"⚠️ Cannot get agent mode status - session not ready"_s);
        return false;
    }
    say(u"🤖 Requesting agent mode status"_s);
    return emitPayload(u"getAgentModeStatus"_s, QJsonObject{{u"timestamp"_s, timestampNow()}});
}

void SocketController::sendAgentSettings(bool enabled, int suggestionIntervalMs)
{
    updateAgentMode(enabled, suggestionIntervalMs);
}

bool SocketController::emitPayload(const QString& event, const QJsonObject& payload)
{
    return m_socket && m_socket->emitEvent(event, QJsonArray{payload});
}

// --- state --------------------------------------------------------------------------------

void SocketController::setConnected(bool connected)
{
    if (m_isConnected == connected)
        return;
    m_isConnected = connected;
    Q_EMIT isConnectedChanged();
}

void SocketController::setSessionReady(bool ready)
{
    if (m_sessionReady == ready)
        return;
    m_sessionReady = ready;
    Q_EMIT sessionReadyChanged();
}

void SocketController::pushStateToCallController()
{
    if (m_callController)
        m_callController->setSessionState(m_isConnected, m_sessionReady);
}
