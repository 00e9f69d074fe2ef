// A Socket.IO client for one namespace of one server: Engine.IO v4 straight
// over a WebSocket (no long-polling, no upgrade), text packets only, events
// both ways, the server's heartbeat answered and watched, and automatic
// reconnection with exponential backoff after unexpected drops.
//
// It lives on the thread that made it and is driven by that thread's event
// loop; nothing blocks. Outgoing events are fire-and-forget and never buffered:
// an event emitted while the namespace is not connected is dropped, so the
// owner decides what a gap in the connection means for its data.
#pragma once

#include <QJsonArray>
#include <QMap>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QUrl>

#include <chrono>
#include <functional>

class QWebSocket;
struct SocketIoPacket;

class SocketIoClient : public QObject
{
    Q_OBJECT

public:
    struct Options
    {
        bool reconnection = true;
        int reconnectionAttempts = -1;                     // -1: no limit
        std::chrono::milliseconds reconnectionDelay{1000}; // first wait, doubled each attempt
        std::chrono::milliseconds reconnectionDelayMax{5000};
        // Each wait is moved by up to this fraction either way, so that many
        // clients dropped at once do not all come back at the same moment.
        double randomizationFactor = 0.5;
        // For each attempt, from opening the WebSocket to the namespace's acknowledgement
        // (0 or less: no limit).
        std::chrono::milliseconds connectTimeout{20000};
        // Kept for the owner's configuration, but without effect: QWebSocket (Qt 6.4)
        // cannot negotiate permessage-deflate, so frames always go uncompressed.
        bool compression = true;
        QString path = QStringLiteral("/socket.io/");
    };

    // Connecting covers the whole way to the namespace's acknowledgement,
    // including the waits between reconnection attempts. Disconnected means the
    // client will not try again by itself: after disconnectFromServer(), a
    // server-side disconnect, a refused connection, or reconnection given up.
    enum class Status
    {
        NotConnected,
        Connecting,
        Connected,
        Disconnected
    };
    Q_ENUM(Status)

    // baseUrl http(s)://host:port[/prefix]; nameSpace e.g. "/calls"; connectParams go into the
    // handshake URL's query (with EIO=4&transport=websocket, which they cannot replace).
    SocketIoClient(QUrl baseUrl, QString nameSpace, QMap<QString, QString> connectParams,
                   Options options, QObject* parent = nullptr);
    ~SocketIoClient() override; // closes the connection, stops every timer; emits nothing
    SocketIoClient(const SocketIoClient&) = delete;
    SocketIoClient& operator=(const SocketIoClient&) = delete;

    Status status() const;
    QUrl baseUrl() const;
    // Starts connecting; no-op when connecting/connected. From Disconnected it
    // starts afresh, with a new count of reconnection attempts.
    void connectToServer();
    // Sends the namespace DISCONNECT, closes, and stops reconnecting for good
    // (also in the middle of a backoff wait); only connectToServer() starts again.
    void disconnectFromServer();
    // Fire-and-forget: one EVENT packet with [event, items...]. Dropped (false, with a debug log)
    // when the namespace is not connected: nothing is buffered. Also refused (false, with a
    // warning) when larger than the handshake's maxPayload, which the server would answer by
    // closing the whole connection.
    bool emitEvent(const QString& event, const QJsonArray& items);

    // The wait before reconnection attempt `attempt` (1, 2, …): reconnectionDelay
    // doubled for each attempt after the first, moved by up to randomizationFactor
    // of itself (`unitRandom` in [0, 1): 0 the shortest, 0.5 unchanged), never
    // beyond reconnectionDelayMax.
    static std::chrono::milliseconds backoffDelay(const Options& options, int attempt,
                                                  double unitRandom);

Q_SIGNALS:
    // namespace CONNECT acknowledged (first time and after every reconnection)
    void connected();
    // "io server disconnect", "io client disconnect", "transport close", "ping timeout",
    // "transport error"; only after connected()
    void disconnected(const QString& reason);
    // an unexpected drop (or a failed first connection): automatic reconnection begins
    // (emitted once per drop, before the first attempt)
    void reconnecting();
    void reconnectAttempt(int attempt);
    // Connect errors (CONNECT_ERROR carries the server's text, e.g. "unauthorized"), a failed
    // first connection, a broken handshake, and "Reconnection failed" when the attempts are
    // used up. Failed attempts within a reconnection are only counted and logged.
    void errorOccurred(const QString& message);
    void eventReceived(const QString& event, const QJsonArray& items);
    void statusChanged(SocketIoClient::Status status);

private:
    // Finer than Status: which step of the way the client is at.
    enum class Phase
    {
        Idle,
        Opening,
        Joining,
        Connected,
        Waiting,
        Stopped
    };

    QUrl handshakeUrl() const;
    void openTransport();
    void closeTransport(bool graceful);
    void sendPacket(const SocketIoPacket& packet);
    void receiveFrame(const QString& frame);
    void receiveOpen(const QString& data);
    void receiveSocketIo(const QString& text);
    void transportEnded();
    // The connection in hand is lost or the attempt in progress failed.
    void lose(const QString& reason, const QString& detail);
    // After a loss or a failed first connection: reconnecting(), then the first wait.
    void beginReconnection();
    void scheduleAttempt();
    void attempt();
    void stop();
    bool setPhase(Phase phase);
    // Runs `emitSignal`; false when the owner, reacting to it, called
    // connectToServer()/disconnectFromServer() or deleted this client, and the
    // caller must then leave everything as it is.
    bool notify(const std::function<void()>& emitSignal);

    QUrl m_baseUrl;
    QString m_nameSpace;
    QMap<QString, QString> m_connectParams;
    Options m_options;

    Phase m_phase = Phase::Idle;
    QWebSocket* m_socket = nullptr;
    QString m_transportError; // what the transport last reported, for the loss that follows
    bool m_transportFailed = false;
    // Within a reconnection (after reconnecting()), and the attempts made in it.
    bool m_reconnecting = false;
    int m_attempts = 0;
    quint64 m_generation = 0; // bumped by every call of the owner that changes course
    std::chrono::milliseconds m_pingDeadline{0};
    qint64 m_maxPayload = 0; // bytes of one frame the server takes; 0: it did not say

    QTimer m_connectTimer;
    QTimer m_pingTimer;
    QTimer m_backoffTimer;
};
