// The channel an MCP client speaks through: opening it, sending one JSON-RPC
// message, and the messages the server sends back, whatever carries them
// (an HTTP event stream, a test's in-memory pipe).
#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

#include <functional>
#include <optional>

// Lives on the thread that made it and is driven by its event loop; nothing
// blocks. A transport is opened once: after it has closed, a new one is made.
class McpTransport : public QObject
{
    Q_OBJECT

public:
    // Nothing on success, the failure's text otherwise. Called exactly once,
    // later (never from inside the call that was given it), unless the
    // transport is destroyed first.
    using Done = std::function<void(const std::optional<QString>& error)>;

    using QObject::QObject;

    // Opens the channel; `done` says when the server's messages can arrive.
    virtual void open(Done done) = 0;
    // Sends one message. Success means the server took it, not that it answered:
    // answers arrive through `messageReceived`.
    virtual void send(const QByteArray& message, Done done) = 0;
    // Closes the channel: a waiting `open` fails, `closed` follows.
    virtual void close() = 0;
    virtual bool isOpen() const = 0;

Q_SIGNALS:
    // One JSON-RPC message from the server, as it came.
    void messageReceived(const QByteArray& message);
    // The channel is gone after it was open: an empty reason for a clean end,
    // the failure's text otherwise. Emitted once.
    void closed(const QString& reason);
};
