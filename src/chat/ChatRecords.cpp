#include "chat/ChatRecords.h"

#include "core/JsonValues.h"
#include "core/Logging.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QUuid>

using namespace Qt::StringLiterals;

namespace {

QString freshId()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

std::optional<QString> text(const QJsonValue& value)
{
    if (value.isString())
        return value.toString();
    return std::nullopt;
}

// ISO 8601 text or seconds since the epoch; anything else is now.
QDateTime timestampOf(const QJsonValue& value)
{
    if (value.isString()) {
        const QDateTime parsed = QDateTime::fromString(value.toString(), Qt::ISODateWithMs);
        if (parsed.isValid())
            return parsed.toUTC();
    }
    if (value.isDouble() && value.toDouble() > 0)
        return QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(value.toDouble() * 1000.0),
                                              Qt::UTC);
    return QDateTime::currentDateTimeUtc();
}

// Arguments as an object, or as JSON text of one (as function-calling models
// often write them); absent arguments are none at all.
std::optional<QJsonObject> argumentsOf(const QJsonValue& value)
{
    if (value.isUndefined() || value.isNull())
        return QJsonObject();
    if (value.isObject())
        return value.toObject();
    if (value.isString()) {
        const QJsonDocument parsed = QJsonDocument::fromJson(value.toString().toUtf8());
        if (parsed.isObject())
            return parsed.object();
        if (value.toString().trimmed().isEmpty())
            return QJsonObject();
    }
    return std::nullopt;
}

std::optional<ToolCall> decodeToolCall(const QJsonValue& json)
{
    const QJsonObject object = json.toObject();
    const std::optional<QString> name = text(object.value("name"_L1));
    const std::optional<QJsonObject> parameters = argumentsOf(object.value("parameters"_L1));
    if (!json.isObject() || !name || name->trimmed().isEmpty() || !parameters) {
        qCWarning(lcSession).noquote() << u"❌ Tool call dropped: "_s + jsonText(json);
        return std::nullopt;
    }
    ToolCall call;
    call.id = text(object.value("id"_L1)).value_or(freshId());
    call.name = name->trimmed();
    call.parameters = *parameters;
    return call;
}

std::optional<ToolResult> decodeToolResult(const QJsonValue& json)
{
    const QJsonObject object = json.toObject();
    const std::optional<QString> result = text(object.value("result"_L1));
    if (!json.isObject() || !result)
        return std::nullopt;
    ToolResult decoded;
    decoded.id = freshId();
    decoded.toolCallId = text(object.value("toolCallId"_L1)).value_or(QString());
    decoded.result = *result;
    decoded.success = object.value("success"_L1).toBool(false);
    return decoded;
}

template <typename T, typename Decode>
std::optional<QList<T>> listOf(const QJsonValue& value, Decode decode)
{
    if (!value.isArray())
        return std::nullopt;
    QList<T> items;
    for (const QJsonValue entry : value.toArray()) {
        if (std::optional<T> item = decode(entry))
            items.append(std::move(*item));
    }
    return items;
}

} // namespace

namespace ChatRecords {

std::optional<ChatMessage> decodeChatMessage(const QJsonValue& json, QString* error)
{
    const auto fail = [error](const QString& why) -> std::optional<ChatMessage> {
        if (error)
            *error = why;
        return std::nullopt;
    };
    if (!json.isObject())
        return fail(u"A chat message is %1, not a dictionary"_s.arg(jsonTypeName(json)));
    const QJsonObject object = json.toObject();
    const std::optional<QString> content = text(object.value("content"_L1));
    if (!content)
        return fail(u"A chat message has no text \"content\""_s);
    ChatMessage message;
    message.id = freshId();
    message.content = *content;
    message.isFromUser = object.value("isFromUser"_L1).toBool(false);
    message.timestamp = timestampOf(object.value("timestamp"_L1));
    message.messageId = text(object.value("messageId"_L1));
    if (!message.messageId)
        message.messageId = text(object.value("id"_L1));
    message.toolCalls = listOf<ToolCall>(object.value("toolCalls"_L1), decodeToolCall);
    message.toolResults = listOf<ToolResult>(object.value("toolResults"_L1), decodeToolResult);
    if (object.value("processingTime"_L1).isDouble())
        message.processingTime = object.value("processingTime"_L1).toDouble();
    message.isLoading = false; // only ever set on the client's own placeholder
    message.isPendingToolApproval = object.value("isPendingToolApproval"_L1).toBool(false) ||
                                    object.value("requiresApproval"_L1).toBool(false);
    return message;
}

std::optional<ChatMessage> decodeChatResponse(const QJsonObject& payload, QString* error)
{
    const QJsonValue nested = payload.value("message"_L1);
    if (!nested.isObject())
        return decodeChatMessage(payload, error);
    std::optional<ChatMessage> message = decodeChatMessage(nested, error);
    // The envelope may say it for the whole answer.
    if (message && payload.value("requiresApproval"_L1).toBool(false))
        message->isPendingToolApproval = true;
    return message;
}

std::optional<AgentSuggestion> decodeAgentSuggestion(const QJsonValue& json)
{
    const QJsonObject object = json.toObject();
    std::optional<QString> name = text(object.value("name"_L1));
    if (!name || name->trimmed().isEmpty())
        name = text(object.value("toolName"_L1));
    if (!json.isObject() || !name || name->trimmed().isEmpty()) {
        qCWarning(lcSession).noquote()
            << u"AgentSuggestion.from() - Missing required field: name/toolName"_s;
        qCWarning(lcSession).noquote() << u"Available keys:"_s << object.keys().join(u", "_s);
        return std::nullopt;
    }
    AgentSuggestion suggestion;
    suggestion.id = freshId();
    suggestion.toolName = name->trimmed();
    suggestion.reason = text(object.value("reason"_L1));
    suggestion.confidence = object.value("confidence"_L1).toDouble(0.0);
    suggestion.timestamp = timestampOf(object.value("timestamp"_L1));
    const QJsonValue parameters = object.value("parameters"_L1);
    if (parameters.isObject())
        suggestion.parameters = parameters.toObject();
    suggestion.text = text(object.value("text"_L1));
    if (!suggestion.text)
        suggestion.text = text(object.value("suggestion"_L1));
    qCInfo(lcSession).noquote() << u"✅ AgentSuggestion.from() - Successfully parsed suggestion:"_s
                                << suggestion.toolName;
    return suggestion;
}

QString readableArguments(const QJsonObject& parameters)
{
    QStringList lines;
    for (auto it = parameters.constBegin(); it != parameters.constEnd(); ++it) {
        const QJsonValue value = it.value();
        lines.append(it.key() + u": "_s + (value.isString() ? value.toString() : jsonText(value)));
    }
    return lines.join(u'\n');
}

} // namespace ChatRecords
