// One JSON-RPC 2.0 message as MCP sends it: a request, a notification, a
// result or an error response. Decoding is strict, never throws and says why
// it refuses; batches are refused (MCP 2024-11-05 sends none).
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QJsonValue>
#include <QString>

#include <optional>

// A decoded message, or why there is none (below).
struct JsonRpcDecoded;

struct JsonRpcMessage
{
    enum class Kind
    {
        Request,      // "method" and "id": the other side waits for an answer
        Notification, // "method" without "id"
        Result,       // "result" for "id"
        Error,        // "error" for "id" (null when the request could not be read)
    };

    Kind kind = Kind::Notification;
    QJsonValue id;                             // a number or a string; null for notifications
    QString method;                            // requests and notifications
    QJsonValue params = QJsonValue::Undefined; // an object or an array; undefined when absent
    QJsonValue result;                         // results
    qint64 errorCode = 0;
    QString errorMessage;
    QJsonValue errorData = QJsonValue::Undefined; // undefined when absent

    static JsonRpcDecoded decode(QByteArrayView bytes);
    // Compact JSON text.
    QByteArray encode() const;

    static JsonRpcMessage request(const QJsonValue& id, const QString& method,
                                  const QJsonValue& params = QJsonValue::Undefined);
    static JsonRpcMessage notification(const QString& method,
                                       const QJsonValue& params = QJsonValue::Undefined);
    static JsonRpcMessage response(const QJsonValue& id, const QJsonValue& result);
    static JsonRpcMessage errorResponse(const QJsonValue& id, qint64 code, const QString& message);

    bool operator==(const JsonRpcMessage&) const = default;
};

struct JsonRpcDecoded
{
    std::optional<JsonRpcMessage> value;
    QString error; // set exactly when value is empty

    bool ok() const { return value.has_value(); }
};

// The error codes JSON-RPC reserves, and MCP's own for a request that waited too long.
namespace JsonRpcError {
constexpr qint64 parseError = -32700;
constexpr qint64 invalidRequest = -32600;
constexpr qint64 methodNotFound = -32601;
constexpr qint64 invalidParams = -32602;
constexpr qint64 internalError = -32603;
constexpr qint64 requestTimeout = -32001;
} // namespace JsonRpcError
