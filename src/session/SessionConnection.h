// The backend session's connection: the socket to the "/calls" namespace, a
// fresh access token on every connect, reconnection under a time-out, the
// sign-out when the backend refuses the token, "initializeSession", the
// connected and session-ready flags, and the dispatch of every incoming event
// to the part of the session that handles it.
#pragma once

#include "core/AccessTokenProvider.h"
#include "protocol/SocketIoClient.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QObject>
#include <QTimer>
#include <QUrl>

#include <chrono>
#include <functional>
#include <memory>

// Lives on the GUI thread; the flags change and the callback is called there.
class SessionConnection : public QObject
{
    Q_OBJECT

public:
    struct Dependencies
    {
        // Asked anew on every connect; no token is kept here.
        AccessTokenProvider accessToken;
        // Deletes the stored tokens: the backend refused them.
        std::function<void()> signOut;
    };

    struct Timing
    {
        // How long a reconnection may take to become a session again.
        std::chrono::milliseconds connectionTimeout{10'000};
        // When the agent-mode status is asked for after the session is ready.
        std::chrono::milliseconds agentStatusDelay{500};
        // The socket's own settings (reconnection backoff and the like).
        SocketIoClient::Options socket;
    };

    using EventHandler = std::function<void(const QJsonArray& items)>;

    static constexpr auto nameSpace = "/calls";

    // Prints the configuration and builds the first socket; does not connect.
    SessionConnection(QUrl backendUrl, const QString& callId, Dependencies dependencies,
                      Timing timing, QObject* parent = nullptr);
    // Closes the socket quietly: whoever owned the call is going away too.
    ~SessionConnection() override;

    bool isConnected() const { return m_isConnected; }
    bool sessionReady() const { return m_sessionReady; }
    // The call the backend named in its last "sessionInitialized"; empty before.
    QString sessionCallId() const { return m_sessionCallId; }
    const Timing& timing() const { return m_timing; }

    void setCallDirection(const QString& direction) { m_callDirection = direction; }
    QString callDirection() const { return m_callDirection; }

    // Completes the "initializeSession" payload with what another part owns.
    void setSessionPayloadExtension(std::function<void(QJsonObject&)> extend);
    // The handler of one incoming event; one per event name.
    void addHandler(const QString& event, const EventHandler& handler);

    // Fetches a token, then opens a new socket whose handshake carries only it.
    void connect();
    void disconnect();
    // The session payload for "initializeSession"; emitted by the connect and
    // reconnect handlers.
    void initializeSession();

    // Emits `event` with `payload` once the session is ready, after printing
    // `announcement`; before that, prints `refusal` and drops it (false).
    bool emitWhenReady(const QString& event, const QJsonObject& payload,
                       const QString& announcement, const QString& refusal);

    SocketIoClient* socket() const { return m_socket.get(); }

    // Handles one event from the backend: everything the socket delivers goes
    // through here, and so can a test's hostile payloads.
    void handleEvent(const QString& event, const QJsonArray& items);

    // Called with true when the session becomes ready and with false from the
    // session-error path (not on a plain disconnect).
    std::function<void(bool)> onConnectStatusChange;

Q_SIGNALS:
    void isConnectedChanged();
    void sessionReadyChanged();
    void sessionCallIdChanged(const QString& callId);
    // The backend could not be reached, or answered again.
    void reachabilityChanged(bool reachable);
    // Every event from the backend, as it arrived (before it is handled).
    void eventReceived(const QString& event, const QJsonArray& items);
    // The data of a "sessionInitialized" that made the session ready.
    void sessionInitialized(const QJsonObject& data);
    // A session became ready and everyone has been told.
    void sessionStarted();

private:
    std::unique_ptr<SocketIoClient> makeSocket(const QMap<QString, QString>& connectParams);
    void watchSocket(SocketIoClient* socket);

    void handleSocketConnected();
    void handleSocketDisconnected(const QString& reason);
    void handleSocketReconnecting();
    void handleSocketError(const QString& message);

    void handleConnected(const QJsonArray& items);
    void handleSessionInitialized(const QJsonArray& items);
    void handleSessionError(const QJsonArray& items);

    void runSessionErrorPath(const QString& message);
    void armConnectionTimeout();
    bool clearConnectionTimeout();

    void setConnected(bool connected);
    void setSessionReady(bool ready);

    const QUrl m_backendUrl;
    const Dependencies m_dependencies;
    const Timing m_timing;
    QString m_callDirection = QStringLiteral("outbound");
    std::function<void(QJsonObject&)> m_extendSessionPayload;

    std::unique_ptr<SocketIoClient> m_socket;
    QHash<QString, EventHandler> m_handlers;

    bool m_isConnected = false;
    bool m_sessionReady = false;
    QString m_sessionCallId;
    QTimer m_connectionTimeoutTimer;
    // Token fetches made by connect(); only the latest one may open a socket.
    quint64 m_connectAttempt = 0;
};
