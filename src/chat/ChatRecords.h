// The chat's records as they travel on the backend event socket: the messages
// of the conversation, the tool calls the assistant asks for, the results the
// client sends back, and the agent's suggestions.
//
// They come from a language model behind the backend, so they are read
// forgivingly where a default is harmless (a missing timestamp is now, a
// missing flag is false) and strictly where a guess could run the wrong
// thing: a tool call needs its tool's name, and arguments that are not an
// object (or JSON text of one) drop the call rather than run it with nothing.
// Every local `id` is made fresh on decoding; the backend's own identifier of
// a message is `messageId`.
#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>

#include <optional>

struct ToolCall
{
    QString id;   // the backend's, so that results can name the call they answer
    QString name; // the tool identifier
    QJsonObject parameters;
};

struct ToolResult
{
    QString id;
    QString toolCallId; // the ToolCall it answers
    QString result;     // the result text
    bool success = false;
};

struct ChatMessage
{
    QString id;
    QString content;
    bool isFromUser = false;
    QDateTime timestamp;
    std::optional<QString> messageId;
    std::optional<QList<ToolCall>> toolCalls;
    std::optional<QList<ToolResult>> toolResults;
    std::optional<double> processingTime;
    bool isLoading = false;
    bool isPendingToolApproval = false;
};

struct AgentSuggestion
{
    QString id;
    QString toolName;
    std::optional<QString> reason;
    double confidence = 0.0;
    QDateTime timestamp;
    std::optional<QJsonObject> parameters;
    // The suggestion's own wording, when the backend gave one.
    std::optional<QString> text;
};

namespace ChatRecords {

// One message; nothing, with `error` saying why, when it is not an object
// with a text "content".
std::optional<ChatMessage> decodeChatMessage(const QJsonValue& json, QString* error = nullptr);

// The assistant message of a "chatResponse": nested under "message" when that
// is an object, otherwise the payload itself. "requiresApproval" counts as
// "isPendingToolApproval".
std::optional<ChatMessage> decodeChatResponse(const QJsonObject& payload, QString* error = nullptr);

// One entry of an "agentSuggestions" payload; nothing (and the log line
// naming the keys it had) without a tool name under "name" or "toolName".
std::optional<AgentSuggestion> decodeAgentSuggestion(const QJsonValue& json);

// A tool call's arguments for a person to check before approving: one
// "name: value" line per argument, by name, text values as they
// are and anything else as compact JSON. Nothing is cut: what is shown is
// what runs.
QString readableArguments(const QJsonObject& parameters);

} // namespace ChatRecords
