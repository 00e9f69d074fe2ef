// Test support: the reference Socket.IO 4 server (tests/support/socketio-server/,
// on Node) serving the namespace "/calls" on a free port of 127.0.0.1, with
// what it saw recorded and its behaviour driven from the test: events to send,
// transports to drop, namespaces to disconnect, pauses, a freeze (the process
// stopped: connections stay open but nothing answers, pings included).
#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>
#include <QUrl>

#include <chrono>
#include <memory>

class SocketIoTestServer
{
public:
    struct Options
    {
        std::chrono::milliseconds pingInterval{25000};
        std::chrono::milliseconds pingTimeout{20000};
    };

    // Every namespace connection the server accepted.
    struct Connection
    {
        QString id;
        QString nameSpace;
        QMap<QString, QString> query; // the handshake's query items, as the server parsed them
        bool connected = false;
        QString reason; // why it ended, in the server's words
    };

    // Every event a client sent.
    struct Event
    {
        QString socket; // Connection::id
        QString name;
        QJsonArray items;
    };

    struct State
    {
        bool answered = false;
        int upgrades = 0; // WebSocket handshakes that reached the server, refused ones too
        int refused = 0;  // connections the namespace's middleware refused
        QList<Connection> connections;
        QList<Event> events;
    };

    // Starts the server and waits until it listens (or failed: see error()).
    explicit SocketIoTestServer(Options options);
    SocketIoTestServer();
    ~SocketIoTestServer();
    SocketIoTestServer(const SocketIoTestServer&) = delete;
    SocketIoTestServer& operator=(const SocketIoTestServer&) = delete;

    bool isRunning() const;
    QString error() const { return m_error; }
    QUrl url() const { return m_url; } // http://127.0.0.1:PORT
    // Everything the server wrote on stderr so far.
    QString log() const;

    State state();
    // Each of these answers how many clients it reached; -1 when the server did not answer.
    int emitEvent(const QString& name, const QJsonArray& items, bool askAcknowledgement = false);
    int emitBinaryEvent(const QString& name);
    int sendStrayAck(int ackId);
    int dropTransports();      // closes each client's transport: the client sees it close
    int disconnectNameSpace(); // disconnects each client from "/calls" server-side
    // Stops listening and cuts every connection; listens again on the same port after `gone`.
    bool pause(std::chrono::milliseconds gone);

    // Ends the process (its records with it).
    void stop();
    // Starts a new process on the same port.
    bool restart();
    // Stops the process (SIGSTOP) and lets it go on (SIGCONT): frozen, it keeps its
    // connections open and answers nothing; no command may be sent meanwhile.
    bool freeze();
    bool thaw();

private:
    bool start();
    // One command and its answer; an empty object when none came.
    QJsonObject command(const QString& name, QJsonObject arguments = {});
    int reached(const QJsonObject& answer) const;

    Options m_options;
    QTemporaryDir m_directory;
    std::unique_ptr<QProcess> m_process;
    QUrl m_url;
    quint16 m_port = 0;
    int m_nextId = 1;
    QByteArray m_pending; // stdout read but not yet consumed
    QString m_error;
};
