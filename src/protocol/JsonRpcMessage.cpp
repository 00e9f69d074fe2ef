#include "protocol/JsonRpcMessage.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

JsonRpcDecoded refuse(const QString& why)
{
    return {std::nullopt, why};
}

// JSON-RPC allows a number or a string; MCP forbids null on anything but an
// error about a request that could not be read.
bool isValidId(const QJsonValue& id)
{
    if (id.isString())
        return true;
    return id.isDouble() && std::isfinite(id.toDouble());
}

} // namespace

JsonRpcDecoded JsonRpcMessage::decode(QByteArrayView bytes)
{
    QJsonParseError parseError{};
    const QJsonDocument document =
        QJsonDocument::fromJson(QByteArray::fromRawData(bytes.data(), bytes.size()), &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return refuse(
            u"Not JSON: %1 at offset %2"_s.arg(parseError.errorString()).arg(parseError.offset));
    if (document.isArray())
        return refuse(u"A JSON-RPC batch (a JSON array) is not supported"_s);
    if (!document.isObject())
        return refuse(u"A JSON-RPC message must be a JSON object"_s);

    const QJsonObject object = document.object();
    if (object.value("jsonrpc"_L1) != u"2.0"_s)
        return refuse(u"The message does not say \"jsonrpc\": \"2.0\""_s);

    JsonRpcMessage message;
    const bool hasId = object.contains("id"_L1);
    message.id = object.value("id"_L1);
    const bool hasMethod = object.contains("method"_L1);
    const bool hasResult = object.contains("result"_L1);
    const bool hasError = object.contains("error"_L1);

    if (hasMethod) {
        if (hasResult || hasError)
            return refuse(u"A message cannot carry both \"method\" and \"result\" or \"error\""_s);
        const QJsonValue method = object.value("method"_L1);
        if (!method.isString() || method.toString().isEmpty())
            return refuse(u"\"method\" must be a non-empty string"_s);
        message.method = method.toString();
        if (object.contains("params"_L1)) {
            message.params = object.value("params"_L1);
            if (!message.params.isObject() && !message.params.isArray())
                return refuse(
                    u"\"params\" of \"%1\" must be an object or an array"_s.arg(message.method));
        }
        if (!hasId) {
            message.kind = Kind::Notification;
            message.id = QJsonValue();
            return {std::move(message), {}};
        }
        if (!isValidId(message.id))
            return refuse(
                u"The id of request \"%1\" must be a number or a string"_s.arg(message.method));
        message.kind = Kind::Request;
        return {std::move(message), {}};
    }

    if (hasResult == hasError)
        return refuse(hasResult
                          ? u"A response cannot carry both \"result\" and \"error\""_s
                          : u"The message has neither \"method\", \"result\" nor \"error\""_s);
    if (!hasId)
        return refuse(u"A response must carry the id of its request"_s);

    if (hasResult) {
        if (!isValidId(message.id))
            return refuse(u"The id of a result must be a number or a string"_s);
        message.kind = Kind::Result;
        message.result = object.value("result"_L1);
        return {std::move(message), {}};
    }

    if (!message.id.isNull() && !isValidId(message.id))
        return refuse(u"The id of an error must be a number, a string or null"_s);
    const QJsonValue error = object.value("error"_L1);
    if (!error.isObject())
        return refuse(u"\"error\" must be an object"_s);
    const QJsonObject errorObject = error.toObject();
    const QJsonValue code = errorObject.value("code"_L1);
    const double number = code.toDouble(0.5);
    if (!code.isDouble() || !std::isfinite(number) || number != std::trunc(number) ||
        std::abs(number) > 9.0e15)
        return refuse(u"\"error.code\" must be an integer"_s);
    const QJsonValue text = errorObject.value("message"_L1);
    if (!text.isString())
        return refuse(u"\"error.message\" must be a string"_s);
    message.kind = Kind::Error;
    message.errorCode = static_cast<qint64>(number);
    message.errorMessage = text.toString();
    message.errorData = errorObject.value("data"_L1);
    return {std::move(message), {}};
}

QByteArray JsonRpcMessage::encode() const
{
    QJsonObject object{{"jsonrpc"_L1, u"2.0"_s}};
    switch (kind) {
    case Kind::Request:
        object.insert("id"_L1, id);
        [[fallthrough]];
    case Kind::Notification:
        object.insert("method"_L1, method);
        if (!params.isUndefined())
            object.insert("params"_L1, params);
        break;
    case Kind::Result:
        object.insert("id"_L1, id);
        object.insert("result"_L1, result);
        break;
    case Kind::Error: {
        object.insert("id"_L1, id);
        QJsonObject error{{"code"_L1, errorCode}, {"message"_L1, errorMessage}};
        if (!errorData.isUndefined())
            error.insert("data"_L1, errorData);
        object.insert("error"_L1, error);
        break;
    }
    }
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

JsonRpcMessage JsonRpcMessage::request(const QJsonValue& id, const QString& method,
                                       const QJsonValue& params)
{
    JsonRpcMessage message;
    message.kind = Kind::Request;
    message.id = id;
    message.method = method;
    message.params = params;
    return message;
}

JsonRpcMessage JsonRpcMessage::notification(const QString& method, const QJsonValue& params)
{
    JsonRpcMessage message;
    message.kind = Kind::Notification;
    message.method = method;
    message.params = params;
    return message;
}

JsonRpcMessage JsonRpcMessage::response(const QJsonValue& id, const QJsonValue& result)
{
    JsonRpcMessage message;
    message.kind = Kind::Result;
    message.id = id;
    message.result = result;
    return message;
}

JsonRpcMessage JsonRpcMessage::errorResponse(const QJsonValue& id, qint64 code,
                                             const QString& message)
{
    JsonRpcMessage answer;
    answer.kind = Kind::Error;
    answer.id = id;
    answer.errorCode = code;
    answer.errorMessage = message;
    return answer;
}
