#include "protocol/SocketIoPacket.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

// Number.MAX_SAFE_INTEGER: ids and sizes beyond it do not survive the other
// side's arithmetic.
constexpr qint64 maxSafeInteger = (qint64{1} << 53) - 1;
// A day: heartbeats longer than that are nonsense, and their sum must still fit
// the int milliseconds of a QTimer.
constexpr qint64 maxHeartbeatMs = 24LL * 60 * 60 * 1000;

template <typename T> SocketIoDecoded<T> refused(QString why)
{
    return {std::nullopt, std::move(why)};
}

template <typename T> SocketIoDecoded<T> accepted(T value)
{
    return {std::move(value), {}};
}

// Any JSON value, not just the objects and arrays QJsonDocument takes at the top.
std::optional<QJsonValue> parseValue(QStringView text, QString* error)
{
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson('[' + text.toUtf8() + ']', &parseError);
    if (document.isNull()) {
        *error = u"payload is not JSON ("_s + parseError.errorString() + u')';
        return std::nullopt;
    }
    const QJsonArray wrapper = document.array();
    if (wrapper.size() != 1) {
        *error = u"payload is not one JSON value"_s;
        return std::nullopt;
    }
    return wrapper.first();
}

QString writeValue(const QJsonValue& value)
{
    // Wrapped for the same reason as parseValue; the brackets come off again.
    const QByteArray wrapped = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(wrapped.mid(1, wrapped.size() - 2));
}

// A whole number of milliseconds in 1…maxHeartbeatMs.
std::optional<std::chrono::milliseconds> heartbeat(const QJsonValue& value)
{
    if (!value.isDouble())
        return std::nullopt;
    const double ms = value.toDouble();
    if (!(ms >= 1 && ms <= static_cast<double>(maxHeartbeatMs)) || std::floor(ms) != ms)
        return std::nullopt;
    return std::chrono::milliseconds(static_cast<qint64>(ms));
}

QString describe(SocketIoPacket::Type type)
{
    switch (type) {
    case SocketIoPacket::Type::Connect:
        return u"CONNECT"_s;
    case SocketIoPacket::Type::Disconnect:
        return u"DISCONNECT"_s;
    case SocketIoPacket::Type::Event:
        return u"EVENT"_s;
    case SocketIoPacket::Type::Ack:
        return u"ACK"_s;
    case SocketIoPacket::Type::ConnectError:
        return u"CONNECT_ERROR"_s;
    }
    return u"?"_s;
}

// What each packet type allows as payload; empty when `payload` fits.
QString payloadProblem(SocketIoPacket::Type type, const QJsonValue& payload)
{
    using Type = SocketIoPacket::Type;
    const bool absent = payload.isUndefined();
    switch (type) {
    case Type::Connect:
        if (absent || payload.isObject())
            return {};
        return u"a CONNECT payload must be an object"_s;
    case Type::Disconnect:
        if (absent)
            return {};
        return u"a DISCONNECT has no payload"_s;
    case Type::Event: {
        const QJsonArray items = payload.toArray();
        if (payload.isArray() && !items.isEmpty() && items.first().isString())
            return {};
        return u"an EVENT payload must be an array led by the event name"_s;
    }
    case Type::Ack:
        if (payload.isArray())
            return {};
        return u"an ACK payload must be an array"_s;
    case Type::ConnectError:
        if (payload.isString() ||
            (payload.isObject() &&
             (!payload.toObject().contains(u"message"_s) || payload[u"message"_s].isString())))
            return {};
        return u"a CONNECT_ERROR payload must be a message object or a string"_s;
    }
    return u"unknown packet type"_s;
}

} // namespace

SocketIoDecoded<EngineIoPacket> EngineIoPacket::decode(QStringView frame)
{
    if (frame.isEmpty())
        return refused<EngineIoPacket>(u"empty Engine.IO packet"_s);
    const QChar first = frame.front();
    if (first == u'b')
        return refused<EngineIoPacket>(u"binary Engine.IO packets are not supported"_s);
    if (first < u'0' || first > u'6')
        return refused<EngineIoPacket>(u"unknown Engine.IO packet type '"_s + first + u'\'');
    EngineIoPacket packet;
    packet.type = static_cast<Type>(first.unicode() - u'0');
    packet.data = frame.mid(1).toString();
    return accepted(std::move(packet));
}

QString EngineIoPacket::encode() const
{
    return QChar(static_cast<char16_t>(u'0' + static_cast<int>(type))) + data;
}

SocketIoDecoded<EngineIoHandshake> EngineIoHandshake::decode(QStringView data)
{
    QString error;
    const auto value = parseValue(data, &error);
    if (!value)
        return refused<EngineIoHandshake>(u"handshake: "_s + error);
    if (!value->isObject())
        return refused<EngineIoHandshake>(u"handshake: not an object"_s);
    const QJsonObject object = value->toObject();

    EngineIoHandshake handshake;
    handshake.sid = object.value(u"sid"_s).toString();
    if (handshake.sid.isEmpty())
        return refused<EngineIoHandshake>(u"handshake: no session id"_s);
    const auto interval = heartbeat(object.value(u"pingInterval"_s));
    const auto timeout = heartbeat(object.value(u"pingTimeout"_s));
    if (!interval || !timeout)
        return refused<EngineIoHandshake>(u"handshake: no usable pingInterval and pingTimeout"_s);
    handshake.pingInterval = *interval;
    handshake.pingTimeout = *timeout;

    const QJsonValue upgrades = object.value(u"upgrades"_s);
    if (!upgrades.isUndefined() && !upgrades.isArray())
        return refused<EngineIoHandshake>(u"handshake: upgrades is not a list"_s);
    for (const auto& upgrade : upgrades.toArray()) {
        if (!upgrade.isString())
            return refused<EngineIoHandshake>(u"handshake: an upgrade is not a name"_s);
        handshake.upgrades.append(upgrade.toString());
    }

    const QJsonValue maxPayload = object.value(u"maxPayload"_s);
    if (!maxPayload.isUndefined()) {
        const double bytes = maxPayload.toDouble(-1);
        if (!maxPayload.isDouble() ||
            !(bytes >= 0 && bytes <= static_cast<double>(maxSafeInteger)) ||
            std::floor(bytes) != bytes)
            return refused<EngineIoHandshake>(u"handshake: maxPayload is not a size"_s);
        handshake.maxPayload = static_cast<qint64>(bytes);
    }
    return accepted(std::move(handshake));
}

QString EngineIoHandshake::encode() const
{
    QJsonObject object{
        {u"sid"_s, sid},
        {u"upgrades"_s, QJsonArray::fromStringList(upgrades)},
        {u"pingInterval"_s, static_cast<qint64>(pingInterval.count())},
        {u"pingTimeout"_s, static_cast<qint64>(pingTimeout.count())},
    };
    if (maxPayload > 0)
        object.insert(u"maxPayload"_s, maxPayload);
    return writeValue(object);
}

SocketIoDecoded<SocketIoPacket> SocketIoPacket::decode(QStringView text)
{
    if (text.isEmpty())
        return refused<SocketIoPacket>(u"empty Socket.IO packet"_s);
    const QChar first = text.front();
    if (first == u'5' || first == u'6')
        return refused<SocketIoPacket>(u"binary Socket.IO packets are not supported"_s);
    if (first < u'0' || first > u'4')
        return refused<SocketIoPacket>(u"unknown Socket.IO packet type '"_s + first + u'\'');

    SocketIoPacket packet;
    packet.type = static_cast<Type>(first.unicode() - u'0');
    qsizetype at = 1;

    // "/name," — the name runs to the first comma, or to the end when no payload follows.
    if (at < text.size() && text[at] == u'/') {
        const qsizetype comma = text.indexOf(u',', at);
        const qsizetype end = comma < 0 ? text.size() : comma;
        packet.nameSpace = text.sliced(at, end - at).toString();
        at = comma < 0 ? end : comma + 1;
    }

    if (packet.type == Type::Event || packet.type == Type::Ack) {
        qint64 id = 0;
        bool digits = false;
        for (; at < text.size() && text[at].isDigit() && text[at].unicode() < 0x80; ++at) {
            id = id * 10 + (text[at].unicode() - u'0');
            if (id > maxSafeInteger)
                return refused<SocketIoPacket>(u"acknowledgement id out of range"_s);
            digits = true;
        }
        if (digits)
            packet.ackId = id;
        else if (packet.type == Type::Ack)
            return refused<SocketIoPacket>(u"an ACK needs an acknowledgement id"_s);
    }

    if (at < text.size()) {
        QString error;
        const auto payload = parseValue(text.sliced(at), &error);
        if (!payload)
            return refused<SocketIoPacket>(describe(packet.type) + u": "_s + error);
        packet.payload = *payload;
    }
    const QString problem = payloadProblem(packet.type, packet.payload);
    if (!problem.isEmpty())
        return refused<SocketIoPacket>(problem);
    return accepted(std::move(packet));
}

QString SocketIoPacket::encode() const
{
    QString text = QChar(static_cast<char16_t>(u'0' + static_cast<int>(type)));
    // The main namespace goes without saying; every other one is followed by a
    // comma even without payload, as the reference server writes it.
    if (!nameSpace.isEmpty() && nameSpace != u"/"_s)
        text += nameSpace + u',';
    if (ackId)
        text += QString::number(*ackId);
    if (!payload.isUndefined())
        text += writeValue(payload);
    return text;
}

SocketIoPacket SocketIoPacket::connect(const QString& nameSpace)
{
    SocketIoPacket packet;
    packet.type = Type::Connect;
    packet.nameSpace = nameSpace;
    return packet;
}

SocketIoPacket SocketIoPacket::disconnect(const QString& nameSpace)
{
    SocketIoPacket packet;
    packet.type = Type::Disconnect;
    packet.nameSpace = nameSpace;
    return packet;
}

SocketIoPacket SocketIoPacket::event(const QString& nameSpace, const QString& name,
                                     const QJsonArray& items)
{
    SocketIoPacket packet;
    packet.type = Type::Event;
    packet.nameSpace = nameSpace;
    QJsonArray payload = items;
    payload.prepend(name);
    packet.payload = payload;
    return packet;
}

QString SocketIoPacket::eventName() const
{
    return payload.toArray().at(0).toString();
}

QJsonArray SocketIoPacket::eventItems() const
{
    QJsonArray items = payload.toArray();
    if (!items.isEmpty())
        items.removeFirst();
    return items;
}

QString SocketIoPacket::errorMessage() const
{
    if (payload.isString())
        return payload.toString();
    return payload[u"message"_s].toString();
}
