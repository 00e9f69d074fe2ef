// The packets of the event socket as they travel in WebSocket text frames:
// Engine.IO v4 packets (one per frame) and the Socket.IO v5 packets carried in
// Engine.IO messages. Decoding is strict, never throws and never crashes on any
// input; what it refuses comes back with a reason. Encoding writes the form the
// reference server writes, so whatever decodes encodes back to text that
// decodes to the same packet.
#pragma once

#include <QJsonArray>
#include <QJsonValue>
#include <QString>
#include <QStringList>
#include <QStringView>

#include <chrono>
#include <optional>

// A decoded value, or why there is none.
template <typename T> struct SocketIoDecoded
{
    std::optional<T> value;
    QString error; // set exactly when value is empty

    bool ok() const { return value.has_value(); }
};

struct EngineIoPacket
{
    // The digit that starts every frame.
    enum class Type
    {
        Open = 0,
        Close = 1,
        Ping = 2,
        Pong = 3,
        Message = 4,
        Upgrade = 5,
        Noop = 6
    };

    Type type = Type::Noop;
    // Everything after the type digit: the handshake JSON of Open, the Socket.IO
    // packet of Message, the probe text a Ping may carry (its Pong echoes it).
    QString data;

    // Binary Engine.IO packets (base64 "b…" text, binary frames) are refused.
    static SocketIoDecoded<EngineIoPacket> decode(QStringView frame);
    QString encode() const;

    bool operator==(const EngineIoPacket&) const = default;
};

// The JSON of the Open packet: the session and the heartbeat the server keeps.
struct EngineIoHandshake
{
    QString sid;
    QStringList upgrades;
    // The server pings every pingInterval and gives up pingTimeout after an
    // unanswered ping; the client gives up when no ping came within their sum.
    std::chrono::milliseconds pingInterval{0};
    std::chrono::milliseconds pingTimeout{0};
    qint64 maxPayload = 0; // bytes; 0 when the server did not say

    // Both heartbeat times must be whole positive milliseconds up to a day:
    // anything else is a broken server, not a setting to honour.
    static SocketIoDecoded<EngineIoHandshake> decode(QStringView data);
    QString encode() const;

    bool operator==(const EngineIoHandshake&) const = default;
};

struct SocketIoPacket
{
    // BINARY_EVENT (5) and BINARY_ACK (6) exist on the wire but are refused:
    // their attachments arrive in separate binary frames, which nothing here needs.
    enum class Type
    {
        Connect = 0,
        Disconnect = 1,
        Event = 2,
        Ack = 3,
        ConnectError = 4
    };

    Type type = Type::Connect;
    QString nameSpace = QStringLiteral("/"); // starts with '/', never contains ','
    // Only Event (optional: the sender wants an Ack) and Ack (required) have one;
    // at most 2^53 - 1, the largest integer the reference implementation keeps exact.
    std::optional<qint64> ackId;
    // Undefined when absent. Connect: absent or an object. Disconnect: absent.
    // Event: a non-empty array led by the event name (a string). Ack: an array.
    // ConnectError: an object with "message" (and perhaps "data"), or a bare string.
    QJsonValue payload{QJsonValue::Undefined};

    static SocketIoDecoded<SocketIoPacket> decode(QStringView text);
    QString encode() const;

    static SocketIoPacket connect(const QString& nameSpace);
    static SocketIoPacket disconnect(const QString& nameSpace);
    static SocketIoPacket event(const QString& nameSpace, const QString& name,
                                const QJsonArray& items);

    // Of an Event: the name, and the items after it.
    QString eventName() const;
    QJsonArray eventItems() const;
    // Of a ConnectError: the server's text; empty when it gave none.
    QString errorMessage() const;

    bool operator==(const SocketIoPacket&) const = default;
};
